#include "life/pass.h"

#include "inputs/leases.h"
#include "inputs/network.h"
#include "life/log_up.h"
#include "model/identity.h"
#include "model/state.h"
#include "model/table.h"
#include "outputs/backup.h"
#include "outputs/happenings.h"
#include "outputs/notify.h"
#include "protocol/driver_request.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"
#include "wlan/tables.h"

namespace {

constexpr const char *function = STA_NAME_OF(sta_sta_flow_count_proc); // helpers log in its name

// One pass over the table.
struct flow_pass {
    std::int32_t now;
    sta_configuration configuration{};
    sta_lease_snapshot leases{};
    sta_radio_tables tables{table_basic, configuration};
    sta_backup_pass backup{};
    // Deliberate: kept from one station to the next. A bridged station, which has no look-up, uses the result
    // of the station before it.
    int lease_found = -1;

    void take_address(sta_info_t *sta);
    static void take_name(sta_info_t *sta);
    static void learn(const sta_info_t *sta, const char *old_ip, const char *old_name);
    void go_online(sta_info_t *sta);
};

void flow_pass::take_address(sta_info_t *sta) {
    sta_put_text(sta->before_ip, sta_no_address);
    if (configuration.is_bridged(sta))
        sta_put_text(sta->ip, sta_no_address);
    else
        lease_found = sta_get_ipaddr_by_dhcp_mac(sta->ip, sta->mac);
    if (lease_found == 0) {
        STA_LOG_AS(function, "Sta on, get ip from dhcp.\n");
        dhcp_ubus_send_ip_change_event(sta->mac, sta->ip, sta_no_address);
    } else {
        sta_put_text(sta->ip, sta_no_address);
    }
}

void flow_pass::take_name(sta_info_t *sta) {
    sta_free(sta->name);
    sta->name = nullptr;
    if (sta->repeater_type == 1) {
        sta_take_name(sta, "");
        return;
    }
    sta->name = sta_get_name_by_dhcp_mac(sta->mac);
    if (!sta->name) sta->name = sta_get_default_name();
}

// Remembers the station's address and name from the lease file, and sends events for those that are new.
void flow_pass::learn(const sta_info_t *sta, const char *old_ip, const char *old_name) {
    sta_identity_add_address(sta, sta->ip, station_origin::lease);
    if (std::strcmp(sta->ip, sta_no_address) != 0 && std::strcmp(sta->ip, old_ip) != 0)
        sta_tell_address(sta, sta->ip, station_origin::lease);
    if (sta->repeater_type == 1) return; // its name was made by us
    sta_identity_add_name(sta, sta->name, station_origin::lease);
    if (std::strcmp(sta->name, "-") != 0 && std::strcmp(sta->name, old_name) != 0)
        sta_tell_name(sta, sta->name, station_origin::lease);
}

void flow_pass::go_online(sta_info_t *sta) {
    char old_ip[sizeof(sta->ip)], old_name[65]; // a lease's name has 64 characters at most
    sta_put_text(old_ip, sta->ip);
    sta_put_text(old_name, sta->name);
    take_address(sta);
    sta->work_up = 0;
    sta->work_down = 0;
    sta->flow_rateup = 0;
    sta->flow_ratedown = 0;
    take_name(sta);
    if (!sta->name) return; // waiting until the next pass
    sta->oltime = now - sta->online_clock.sec;
    if (sta_radio_tables::has_radio(sta))
        tables.update(sta);
    else
        STA_LOG_AS(function, "sta:%s radio is inexistence \n", sta->mac);
    sta_state_move(sta, station_step::completed);
    sta->time_delay = 0;
    sta->pkt_loserate = 0;
    learn(sta, old_ip, old_name);
}

} // namespace

int sta_sta_flow_count_proc() {
    {
        flow_pass pass{.now = sta_monotonic_seconds()};
        sta_info_t *sta = nullptr;
        sta_info_t *next = nullptr;
        list_for_each_entry_safe (sta, next, &g_sta_sta_master.list, list) {
            if (sta->mac[0] == '\0') continue;
            pass.tables.fetch_for(sta);
            if (sta->status == sta_status_added) pass.go_online(sta);
            sta->oltime = pass.now - sta->online_clock.sec;
            pass.backup.update(sta, pass.configuration);
        }
    }
    sta_sta_save_devc();
    return 0;
}

int sta_sta_log_up_proc() {
    sta_mem_dump();
    sta_sta_log_byioctl_update();
    return 0;
}

int sta_sta_single_log_up_proc() {
    sta_sta_log_single_byioctl_update();
    return 0;
}
