// client.h - one connection: who is at the other end, what comes from it, what waits to be sent to it.
#ifndef UBUSD_CLIENT_H
#define UBUSD_CLIENT_H

#include <sys/types.h>

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
    bool deaf;              // it sends no more; it gets what waits for it, then it goes
    bool dead;              // being freed
};

// What the broker keeps for a client that is not root: objects, patterns and subscriptions, each.
inline constexpr std::size_t records_limit = 4096;
// The same: bytes of the types of its objects, together.
inline constexpr std::size_t type_bytes_limit = 1 << 20;

// Takes over a connected socket and greets the peer. A peer whose user or group has no name is turned away.
void client_accept(broker &bus, int fd);
// The same for a peer that is known already (`who` is taken over), without the greeting. Null without memory;
// the socket is closed then.
client *client_add(broker &bus, int fd, const credentials &who);
void client_free(client *c);

client *client_find(const broker &bus, std::uint32_t id);
bool is_root(const client &c);
// May a client that has `count` records of a kind have one more?
bool may_have_another(const client &c, std::size_t count);

// Sends a message and shows it to the monitors. What the socket does not take is queued. A null root, which
// is a message that is too large, is not sent. `fd` goes along (-1 = none) and stays the caller's.
void client_send(client &to, const ubus_msghdr &hdr, const blob_attr *root, int fd = -1);
void client_send(client &to, ubus_msg_type type, std::uint16_t seq, std::uint32_t peer, const blob_attr *root,
                 int fd = -1);
// Watches the socket for what the client waits for now.
void client_watch(client &c);

} // namespace ubusd

#endif
