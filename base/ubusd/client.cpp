#include "client.h"

namespace ubusd {

client *client_find(const broker &bus, std::uint32_t id) {
    numbered *found = ids_find(bus.clients, id);
    return container_of_safe(found, client, number);
}

bool is_root(const client &c) { return c.who.uid == 0; }

bool may_have_another(const client &c, std::size_t count) { return is_root(c) || count < records_limit; }

bool may_send(const client &c) { return !c.deaf && c.n_lookups < lookups_limit; }

void client_watch(client &c) {
    uloop_fd_add(&c.sock, (may_send(c) ? ULOOP_READ : 0u) | (list_empty(&c.queue) ? 0u : ULOOP_WRITE));
}

} // namespace ubusd
