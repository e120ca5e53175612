#include "dispatch.h"

#include "invoke.h"
#include "lookup.h"
#include "registry.h"
#include "send.h"
#include "subscription.h"

namespace ubusd {
namespace {

int handle_ping(request &req) {
    ubus_msghdr hdr = req.hdr;
    hdr.type = UBUS_MSG_DATA;
    client_send(req.from, hdr, req.body);
    return UBUS_STATUS_OK;
}

int refuse(request &) { return UBUS_STATUS_INVALID_COMMAND; }

// By message type.
constexpr handler handlers[__UBUS_MSG_LAST] = {
    refuse,            // HELLO
    handle_answer,     // STATUS
    handle_answer,     // DATA
    handle_ping,       // PING
    handle_lookup,     // LOOKUP
    handle_invoke,     // INVOKE
    handle_add_object, // ADD_OBJECT
    handle_remove_object,
    handle_subscribe,
    handle_unsubscribe,
    handle_notify,
    refuse, // MONITOR
};

} // namespace

void handle_request(client &from, const ubus_msghdr &hdr, const blob_attr *body, int fd) {
    request req{*from.bus, from, hdr, be16_to_cpu(hdr.seq), be32_to_cpu(hdr.peer), body, fd, {}};
    ubus_wire::parse(body, req.attrs);
    const handler handle = hdr.type < __UBUS_MSG_LAST ? handlers[hdr.type] : refuse;
    const int status = handle(req);
    if (status != no_status) reply_status(from, req.seq, req.peer, status);
}

} // namespace ubusd
