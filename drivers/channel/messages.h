// messages.h - the messages for listeners of the station-event family, as bytes.
//
// Source: the kernel's generic netlink layouts (linux/netlink.h, linux/genetlink.h), in the host's byte order, since
// the daemon runs on the same host.
#pragma once

#include "protocol/station_event.h"

#include <cstdint>
#include <span>

// Mask of the generic netlink controller's multicast group.
inline constexpr std::uint32_t netlink_controller_group = 0x8000;

// The family's number for all programs that act as the driver. The kernel gives its own families numbers up to 1023, so
// no other family can have this one, and messages that the daemon sends to it reach nobody.
inline constexpr std::uint16_t driver_family = 2000;
inline constexpr std::uint16_t lowest_family = 1024; // that the kernel never gives

// netlink header 16 + generic netlink header 4 + family name 4 + 8 + identifier 4 + 4
inline constexpr std::size_t announcement_size = 40;
inline constexpr std::size_t event_message_size = station_event_offset + station_event_size;

// The controller's message that announces a new family.
void write_announcement(std::uint16_t family, std::span<std::uint8_t, announcement_size> bytes) noexcept;

// One station event.
void write_event_message(std::uint16_t family, const station_event &event,
                         std::span<std::uint8_t, event_message_size> bytes) noexcept;
