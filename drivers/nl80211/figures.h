// figures.h - what the daemon is told of a station: its event and its table entries, from what is known.
//
// What no source tells is 0 or "", and a signal that is not known -95, as docs/bridge.md lists it.
#pragma once

#include "nl80211/station_life.h"
#include "protocol/driver_request.h"
#include "protocol/station_event.h"

#include <cstdint>

// NL80211_CHAN_WIDTH_* as the daemon counts widths.
std::uint8_t width_of(std::uint32_t channel_width) noexcept;

// `boot_ns` is CLOCK_BOOTTIME now.
station_event make_event(bool on, const station &about, const station_figures &figures,
                         const network_facts &where, std::int32_t reason, moment now,
                         std::uint64_t boot_ns) noexcept;
driver_basic make_basic(const station &about, const station_figures &figures, const network_facts &where,
                        std::uint64_t boot_ns) noexcept;
driver_extended make_extended(const station &about, const station_figures &figures) noexcept;
