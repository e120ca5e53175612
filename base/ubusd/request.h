// request.h - a message from a client, and the answer to it.
#ifndef UBUSD_REQUEST_H
#define UBUSD_REQUEST_H

#include "client.h"

namespace ubusd {

struct request {
    broker &bus;
    client &from;
    const ubus_msghdr &hdr; // as received
    std::uint16_t seq;
    std::uint32_t peer;
    const blob_attr *body;
    int fd; // received with it; owned by the receive buffer
    blob_attr *attrs[UBUS_ATTR_MAX];

    // Values of attributes that are there.
    std::uint32_t number(ubus_msg_attr id) const { return blob_get_u32(attrs[id]); }
    const char *text(ubus_msg_attr id) const { return blob_get_string(attrs[id]); }
    bool has(ubus_msg_attr id) const { return attrs[id] != nullptr; }
};

// A handler returns the status that ends the request, or this if another client answers it, or nobody.
inline constexpr int no_status = -1;
using handler = int (*)(request &);

// Answers a request with a DATA message.
void reply(const request &req, const blob_attr *root);
void reply_status(client &to, std::uint16_t seq, std::uint32_t peer, int status);

} // namespace ubusd

#endif
