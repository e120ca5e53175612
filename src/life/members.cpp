#include "life/members.h"

#include "model/members.h"
#include "model/state.h"
#include "model/table.h"
#include "outputs/backup.h"
#include "tools/health.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"

namespace {

// Takes from `sta` what a known station's new association changes.
void merge(sta_info_t *known, sta_info_t *sta) {
    if (sta->name && sta->name[0] != '\0') {
        if (char *name = sta_strdup(sta->name)) {
            sta_free(known->name);
            known->name = name;
        }
    }
    if (sta->status != sta_status_added)
        sta_sta_users_backup_update(sta); // Deliberate: the line shows the incoming values
    sta_state_move(known, station_step::returned, sta);
    known->radio_id = sta->radio_id;
    sta_put_text(known->protocol, sta->protocol);
    known->driver_rate = sta->driver_rate;
    if (sta->ifname[0] != '\0') sta_put_text(known->ifname, sta->ifname);
}

} // namespace

sta_info_t *sta_members_admit(sta_info_t *sta) {
    constexpr const char *function = STA_NAME_OF(sta_sta_add_usr);
    if (!sta) return nullptr;
    STA_LOG_AS(function, "sta add user, mac=%s. ifname=%s\n", sta->mac,
               sta->ifname[0] != '\0' ? sta->ifname : "NULL");
    static bool full = false;
    if (g_sta_sta_master.online >= sta_max_num) {
        STA_LOG_AS(function, "sta add user %s failed ! reach max sta_numbers %d.\n", sta->mac, sta_max_num);
        ++sta_health.stations_refused;
        if (sta_first(full))
            STA_NOTICE("the table is full with %d stations: %s is not kept\n", sta_max_num, sta->mac);
        sta_sta_free(sta);
        return nullptr;
    }
    full = false;
    sta_info_t *known = sta_sta_find_usr(sta->mac);
    if (!known) {
        sta_members_link(sta);
        return sta;
    }
    if (known != sta) {
        merge(known, sta);
        sta_sta_free(sta);
    }
    return known;
}

int sta_sta_add_usr(sta_info_t *sta) { return sta_members_admit(sta) ? 0 : -1; }

namespace {

template <class RemoveLine> void let_go(sta_info_t *sta, RemoveLine remove_line) {
    sta_members_unlink(sta);
    remove_line(sta->mac);
    STA_LOG_AS(STA_NAME_OF(sta_sta_del_usr), "Delete user(ip=%s, mac=%s).\n", sta->ip, sta->mac);
    sta_sta_free(sta);
}

} // namespace

void sta_sta_del_usr(sta_info_t *sta) {
    if (sta) let_go(sta, sta_sta_users_backup_del);
}

void sta_members_dismiss(sta_info_t *sta, sta_backup_pass &backup) {
    let_go(sta, [&](const char *mac) { backup.remove(mac); });
}

void sta_sta_del_usr_by_mac(const char *mac, const char *ifname) {
    sta_info_t *sta = sta_sta_find_usr(mac);
    if (!sta) {
        STA_LOG("sta delete, find usr %s fail.\n", sta_or_null(mac));
        STA_LOG("Delete user(mac=%s).\n", sta_or_null(mac));
        sta_sta_users_backup_del(mac);
        return;
    }
    if (std::strcmp(sta->ifname, ifname ? ifname : "") != 0) {
        STA_LOGFILE("sta_sta_del_usr_by_mac: mac:%s ifname old:%s new:%s mismatching.\n", sta->mac,
                    sta->ifname, sta_or_null(ifname));
        return;
    }
    sta_sta_del_usr(sta);
}
