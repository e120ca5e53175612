// listener.h - the socket where clients come in.
#ifndef UBUSD_LISTENER_H
#define UBUSD_LISTENER_H

#include "bus.h"

namespace ubusd {

struct listener {
    uloop_fd sock;
    broker *bus;
    int spare;           // an open descriptor, given up to turn a client away when there are no others left
    uloop_timeout retry; // runs while the system lets no client in
};

// Listens at `path`, in place of whatever is there, for every user. 0 or -1 (errno).
int listener_open(listener &l, broker &bus, const char *path);
void listener_close(listener &l);

} // namespace ubusd

#endif
