// kernel_list.h - all stations of one interface, as the kernel lists them.
#pragma once

#include "channel/array.h"
#include "nl80211/kernel.h"

struct listed_station {
    std::uint32_t network;
    mac_address mac;
    station_figures figures;
};

// Appends the interface's stations as those of `network`. A list during which stations came or went may lack others:
// it is taken again. False when the kernel did not give a whole one; `stations` is then as before. An interface that
// has gone has none.
bool list_stations_of(kernel &from, std::uint32_t ifindex, std::uint32_t network,
                      array<listed_station> &stations) noexcept;
