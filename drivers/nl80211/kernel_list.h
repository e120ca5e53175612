// kernel_list.h - the kernel's list of all stations of one interface.
#pragma once

#include "channel/array.h"
#include "nl80211/kernel.h"

struct listed_station {
    std::uint32_t network;
    mac_address mac;
    station_figures figures;
};

// Appends the interface's stations as those of `network`. If stations were added or removed while the kernel made the
// list, it may lack others, so it is requested again. False when no complete list was received; `stations` is then
// unchanged. An interface that is gone has no stations.
bool list_stations_of(kernel &from, std::uint32_t ifindex, std::uint32_t network,
                      array<listed_station> &stations) noexcept;
