// memory.h - what the bridge remembers when it is restarted: the stations it has reported, and to which daemons.
//
// One file, in memory. It is valid for one boot of the machine and one build of the program; another one's file is
// ignored. Without it a restarted bridge would report every station again, and never the departures that happened
// meanwhile.
#pragma once

#include "channel/array.h"
#include "channel/listeners.h"
#include "nl80211/station_life.h"

#include <cstddef>

struct bridge_memory {
    static constexpr std::size_t daemons_max = 4;
    netlink_listener daemons[daemons_max];
    std::size_t daemon_count;
    array<station> stations; // those that are authorised
};

// False when there is no such file, or memory_save() did not write it; `memory` is then empty.
bool memory_load(const char *path, bridge_memory &memory) noexcept;

// Replaces the whole file. False when it cannot be written.
bool memory_save(const char *path, const bridge_memory &memory) noexcept;
