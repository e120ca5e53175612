// received.h - one message of an access point, as it came, and when.
#pragma once

#include "protocol/station_report.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Microseconds since 1970. 0: not known.
using moment = std::int64_t;
inline constexpr moment second = 1'000'000;

// Who made a report: an access point's MAC (lower case, or "unknown"), the run of its collector, and the report's number
// in that run. All three together are one report, however often it comes.
struct origin {
    std::string access_point;
    std::string boot;
    std::uint64_t seq = 0;
};

struct received {
    moment at = 0;     // when it came; 0 for one that is read from a file, which does not say
    std::string bytes; // the image, unless nobody wants it; or whatever else came in its place
    std::optional<station_report> report;
    std::optional<origin> from{}; // of one that came through a broker
    // Numbers that grow, of messages that somebody keeps until we have stored them; 0: nobody does. A store says with
    // store_options::committed up to which one everything is stored.
    std::uint64_t ticket = 0;
};

// Decodes what came: there is a report when the size is that of one.
inline received take_message(std::string bytes, moment at) {
    received in{at, std::move(bytes), {}};
    if (in.bytes.size() == station_report_size) {
        const auto *first = reinterpret_cast<const std::uint8_t *>(in.bytes.data());
        in.report.emplace();
        station_report_decode(std::span<const std::uint8_t, station_report_size>(first, station_report_size),
                              *in.report);
    }
    return in;
}

// When the report was made, by the access point's own clock, in whole seconds; for those that were read from a file.
inline moment made_at(const station_report &report) {
    return second * (report.log_type == report_offline && report.offline_ts.sec > 0
                         ? report.offline_ts.sec
                         : std::int64_t{report.online_ts.sec} + report.oltime);
}
