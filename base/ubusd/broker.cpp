#include "broker.h"

#include <libubox/avl-cmp.h>

#include "acl.h"
#include "connection.h"
#include "event.h"

namespace ubusd {

void broker_init(broker &bus, const char *rule_dir) {
    bus = {};
    ids_init(bus.clients);
    ids_init(bus.objects);
    ids_init(bus.types);
    avl_init(&bus.paths, avl_strcmp, false, nullptr);
    event_init(bus);
    INIT_LIST_HEAD(&bus.monitors);
    INIT_LIST_HEAD(&bus.rules);
    bus.rule_dir = rule_dir;
}

void broker_done(broker &bus) {
    while (!avl_is_empty(&bus.clients)) {
        numbered *first = container_of(bus.clients.list_head.next, numbered, node.list);
        client_free(container_of(first, client, number));
    }
    acl_forget(bus);
    blob_buf_free(&bus.out.buf);
    ubus_wire::inbox_forget_spare();
}

} // namespace ubusd
