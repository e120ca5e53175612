#include "request.h"

#include "send.h"

namespace ubusd {

void reply(const request &req, const blob_attr *root) {
    client_send(req.from, UBUS_MSG_DATA, req.seq, req.peer, root);
}

void reply_status(client &to, std::uint16_t seq, std::uint32_t peer, int status) {
    builder b(to.bus->out);
    b.u32(UBUS_ATTR_STATUS, static_cast<std::uint32_t>(status));
    client_send(to, UBUS_MSG_STATUS, seq, peer, b.root());
}

} // namespace ubusd
