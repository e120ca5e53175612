#include "nl80211/clock.h"

#include <ctime>

namespace {

std::int64_t ms_of(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return std::int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

} // namespace

moment now_moment() noexcept { return {ms_of(CLOCK_MONOTONIC), ms_of(CLOCK_REALTIME)}; }

std::uint64_t now_boot_ns() noexcept {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(now.tv_nsec);
}
