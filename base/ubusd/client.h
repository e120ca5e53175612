// client.h - one connection: its peer, its receive buffer, and the messages that wait to be sent.
#ifndef UBUSD_CLIENT_H
#define UBUSD_CLIENT_H

#include <sys/types.h>

#include "bus.h"
#include "ids.h"

namespace ubusd {

// Who is at the other end of a connection, as the kernel says.
struct credentials {
    uid_t uid;
    gid_t gid;
    char *user;    // name of uid
    char *group;   // name of gid, the primary group
    gid_t *groups; // supplementary
    std::size_t n_groups;
};

struct client {
    numbered number;
    broker *bus;
    uloop_fd sock;
    credentials who;
    ubus_wire::inbox *in;

    list_head queue;    // messages that the socket has no room for; see queue.h
    std::size_t queued; // bytes of them that are left to send
    std::size_t n_fds;  // descriptors among them

    list_head lookups; // listings in progress; see lookup.h
    std::size_t n_lookups;

    list_head objects; // newest first
    std::size_t n_objects, n_patterns, n_subscriptions;
    std::size_t type_bytes; // of the types of its objects, each counted once; not counted for root
    bool deaf;              // it sends no more; it is freed once it has received what waits for it
    bool dead;              // being freed
};

// What the broker keeps for a client that is not root: objects, patterns and subscriptions, each.
inline constexpr std::size_t records_limit = 4096;
// The same: bytes of the types of its objects, together.
inline constexpr std::size_t type_bytes_limit = 1 << 20;
// A client with so many listings in progress is not read from until it has taken some.
inline constexpr std::size_t lookups_limit = 64;

client *client_find(const broker &bus, std::uint32_t id);
bool is_root(const client &c);
// May a client that has `count` records of a kind have one more?
bool may_have_another(const client &c, std::size_t count);
// It still sends, and the broker accepts more from it now.
bool may_send(const client &c);
// Watches the socket for what the client waits for now.
void client_watch(client &c);

} // namespace ubusd

#endif
