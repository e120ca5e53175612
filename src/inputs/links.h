// links.h - the network interfaces of the access point, as far as they say where a station is.
//
// A station is on its wireless interface, on the bridge that this is a port of, and on a VLAN of either.
// Memory: plain malloc, 28 bytes for each interface; without memory one is not known.
#pragma once

#include <cstdint>

struct route_link;

void sta_links_put(const route_link &link) noexcept; // it is new, or has changed
void sta_links_remove(std::int32_t index) noexcept;
void sta_links_clear() noexcept;

// Whether a station on interface `ifname` can be a neighbour on interface number `index`.
bool sta_links_lead(std::int32_t index, const char *ifname) noexcept;
