// listeners.h - who listens to announcements of generic netlink families in this network namespace.
#pragma once

#include "channel/array.h"

#include <cstdint>

struct netlink_listener {
    std::uint32_t port;
    unsigned long inode; // of its socket: tells a restarted listener from the one that had its port before
    bool operator==(const netlink_listener &) const = default;
};

// The listener that one line of /proc/net/netlink tells of: a generic netlink socket in the controller's group.
// False for any other line.
bool netlink_listener_in(const char *line, netlink_listener &found) noexcept;

// All of them but the socket `own_port`, oldest socket first. False when the table cannot be read; `found` is then
// what could be.
bool find_netlink_listeners(std::uint32_t own_port, array<netlink_listener> &found) noexcept;

// True when the process that `port` is named after has this name. The kernel gives the first netlink socket of a
// process the process's number: the one that it has in its own process namespace, which may be a jail's.
bool netlink_port_is_of(std::uint32_t port, const char *process_name) noexcept;
