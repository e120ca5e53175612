// neighbours.h - which addresses stations use, as the kernel of the access point sees them: its neighbours, of IPv4 and IPv6.
//
// Source: rtnetlink: the groups of links and of neighbours, and everything once at start. Only stations of the table count, and
//         only where they are (inputs/links). Their record's `ip` is never changed by it.
// Loss:   when the socket was full (counted), and after associations, since the kernel may have seen the station before the driver
//         told of it: then everything is asked for again, at most once in a second.
// Logs:   level 3, a kernel that gives no socket: the daemon goes on without.
#pragma once

#include "base/cxx/ubox.h"

#include <span>

extern struct uloop_fd sta_neighbour_watcher;
extern struct uloop_timeout sta_neighbour_timer;

// Opens the socket, and asks.
void sta_neighbours_init() noexcept;

// A station has come: asks for all neighbours within a second.
void sta_neighbours_ask() noexcept;

// Handles what has come in on the socket at once.
void sta_neighbours_handle(std::span<const std::uint8_t> datagram) noexcept;

// As before the start.
void sta_neighbours_forget() noexcept;
