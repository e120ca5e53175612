// clock.h - the clocks that the bridge uses.
#pragma once

#include <cstdint>

// The time of an observation.
struct moment {
    std::int64_t ms;      // monotonic
    std::int64_t wall_ms; // since 1970
};

moment now_moment() noexcept;

// The time since the system's start, suspension included: the kernel's times of association are of this clock.
std::uint64_t now_boot_ns() noexcept;
