// memory.h - what the bridge remembers over a restart of its own: which daemon it has told of which stations.
//
// One file, in memory: it is good for this start of the machine and this build of the program, and is left aside when
// it is of another. Without it a restarted bridge would tell the daemon of every station again, and never of those that
// left meanwhile.
#pragma once

#include "channel/array.h"
#include "channel/listeners.h"
#include "nl80211/station_life.h"

#include <cstddef>

struct bridge_memory {
    static constexpr std::size_t daemons_max = 4;
    netlink_listener daemons[daemons_max];
    std::size_t daemon_count;
    array<station> stations; // those that are on
};

// False when there is no such file, or it is not as save() writes it; `memory` is then empty.
bool memory_load(const char *path, bridge_memory &memory) noexcept;

// Replaces the file whole. False when it cannot be written.
bool memory_save(const char *path, const bridge_memory &memory) noexcept;
