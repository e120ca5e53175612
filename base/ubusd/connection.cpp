#include "connection.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include "dispatch.h"
#include "lookup.h"
#include "monitor.h"
#include "queue.h"
#include "registry.h"
#include "send.h"

namespace ubusd {
namespace {

using ubus_wire::progress;

void free_credentials(credentials &who) {
    std::free(who.user);
    std::free(who.group);
    std::free(who.groups);
}

// False if the peer has no name; nothing is allocated then.
bool read_credentials(int fd, credentials &who) {
    ucred peer;
    socklen_t len = sizeof peer;
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &len)) return false;
    const passwd *user = getpwuid(peer.uid);
    const group *group = getgrgid(peer.gid);
    if (!user || !group) return false;

    who = {};
    who.uid = peer.uid;
    who.gid = peer.gid;
    who.user = strdup(user->pw_name);
    who.group = strdup(group->gr_name);

    len = 0; // the kernel answers with the size
    if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, nullptr, &len) && errno == ERANGE) {
        who.groups = static_cast<gid_t *>(std::malloc(len));
        if (who.groups && getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, who.groups, &len) == 0)
            who.n_groups = len / sizeof(gid_t);
    }
    if (who.user && who.group) return true;
    free_credentials(who);
    return false;
}

progress read_request(client &c) {
    const progress p = ubus_wire::inbox_read(c.in, c.sock.fd, true);
    if (p == progress::message) {
        monitor_copy(*c.bus, c.number.id, c.in->hdr, &c.in->body, false);
        handle_request(c, c.in->hdr, &c.in->body, c.in->fd);
        ubus_wire::inbox_next(c.in);
    }
    ubus_wire::inbox_rest(c.in);
    return p;
}

bool has_all(const client &c) { return list_empty(&c.queue) && list_empty(&c.lookups); }

// The client sends no more, so its objects are of no use. It may still be reading.
void hang_up(client *c) {
    if (c->sock.error || has_all(*c)) return client_free(c);
    object_remove_all(*c);
    monitor_remove(*c);
    c->deaf = true;
    client_watch(*c);
}

// At most so many messages per turn, so that a client that sends without end does not keep the others waiting.
constexpr int messages_per_turn = 16;

void on_socket(uloop_fd *sock, unsigned events) {
    client *c = container_of(sock, client, sock);
    if (events & ULOOP_WRITE) {
        queue_flush(*c);
        lookup_continue(*c);
        client_watch(*c);
    }
    if (c->deaf) {
        if (sock->error || has_all(*c)) client_free(c);
        return;
    }

    progress p = progress::more;
    if (sock->error || sock->eof) {
        do p = read_request(*c);
        while (p == progress::message);
        if (sock->error) p = progress::closed;
    } else if (events & ULOOP_READ) {
        int left = messages_per_turn;
        do p = read_request(*c);
        while (p == progress::message && c->in && --left > 0 && may_send(*c));
    }
    if (p != progress::message && p != progress::more) hang_up(c);
}

} // namespace

void client_accept(broker &bus, int fd) {
    credentials who;
    if (!read_credentials(fd, who)) {
        close(fd);
        return;
    }
    client *c = client_add(bus, fd, who);
    if (!c) return;
    builder b(bus.out);
    client_send(*c, UBUS_MSG_HELLO, 0, c->number.id, b.root());
}

client *client_add(broker &bus, int fd, const credentials &who) {
    auto *c = static_cast<client *>(std::calloc(1, sizeof(client)));
    if (!c) {
        credentials unused = who;
        free_credentials(unused);
        close(fd);
        return nullptr;
    }
    c->bus = &bus;
    c->who = who;
    c->sock.fd = fd;
    c->sock.cb = on_socket;
    INIT_LIST_HEAD(&c->queue);
    INIT_LIST_HEAD(&c->lookups);
    INIT_LIST_HEAD(&c->objects);
    ids_insert(bus.clients, c->number);
    client_watch(*c);
    if (!c->sock.registered) {
        client_free(c);
        return nullptr;
    }
    return c;
}

void client_free(client *c) {
    c->dead = true;
    uloop_fd_delete(&c->sock);
    close(c->sock.fd);
    object_remove_all(*c);
    monitor_remove(*c);
    lookup_forget_all(*c);
    queue_clear(*c);
    ubus_wire::inbox_free(c->in);
    avl_delete(&c->bus->clients, &c->number.node);
    free_credentials(c->who);
    std::free(c);
}

} // namespace ubusd
