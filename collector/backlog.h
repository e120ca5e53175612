// backlog.h - what an output keeps for somebody who is away.
#pragma once

#include <cstdint>

struct backlog {
    std::uint64_t waiting = 0;   // messages
    std::uint64_t bytes = 0;     // of the files they are in
    std::uint64_t unwritten = 0; // of those that wait: in memory, since they could not be written to a file
    std::uint64_t dropped = 0;   // messages
};
