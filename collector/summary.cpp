#include "collector/summary.h"

#include "collector/report_writer.h"

#include <cinttypes>
#include <cstdio>

void summary::history::end_session() {
    seconds += current_seconds;
    up += current_up;
    down += current_down;
    current_seconds = 0;
    current_up = current_down = 0;
    online = false;
}

void summary::add(const station_report &sta) {
    history &known = stations_[escaped(sta.mac)];
    ++known.reports;
    if (sta.log_type == report_roamed) ++known.roams;
    // A report "online" with the known time means that the station's address has changed.
    const bool again = known.online && sta.log_type == report_online && sta.online_ts.sec != known.since;
    if (again) known.end_session();
    if (!known.online) { // or the collector was started later than the session
        ++known.sessions;
        known.online = true;
        known.since = sta.online_ts.sec;
    }
    // The figures so far; later reports of the session have larger ones.
    known.current_seconds =
        sta.log_type == report_offline && sta.offline_ts.sec > sta.online_ts.sec && sta.online_ts.sec > 0
            ? sta.offline_ts.sec - sta.online_ts.sec
            : sta.oltime;
    known.current_up = sta.wifi_up;
    known.current_down = sta.wifi_down;
    if (sta.log_type != report_offline) return;
    ++known.reasons[escaped(sta.reason)];
    known.end_session();
}

std::string summary::text() const {
    std::string text =
        "station            reports sessions roams   seconds         up bytes       down bytes  departures\n";
    for (const auto &[mac, known] : stations_) {
        char row[160];
        const int length = std::snprintf(
            row, sizeof(row), "%-17s  %7u %8u %5u %9" PRId64 " %16" PRIu64 " %16" PRIu64 "  ", mac.c_str(),
            known.reports, known.sessions, known.roams, known.seconds + known.current_seconds,
            known.up + known.current_up, known.down + known.current_down);
        text.append(row, static_cast<std::size_t>(length) < sizeof(row) ? static_cast<std::size_t>(length)
                                                                        : sizeof(row) - 1);
        std::string reasons;
        for (const auto &[reason, times] : known.reasons)
            reasons += (reasons.empty() ? "" : ", ") + std::to_string(times) + " " + reason;
        text += (reasons.empty() ? "-" : reasons) + (known.online ? " (online)\n" : "\n");
    }
    return text;
}
