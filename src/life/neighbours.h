// neighbours.h - which addresses stations use, from the access point's kernel: its IPv4 and IPv6 neighbours.
//
// Source: rtnetlink: the groups of links and of neighbours, and everything once at start. Only neighbours that are stations
//         of the table count, and only on interfaces of that station (inputs/links). The record's `ip` is never changed.
// Loss:   everything is asked for again, at most once a second, after the socket was full (counted), and after associations,
//         since the kernel may have seen the station before the driver reported it.
// Logs:   level 3, when the kernel gives no socket: the daemon then runs without this module.
#pragma once

#include "base/cxx/ubox.h"

#include <span>

extern struct uloop_fd sta_neighbour_watcher;
extern struct uloop_timeout sta_neighbour_timer;

// Opens the socket and asks for everything.
void sta_neighbours_init() noexcept;

// A station has associated: asks for all neighbours within a second.
void sta_neighbours_ask() noexcept;

// Handles one received datagram.
void sta_neighbours_handle(std::span<const std::uint8_t> datagram) noexcept;

// Back to the state before the start. For tests.
void sta_neighbours_forget() noexcept;
