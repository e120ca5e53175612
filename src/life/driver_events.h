// driver_events.h - receiving from the netlink socket: the driver's station events and late announcements of
// its family.
//
// Format: protocol/station_event.h.   Logs: level 7; malformed messages are logged and dropped, never
//         answered.
// Blocks: as reports and configuration look-ups do.
#pragma once

#include "base/cxx/ubox.h"

#include <span>

extern "C" {

// The event loop's callback: handles one message of the daemon's netlink socket (sta_nl.socket, not the
// watcher's descriptor).
void g_sta_recv_msg(struct uloop_fd *watcher, unsigned int events);
}

// Handles a received message: `received` bytes of `message`, whose size is sta_nl_message_max; the rest
// is zero.
void sta_nl_handle(std::span<const std::uint8_t> message, long received);
