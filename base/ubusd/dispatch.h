// dispatch.h - passing each message to its handler.
#ifndef UBUSD_DISPATCH_H
#define UBUSD_DISPATCH_H

#include "client.h"

namespace ubusd {

// Does what a message asks for and answers it. `fd` (-1 = none) stays the receive buffer's.
void handle_request(client &from, const ubus_msghdr &hdr, const blob_attr *body, int fd);

} // namespace ubusd

#endif
