// Intervals: each has a timer descriptor of its own.
#include "uloop_internal.h"

#include <cstdint>
#include <ctime>
#include <sys/timerfd.h>
#include <unistd.h>

namespace {

void count_and_call(uloop_fd *u, unsigned int) {
    uloop_interval *timer = container_of(u, uloop_interval, priv.ufd);
    std::uint64_t periods;
    if (read(u->fd, &periods, sizeof(periods)) != sizeof(periods)) return;
    timer->expirations += periods;
    timer->cb(timer);
}

int arm(int fd, unsigned int msecs) {
    const timespec period = {.tv_sec = static_cast<time_t>(msecs / 1000),
                             .tv_nsec = static_cast<long>(msecs % 1000) * 1000000};
    const itimerspec spec = {.it_interval = period, .it_value = period};
    return timerfd_settime(fd, 0, &spec, nullptr);
}

} // namespace

int uloop_interval_set(uloop_interval *timer, unsigned int msecs) {
    uloop_fd *u = &timer->priv.ufd;
    if (!u->registered) {
        const int fd = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK);
        if (fd < 0) return -1;
        u->fd = fd;
        u->cb = count_and_call;
        if (uloop_fd_add(u, ULOOP_READ) < 0) {
            close(fd);
            return -1;
        }
    }
    return arm(u->fd, msecs);
}

int uloop_interval_cancel(uloop_interval *timer) {
    uloop_fd *u = &timer->priv.ufd;
    if (!u->registered) return -1;
    uloop_fd_delete(u);
    close(u->fd);
    u->fd = -1;
    return 0;
}

std::int64_t uloop_interval_remaining(uloop_interval *timer) {
    const uloop_fd *u = &timer->priv.ufd;
    itimerspec spec;
    if (!u->registered || timerfd_gettime(u->fd, &spec) < 0) return -1;
    return std::int64_t{spec.it_value.tv_sec} * 1000 + spec.it_value.tv_nsec / 1000000;
}
