#include "model/members.h"

#include "model/identity.h"
#include "model/state.h"
#include "model/station_index.h"
#include "model/table.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <cerrno>
#include <cstring>
#include <ctime>

bool sta_early_reports_due = false;

sta_info_t *sta_sta_new(const char *mac, const char *ssid) {
    if (!mac || !ssid) return nullptr;
    auto *sta = static_cast<sta_info_t *>(sta_malloc(sizeof(sta_info_t)));
    if (!sta) {
        const int reason = errno;
        STA_LOG("malloc sta_info_t fail, %s.\n", std::strerror(reason));
        return nullptr;
    }
    sta_state_move(sta, station_step::associated);
    sta_put_text(sta->mac, mac);
    sta_put_text(sta->ssid, ssid);
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    sta->online_clock = {static_cast<std::int32_t>(now.tv_sec), static_cast<std::int32_t>(now.tv_nsec)};
    return sta;
}

void sta_sta_free(sta_info_t *sta) {
    if (!sta) return;
    sta_identity_forget(sta);
    sta_free(sta->name);
    sta_free(sta);
}

void sta_members_link(sta_info_t *sta) noexcept {
    list_add_tail(&sta->list, &g_sta_sta_master.list);
    sta_index_linked(&g_sta_sta_master.list, sta);
    sta_early_reports_due = true;
}

void sta_members_await_report(sta_info_t *sta) noexcept {
    sta->single_log_up_cnt = 0;
    sta_early_reports_due = true;
}

void sta_members_unlink(sta_info_t *sta) noexcept {
    sta_index_unlinked(&g_sta_sta_master.list, sta);
    list_del_init(&sta->list);
    sta_state_move(sta, station_step::left);
}
