// send.h - sending messages to a client.
#ifndef UBUSD_SEND_H
#define UBUSD_SEND_H

#include "client.h"

namespace ubusd {

// Sends a message and shows it to the monitors. What the socket does not take is queued. A null root, which
// is a message that is too large, is not sent. `fd` goes along (-1 = none) and stays the caller's.
void client_send(client &to, const ubus_msghdr &hdr, const blob_attr *root, int fd = -1);
void client_send(client &to, ubus_msg_type type, std::uint16_t seq, std::uint32_t peer, const blob_attr *root,
                 int fd = -1);
} // namespace ubusd

#endif
