// report_reader.h - reading a report from the JSON that collectors publish. It is the reverse of report_json(), which makes
// the same text from the result. docs/collector.md has the schema, under MQTT.
#pragma once

#include "collector/received.h"

#include <string>
#include <string_view>

inline constexpr std::size_t most_report_json = 16384; // bytes; more than any report takes

// Sets the report, its origin, and the time at which the publisher received it (0: not known); the other members stay
// unchanged. `topic`: its last level, and each level that is a MAC, must be the report's access point, so that one access
// point cannot publish reports of another.
// Returns an empty text, or why it is not a report; `out` must not be used then. Unknown members are ignored, missing ones are
// an error.
std::string read_report(std::string_view json, std::string_view topic, received &out);
