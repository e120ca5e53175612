// monitor.h - clients that get a copy of every message.
#ifndef UBUSD_MONITOR_H
#define UBUSD_MONITOR_H

#include "client.h"

namespace ubusd {

// Methods of the monitor object: start and stop copying to the caller. They return a status.
int monitor_start(client &c);
int monitor_stop(client &c);

// Shows a message to all monitors; `client` is where it came from or goes to.
void monitor_copy(broker &bus, std::uint32_t client, const ubus_msghdr &hdr, const blob_attr *root,
                  bool sent);
// For a client that is being freed.
void monitor_remove(client &c);

} // namespace ubusd

#endif
