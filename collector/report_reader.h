// report_reader.h - a report out of the JSON in which collectors publish it: the reverse of report_json(), which makes the
// same text of the result. docs/collector.md has the schema, under MQTT.
#pragma once

#include "collector/received.h"

#include <string>
#include <string_view>

inline constexpr std::size_t most_report_json = 16384; // bytes; more than any report takes

// Sets the report, its origin, and the time of its receipt by whoever published it (0: not known); the other members are left
// alone. `topic`: where it came from; its last level, and each that is a MAC, must be the report's access point, so that nobody
// speaks for another.
// Empty, or why it is no report: `out` is then not to be used. Members that are not known are ignored, missing ones are not.
std::string read_report(std::string_view json, std::string_view topic, received &out);
