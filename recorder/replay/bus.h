// bus.h - what the recorded daemon heard on the bus, said again by those who did not come along: the senders of events,
// the DHCP monitor, the callers of methods.
#pragma once

#include "record/recording.h"

#include <memory>

class replayed_bus {
public:
    replayed_bus();
    ~replayed_bus();
    replayed_bus(replayed_bus &&) = delete;

    // Connects; `notifies`: also as the object that the daemon subscribes to. Empty, or what went wrong.
    std::string open(bool notifies);

    // Says it again. Events that the daemon had sent itself are left out: in the lab it sends its own.
    void say(const recorded::bus_message &message);

private:
    struct connection;
    std::unique_ptr<connection> now_;
};
