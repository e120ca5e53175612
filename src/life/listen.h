// listen.h - opening the driver's channel at start.
#pragma once

#include "base/cxx/ubox.h"

extern "C" {

extern struct uloop_fd sta_netlink_watcher; // of the channel's socket

// Opens the socket, finds the driver's family, registers with it and watches the socket. A missing family is
// not fatal: the driver announces it when it starts. Returns 0, or -1: no socket, or the registration could not be
// sent (the socket then stays open, unwatched). Logs at level 7.
int sta_netlink_init(void);
}
