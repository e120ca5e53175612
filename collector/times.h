// times.h - the clock, and reading times written by people.
#pragma once

#include "collector/received.h"

#include <optional>
#include <string>

moment now();

// "2026-03-01", "2026-03-01 14:05[:09]" or with a T, in the local zone; seconds since 1970; "30m", "24h", "7d" before `at`.
std::optional<moment> parse_time(const std::string &text, moment at);
