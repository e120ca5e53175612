// queue.h - messages that a client's socket had no room for.
#ifndef UBUSD_QUEUE_H
#define UBUSD_QUEUE_H

#include "client.h"

namespace ubusd {

// At most so many bytes wait for one client; a message that would exceed this is dropped, which limits the cost of a client
// that does not read. If nothing waits for a client, a message of any size is sent.
inline constexpr std::size_t queue_limit = UBUS_MSG_LIMIT;
inline constexpr std::size_t queued_fds_limit = 16;

// Sends a message, or the rest of it later. `fd` (-1 = none) stays the caller's.
void queue_send(client &to, const ubus_msghdr &hdr, const blob_attr *root, int fd);
// Sends what the socket takes now.
void queue_flush(client &c);
void queue_clear(client &c);

} // namespace ubusd

#endif
