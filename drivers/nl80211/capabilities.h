// capabilities.h - a station's capabilities, from the elements of its association request; and the access point's,
// from its response.
//
// Source: IEEE 802.11, 9.4.2 (elements).
#pragma once

#include <cstdint>
#include <span>

enum class generation : std::uint8_t { unknown, b, g, a, n, ac, ax, be };

// Channel widths by the daemon's numbers.
enum : std::uint8_t { width_20, width_40, width_80, width_160, width_320, widths };

struct capabilities {
    generation newest; // unknown: no element says
    std::uint8_t width;
    std::uint8_t streams[8]; // by generation: spatial streams that it receives
    std::uint8_t mcs[8];     // by generation: highest index of one stream; for 802.11n of all streams
    std::uint8_t legacy;     // highest rate of the older generations, 500 kbit/s
    bool short_gi;
    bool stbc;
    bool fast_transition;
    bool management_protection;
    bool backhaul; // the station is another access point's link to this one
};

// Reads `elements`; truncated, unknown and too short ones are ignored. `frequency` (MHz) decides the generation of a
// station without newer elements, and which width bits count.
capabilities capabilities_decode(std::span<const std::uint8_t> elements, unsigned frequency) noexcept;

// The capabilities that both ends have; an unknown end does not limit.
capabilities capabilities_common(const capabilities &station, const capabilities &access_point) noexcept;

// Highest rate on a channel of this width, in Mbit/s, rounded down; 0 when nothing is known.
std::uint32_t capabilities_max_rate(const capabilities &both, std::uint8_t channel_width) noexcept;

// "11ax" and so on; "" when unknown.
const char *generation_name(generation which) noexcept;

// Highest MCS index of the newest generation; 0 for generations without MCS.
std::uint8_t capabilities_max_mcs(const capabilities &station) noexcept;
