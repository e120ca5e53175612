// times.h - the clock, and reading times written by people.
#pragma once

#include "collector/received.h"

#include <optional>
#include <string>

moment now();

// 2015-01-01: a clock that shows less was never set.
inline constexpr moment first_sound_time = 16436 * 86400 * second;

// When something happened that came with a time of its own, however long it has waited since: then, or at `clock`, where the one
// who told the time has a clock that is ahead by more than a minute, or was never set.
moment sound_time(moment told, moment clock);

// "2026-03-01", "2026-03-01 14:05[:09]" or with a T, in the local zone; seconds since 1970; "30m", "24h", "7d" before `at`.
std::optional<moment> parse_time(const std::string &text, moment at);
