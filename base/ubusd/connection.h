// connection.h - accepting clients and freeing them.
#ifndef UBUSD_CONNECTION_H
#define UBUSD_CONNECTION_H

#include "client.h"

namespace ubusd {

// Takes over a connected socket and greets the peer. A peer whose user or group has no name is turned away.
void client_accept(broker &bus, int fd);
// The same for a peer that is known already (`who` is taken over), without the greeting. Null without memory;
// the socket is closed then.
client *client_add(broker &bus, int fd, const credentials &who);
void client_free(client *c);

} // namespace ubusd

#endif
