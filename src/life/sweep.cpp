#include "life/sweep.h"

#include "life/departure.h"
#include "life/members.h"
#include "life/reports.h"
#include "model/departures.h"
#include "model/table.h"
#include "outputs/backup.h"
#include "tools/health.h"

struct uloop_timeout sta_restored_sweep_timer = {};

void sta_sta_restored_sweep_arm(struct uloop_timeout *timer) {
    constexpr int sweep_ms = 300000;
    timer->cb = sta_sta_restored_sweep;
    uloop_timeout_set(timer, sweep_ms);
}

void sta_sta_restored_sweep(struct uloop_timeout * /*timer*/) {
    const sta_turn turn{"sweep"};
    if (g_sta_sta_master.online < 1) return;
    sta_backup_pass backup;
    sta_info_t *sta = nullptr;
    sta_info_t *next = nullptr;
    list_for_each_entry_safe (sta, next, &g_sta_sta_master.list, list) {
        if (sta->mac[0] == '\0' || !sta->restored) continue;
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        sta->offline_ts = {static_cast<std::int32_t>(now.tv_sec), static_cast<std::int32_t>(now.tv_nsec)};
        sta_sta_log_off(sta);
        sta_departed_by_absence(sta, departure_cause::swept);
        sta_members_dismiss(sta, backup);
    }
}
