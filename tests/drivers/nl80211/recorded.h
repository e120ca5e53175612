// recorded.h - the kernel's recorded messages (tests/golden/nl80211), for any number of stations.
#pragma once

#include "nl80211/mac.h"

#include <cstdint>
#include <string>
#include <vector>

using octets = std::vector<std::uint8_t>;

// The generic netlink message of one file.
octets recorded(const std::string &name);

// The same with another station's address, in the attribute and in an 802.11 frame's first address.
octets with_mac(octets message, const mac_address &mac);

mac_address mac_number(std::uint32_t number);

// A netlink message of the wireless family, or of `type`.
constexpr std::uint16_t wireless_family = 0x20;
octets netlink(const octets &content, std::uint16_t type = wireless_family);

// The kernel's answer to a dump of so many stations: datagrams of up to 32 KiB; the last one has the end message.
std::vector<octets> station_dump(std::uint32_t stations);
