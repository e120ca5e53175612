// bus.h - sends the recorded bus messages again, in place of their senders: programs that send events, the DHCP
// monitor, and callers of methods.
#pragma once

#include "record/recording.h"

#include <memory>

class replayed_bus {
public:
    replayed_bus();
    ~replayed_bus();
    replayed_bus(replayed_bus &&) = delete;

    // Connects; `notifies`: also publishes the object that the daemon subscribes to. Returns an empty text, or what
    // failed.
    std::string open(bool notifies);

    // Sends it again. Events that the daemon had sent itself are left out: in the lab it sends its own.
    void say(const recorded::bus_message &message);

private:
    struct connection;
    std::unique_ptr<connection> now_;
};
