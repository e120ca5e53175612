#include "listener.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "connection.h"

namespace ubusd {
namespace {

int open_spare() { return open("/dev/null", O_RDONLY | O_CLOEXEC); }

constexpr int retry_ms = 100;

// A client that stays in the listen queue would wake us again and again.
void retry_later(listener &l) {
    uloop_fd_delete(&l.sock);
    uloop_timeout_set(&l.retry, retry_ms);
}

void on_retry(uloop_timeout *timer) { uloop_fd_add(&container_of(timer, listener, retry)->sock, ULOOP_READ); }

// There is no descriptor left for the client: its connection is closed at once.
void turn_away(listener &l) {
    if (l.spare >= 0) close(l.spare);
    const int fd = accept4(l.sock.fd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0)
        close(fd);
    else
        retry_later(l);
    l.spare = open_spare();
}

void on_connect(uloop_fd *sock, unsigned) {
    auto &l = *container_of(sock, listener, sock);
    for (;;) {
        const int fd = accept4(sock->fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd >= 0) {
            client_accept(*l.bus, fd);
        } else if (errno == EMFILE || errno == ENFILE) {
            return turn_away(l);
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
            return;
        } else if (errno != EINTR && errno != ECONNABORTED) {
            return retry_later(l);
        }
    }
}

} // namespace

int listener_open(listener &l, broker &bus, const char *path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (std::strlen(path) >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    std::strcpy(address.sun_path, path);

    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return -1;
    unlink(path);
    const mode_t old_mask = umask(0111);
    const int failed = bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof address);
    umask(old_mask);
    if (failed || listen(fd, SOMAXCONN)) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    l = {};
    l.bus = &bus;
    l.spare = open_spare();
    l.sock.fd = fd;
    l.sock.cb = on_connect;
    l.retry.cb = on_retry;
    return uloop_fd_add(&l.sock, ULOOP_READ);
}

void listener_close(listener &l) {
    uloop_timeout_cancel(&l.retry);
    uloop_fd_delete(&l.sock);
    close(l.sock.fd);
    if (l.spare >= 0) close(l.spare);
}

} // namespace ubusd
