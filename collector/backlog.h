// backlog.h - the messages that an output keeps for a receiver that is away.
#pragma once

#include <cstdint>

struct backlog {
    std::uint64_t waiting = 0;   // messages
    std::uint64_t bytes = 0;     // in files
    std::uint64_t unwritten = 0; // of those waiting: in memory, because they could not be written to a file
    std::uint64_t dropped = 0;   // messages
};
