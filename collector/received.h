// received.h - one message of an access point, and when it was received.
#pragma once

#include "protocol/station_report.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// Microseconds since 1970. 0: not known.
using moment = std::int64_t;
inline constexpr moment second = 1'000'000;

// The identity of a report: the access point's MAC (lower case, or "unknown"), the run of its collector, and the report's number
// in that run. Two messages with the same three values are the same report.
struct origin {
    std::string access_point;
    std::string boot;
    std::uint64_t seq = 0;
    // The time that came with it, the same each time it comes: of its receipt by the publisher, or, if not told, of its making
    // by the access point's clock. Either clock may be wrong.
    moment told = 0;
};

struct received {
    moment at = 0;     // time of receipt; 0 for one from a file, which does not say
    std::string bytes; // the image, if an output needs it; or the bytes of a message that is not a report
    std::optional<station_report> report;
    std::optional<origin> from{}; // for one that came through a broker
    // An increasing number, if the sender keeps the message until we have stored it; 0: it does not. A store calls
    // store_options::committed with the number up to which everything is stored.
    std::uint64_t ticket = 0;
};

// Decodes a message: it is a report if it has the right size.
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

// When the report was made, by the access point's own clock, in whole seconds; for reports from a file.
inline moment made_at(const station_report &report) {
    return second * (report.log_type == report_offline && report.offline_ts.sec > 0
                         ? report.offline_ts.sec
                         : std::int64_t{report.online_ts.sec} + report.oltime);
}
