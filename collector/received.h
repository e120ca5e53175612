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

struct received {
    moment at = 0;     // when it came; 0 for one that is read from a file, which does not say
    std::string bytes; // the image, unless nobody wants it; or whatever else came in its place
    std::optional<station_report> report;
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
