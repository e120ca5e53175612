// Descriptors: epoll, and the delivery of what it reports, one event at a time.
#include "uloop_internal.h"

#include <cerrno>
#include <cstdint>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

namespace {

constexpr int batch_size = 10;

int epoll_fd = -1;

// Events that were fetched and not yet delivered: batch[batch_next] up to batch[batch_end - 1]. The object of
// an event that must not be delivered any more is null.
struct fetched {
    uloop_fd *fd;
    unsigned int events;
};
fetched batch[batch_size];
int batch_next = 0;
int batch_end = 0;

// The edge-triggered objects whose callbacks are on the stack, innermost first. What a nested run fetches for
// them is kept here until the callback returns.
struct delivery {
    uloop_fd *fd; // null once deleted: it may be freed
    unsigned int kept;
    delivery *outer;
};
delivery *deliveries = nullptr;

void forget_events(const uloop_fd *u) {
    for (int i = batch_next; i < batch_end; ++i)
        if (batch[i].fd == u) batch[i].fd = nullptr;
    for (delivery *d = deliveries; d; d = d->outer)
        if (d->fd == u) d->fd = nullptr;
}

int deregister(uloop_fd *u) {
    if (!u->registered) return 0;
    if (uloop_fd_set_cb) uloop_fd_set_cb(u, 0);
    u->registered = false;
    u->flags = 0;
    return epoll_ctl(epoll_fd, EPOLL_CTL_DEL, u->fd, nullptr);
}

void fetch(int timeout) {
    epoll_event events[batch_size];
    batch_next = batch_end = 0;
    if (epoll_fd < 0) { // timers work without a loop
        poll(nullptr, 0, timeout);
        return;
    }
    const int count = epoll_wait(epoll_fd, events, batch_size, timeout);
    for (int i = 0; i < count; ++i) {
        const unsigned int ready = events[i].events;
        batch[batch_end++] = {static_cast<uloop_fd *>(events[i].data.ptr),
                              (ready & EPOLLIN ? ULOOP_READ : 0u) | (ready & EPOLLOUT ? ULOOP_WRITE : 0u)};
    }
    // The batch is complete before the first object is removed, since removing calls the program (uloop_fd_set_cb).
    for (int i = 0; i < count; ++i) {
        uloop_fd *u = batch[i].fd;
        if (!u) continue;
        if (events[i].events & EPOLLRDHUP) u->eof = true;
        if (!(events[i].events & (EPOLLERR | EPOLLHUP))) continue;
        u->error = true;
        if (!(u->flags & ULOOP_ERROR_CB)) deregister(u);
    }
}

void deliver(uloop_fd *u, unsigned int events) {
    if (!(u->flags & ULOOP_EDGE_TRIGGER)) {
        u->cb(u, events);
        return; // the object may be gone
    }
    delivery current = {u, 0, deliveries};
    deliveries = &current;
    do {
        current.kept = 0;
        u->cb(u, events);
        events = current.kept & ULOOP_EVENT_MASK;
    } while (current.fd && current.kept && u->cb);
    deliveries = current.outer;
}

// Is its callback on the stack? Then the events are kept for it.
bool keep(const uloop_fd *u, unsigned int events) {
    for (delivery *d = deliveries; d; d = d->outer) {
        if (d->fd != u) continue;
        d->kept |= events | ULOOP_EVENT_BUFFERED;
        return true;
    }
    return false;
}

} // namespace

int uloop_poll_open() {
    if (epoll_fd < 0) epoll_fd = epoll_create1(EPOLL_CLOEXEC);
    return epoll_fd < 0 ? -1 : 0;
}

void uloop_poll_close() {
    if (epoll_fd < 0) return;
    close(epoll_fd);
    epoll_fd = -1;
    batch_next = batch_end = 0;
}

void uloop_poll_once(int timeout) {
    if (batch_next == batch_end) fetch(timeout);
    while (batch_next < batch_end) {
        const fetched event = batch[batch_next++];
        if (!event.fd || !event.fd->cb || keep(event.fd, event.events)) continue;
        deliver(event.fd, event.events);
        return;
    }
}

int uloop_fd_add(uloop_fd *sock, unsigned int flags) {
    if (!(flags & ULOOP_EVENT_MASK)) return uloop_fd_delete(sock);

    if (!sock->registered && !(flags & ULOOP_BLOCKING)) {
        const int mode = fcntl(sock->fd, F_GETFL);
        if (mode >= 0 && !(mode & O_NONBLOCK)) fcntl(sock->fd, F_SETFL, mode | O_NONBLOCK);
    }

    epoll_event event = {};
    event.data.ptr = sock;
    if (flags & ULOOP_READ) event.events |= EPOLLIN | EPOLLRDHUP;
    if (flags & ULOOP_WRITE) event.events |= EPOLLOUT;
    if (flags & ULOOP_EDGE_TRIGGER) event.events |= EPOLLET;
    if (epoll_ctl(epoll_fd, sock->registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, sock->fd, &event) < 0)
        return -1;

    if (uloop_fd_set_cb) uloop_fd_set_cb(sock, flags);
    sock->flags = static_cast<std::uint8_t>(flags);
    sock->registered = true;
    sock->eof = false;
    sock->error = false;
    return 0;
}

int uloop_fd_delete(uloop_fd *sock) {
    forget_events(sock);
    return deregister(sock);
}
