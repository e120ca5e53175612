// queue.h - what a client's socket had no room for.
#ifndef UBUSD_QUEUE_H
#define UBUSD_QUEUE_H

#include "client.h"

namespace ubusd {

// At most so many bytes wait for one client: what would exceed that is dropped, so that a client that does
// not read costs the broker no more. A client for which nothing waits can be sent any message.
inline constexpr std::size_t queue_limit = UBUS_MSG_LIMIT;
inline constexpr std::size_t queued_fds_limit = 16;

// Sends a message, or the rest of it later. `fd` (-1 = none) stays the caller's.
void queue_send(client &to, const ubus_msghdr &hdr, const blob_attr *root, int fd);
// Sends what the socket takes now.
void queue_flush(client &c);
void queue_clear(client &c);

} // namespace ubusd

#endif
