#include "send.h"

#include "monitor.h"
#include "queue.h"

namespace ubusd {

void client_send(client &to, const ubus_msghdr &hdr, const blob_attr *root, int fd) {
    if (!root || to.dead) return;
    monitor_copy(*to.bus, to.number.id, hdr, root, true);
    queue_send(to, hdr, root, fd);
}

void client_send(client &to, ubus_msg_type type, std::uint16_t seq, std::uint32_t peer, const blob_attr *root,
                 int fd) {
    client_send(to, ubus_wire::make_header(type, seq, peer), root, fd);
}

} // namespace ubusd
