// monitor.h - clients that get a copy of every message.
#ifndef UBUSD_MONITOR_H
#define UBUSD_MONITOR_H

#include "request.h"

namespace ubusd {

// Methods of the monitor object.
int monitor_start(request &req);
int monitor_stop(request &req);

// Shows a message to all monitors; `client` is where it came from or goes to.
void monitor_copy(broker &bus, std::uint32_t client, const ubus_msghdr &hdr, const blob_attr *root,
                  bool sent);
// Of a client that goes.
void monitor_remove(client &c);

} // namespace ubusd

#endif
