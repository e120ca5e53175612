// listener.h - the socket that clients connect to.
#ifndef UBUSD_LISTENER_H
#define UBUSD_LISTENER_H

#include "bus.h"

namespace ubusd {

struct listener {
    uloop_fd sock;
    broker *bus;
    int spare;           // an open descriptor, closed to refuse a client when there are no others left
    uloop_timeout retry; // runs while accepting fails
};

// Listens at `path`, replacing any file there, for every user. 0 or -1 (errno).
int listener_open(listener &l, broker &bus, const char *path);
void listener_close(listener &l);

} // namespace ubusd

#endif
