// figures.h - making a station's event and its table entries for the daemon.
//
// Without a source a field is 0 or "", and an unknown signal is -95; docs/bridge.md lists them.
#pragma once

#include "nl80211/station_life.h"
#include "protocol/driver_request.h"
#include "protocol/station_event.h"

#include <cstdint>

// The daemon's number for a NL80211_CHAN_WIDTH_*.
std::uint8_t width_of(std::uint32_t channel_width) noexcept;

// `boot_ns` is the current CLOCK_BOOTTIME.
station_event make_event(bool on, const station &about, const station_figures &figures,
                         const network_facts &where, std::int32_t reason, moment now,
                         std::uint64_t boot_ns) noexcept;
driver_basic make_basic(const station &about, const station_figures &figures, const network_facts &where,
                        std::uint64_t boot_ns) noexcept;
driver_extended make_extended(const station &about, const station_figures &figures) noexcept;
