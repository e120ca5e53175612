#include "model/state.h"

#include "model/table.h"
#include "tools/health.h"

#include <algorithm>

void sta_state_move(sta_info_t *sta, station_step step, const sta_info_t *incoming) noexcept {
    const bool was_online = sta->status == sta_status_online;
    switch (step) {
    case station_step::associated:
        sta->status = sta_status_added;
        sta->restored = 0;
        sta->no_backup = 0;
        sta->third_flag = 0;
        break;
    case station_step::restored:
        sta->status = sta_status_added;
        sta->restored = 1;
        break;
    case station_step::completed:
        sta->status = sta_status_online;
        ++g_sta_sta_master.online;
        sta_health.stations_most =
            std::max(sta_health.stations_most, static_cast<std::uint32_t>(g_sta_sta_master.online));
        break;
    case station_step::returned:
        // Deliberate: if the incoming record's status is not `added`, the online count does not change.
        if (was_online && incoming->status == sta_status_added) --g_sta_sta_master.online;
        sta->status = incoming->status;
        sta->restored = incoming->restored;
        sta->no_backup = incoming->no_backup;
        sta->third_flag = incoming->third_flag;
        break;
    case station_step::left:
        if (was_online) --g_sta_sta_master.online;
        break;
    }
}

void sta_state_begin() noexcept { g_sta_sta_master.online = 0; }
