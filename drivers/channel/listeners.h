// listeners.h - finding the sockets in this network namespace that listen to announcements of generic netlink families.
#pragma once

#include "channel/array.h"

#include <cstdint>

struct netlink_listener {
    std::uint32_t port;
    unsigned long inode; // of its socket: another one for a new listener with an old port
    bool operator==(const netlink_listener &) const = default;
};

// The listener in one line of /proc/net/netlink: a generic netlink socket in the controller's group.
// False for any other line.
bool netlink_listener_in(const char *line, netlink_listener &found) noexcept;

// All of them but the socket `own_port`, oldest socket first. False when the table cannot be read completely;
// `found` then has what could be read.
bool find_netlink_listeners(std::uint32_t own_port, array<netlink_listener> &found) noexcept;

// True when the process that `port` is named after has this name. The port of a process's first netlink socket is the
// process's number in its own process namespace, which may be a jail's.
bool netlink_port_is_of(std::uint32_t port, const char *process_name) noexcept;
