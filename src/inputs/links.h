// links.h - the network interfaces of the access point: which bridges and VLANs belong to a wireless interface.
//
// A station can be seen on its wireless interface, on the bridge that has this interface as a port, and on a VLAN of either.
// Memory: plain malloc, 28 bytes for each interface; without memory an interface is not remembered.
#pragma once

#include <cstdint>

struct route_link;

void sta_links_put(const route_link &link) noexcept; // the interface is new, or has changed
void sta_links_remove(std::int32_t index) noexcept;
void sta_links_clear() noexcept;

// Whether a station on interface `ifname` can be a neighbour on interface number `index`.
bool sta_links_lead(std::int32_t index, const char *ifname) noexcept;
