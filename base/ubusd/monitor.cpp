#include "monitor.h"

#include <cstdlib>

#include "queue.h"

namespace ubusd {
namespace {

struct monitor {
    list_head list;
    client *receiver;
    std::uint16_t seq; // copies sent to it
};

monitor *find(const client &c) {
    monitor *m;
    list_for_each_entry (m, &c.bus->monitors, list) {
        if (m->receiver == &c) return m;
    }
    return nullptr;
}

// A monitor sees messages to others, so the group must be root's as well.
bool may_monitor(const client &c) { return c.who.uid == 0 && c.who.gid == 0; }

} // namespace

int monitor_start(client &c) {
    if (!may_monitor(c)) return UBUS_STATUS_PERMISSION_DENIED;
    if (find(c)) return UBUS_STATUS_OK;
    auto *m = static_cast<monitor *>(std::calloc(1, sizeof(monitor)));
    if (!m) return UBUS_STATUS_NO_MEMORY;
    m->receiver = &c;
    list_add_tail(&m->list, &c.bus->monitors);
    return UBUS_STATUS_OK;
}

int monitor_stop(client &c) {
    if (!may_monitor(c)) return UBUS_STATUS_PERMISSION_DENIED;
    monitor_remove(c);
    return UBUS_STATUS_OK;
}

void monitor_copy(broker &bus, std::uint32_t client, const ubus_msghdr &hdr, const blob_attr *root,
                  bool sent) {
    if (list_empty(&bus.monitors) || hdr.type == UBUS_MSG_MONITOR) return;

    // The message is in the broker's buffer, so its copy needs another one.
    static out_buffer copy;
    const auto make = [&](const blob_attr *content) {
        builder b(copy);
        b.u32(UBUS_MONITOR_CLIENT, client)
            .u32(UBUS_MONITOR_PEER, be32_to_cpu(hdr.peer))
            .u32(UBUS_MONITOR_SEQ, be16_to_cpu(hdr.seq))
            .u32(UBUS_MONITOR_TYPE, hdr.type)
            .u8(UBUS_MONITOR_SEND, sent)
            .content(UBUS_MONITOR_DATA, content);
        return b.root();
    };
    const blob_attr *shown = make(root);
    if (!shown) shown = make(nullptr); // too large with its content
    if (!shown) return;

    monitor *m;
    list_for_each_entry (m, &bus.monitors, list)
        queue_send(*m->receiver, ubus_wire::make_header(UBUS_MSG_MONITOR, ++m->seq, 0), shown, -1);
}

void monitor_remove(client &c) {
    monitor *m = find(c);
    if (!m) return;
    list_del(&m->list);
    std::free(m);
}

} // namespace ubusd
