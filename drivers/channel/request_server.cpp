#include "channel/request_server.h"

#include <cerrno>
#include <cstdlib>
#include <new>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr std::size_t peers_waiting_max = SOMAXCONN;

sockaddr_un address_of(const char *path) { // `path` fits
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, std::strlen(path));
    return address;
}

// True when a process accepts connections there.
bool in_use(const sockaddr_un &address) {
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0) return false;
    const bool connected =
        connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0 || errno == EAGAIN;
    close(probe);
    return connected;
}

} // namespace

// A connection: it receives the header, then the buffer, and sends the answer's header and the buffer.
struct request_server::peer : uloop_fd {
    request_server *owner;
    peer *next;
    std::uint8_t header[was_request_header];
    std::uint8_t *bytes; // the answer's header, then the buffer
    std::size_t size;    // of the buffer
    std::size_t done;    // bytes received, later sent
    std::size_t to_send; // 0 while receiving

    bool receive() noexcept;
    bool send_rest() noexcept;
};

request_server::~request_server() {
    while (peers_) forget(peers_);
    if (!listening_) return;
    uloop_fd_delete(&listener_);
    close(listener_.fd);
    unlink(path_);
}

int request_server::listen(const char *path) noexcept {
    static_assert(sizeof(path_) == sizeof(sockaddr_un::sun_path));
    if (path[0] == '\0' || std::strlen(path) >= sizeof(path_)) return ENAMETOOLONG;
    const sockaddr_un address = address_of(path);
    struct stat there {};
    if (lstat(path, &there) == 0) {
        if (!S_ISSOCK(there.st_mode)) return ENOTSOCK;
        if (in_use(address)) return EADDRINUSE;
        unlink(path);
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return errno;
    listener_.fd = fd;
    listener_.owner = this;
    listener_.cb = [](uloop_fd *self, unsigned) { static_cast<listener_watch *>(self)->owner->accept_all(); };
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        chmod(path, 0660) != 0 || ::listen(fd, static_cast<int>(peers_waiting_max)) != 0 ||
        uloop_fd_add(&listener_, ULOOP_READ) != 0) {
        const int error = errno;
        close(fd);
        return error;
    }
    std::memcpy(path_, path, std::strlen(path) + 1);
    listening_ = true;
    return 0;
}

void request_server::accept_all() noexcept {
    for (;;) {
        const int fd = accept4(listener_.fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0 && errno == EINTR) continue;
        if (fd < 0) return; // none left; with too many open files the next round tries again
        void *memory = std::calloc(1, sizeof(peer));
        if (!memory) {
            close(fd);
            continue;
        }
        auto *added = new (memory) peer{};
        added->fd = fd;
        added->cb = [](uloop_fd *self, unsigned) {
            auto *ready = static_cast<peer *>(self);
            ready->owner->serve(ready);
        };
        added->owner = this;
        added->next = peers_;
        peers_ = added;
        serve(added); // most peers have written already
    }
}

void request_server::forget(peer *gone) noexcept {
    for (peer **at = &peers_; *at; at = &(*at)->next) {
        if (*at != gone) continue;
        *at = gone->next;
        break;
    }
    uloop_fd_delete(gone);
    close(gone->fd);
    std::free(gone->bytes);
    std::free(gone);
}

// Receives what is there. False at the end: the peer has closed the connection, or has asked for too much.
bool request_server::peer::receive() noexcept {
    for (;;) {
        const bool in_header = done < was_request_header;
        if (!in_header && !bytes) {
            size = wire::get<std::uint32_t>(header + was_request_size);
            if (size > was_size_max) return false;
            bytes = static_cast<std::uint8_t *>(std::malloc(was_answer_header + size));
            if (!bytes) return false;
        }
        const std::size_t in_buffer = in_header ? 0 : done - was_request_header;
        std::uint8_t *place = in_header ? header + done : bytes + was_answer_header + in_buffer;
        const std::size_t missing = in_header ? was_request_header - done : size - in_buffer;
        if (missing == 0) return true;
        const ssize_t got = recv(fd, place, missing, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return true;
        if (got <= 0) return false;
        done += static_cast<std::size_t>(got);
    }
}

// True while bytes are left to send and the peer is there.
bool request_server::peer::send_rest() noexcept {
    while (done < to_send) {
        const ssize_t sent = send(fd, bytes + done, to_send - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0) return errno == EAGAIN || errno == EWOULDBLOCK;
        done += static_cast<std::size_t>(sent);
    }
    return false;
}

void request_server::serve(peer *served) noexcept {
    if (served->to_send == 0) {
        if (!served->receive()) {
            forget(served);
            return;
        }
        if (!served->bytes || served->done < was_request_header + served->size) {
            uloop_fd_add(served, ULOOP_READ);
            return;
        }
        was_question question{wire::get<std::int32_t>(served->header + was_request_cmd),
                              wire::get<std::int32_t>(served->header + was_request_arg),
                              {},
                              served->bytes + was_answer_header,
                              served->size};
        wire::get_text(question.ifname, served->header + was_request_ifname);
        const std::int32_t result = answer_(owner_, question);
        const std::size_t answered = result == 0 ? served->size : 0;
        wire::put<std::int32_t>(served->bytes + was_answer_result, result);
        wire::put<std::uint32_t>(served->bytes + was_answer_size, static_cast<std::uint32_t>(answered));
        served->done = 0;
        served->to_send = was_answer_header + answered;
    }
    if (served->send_rest())
        uloop_fd_add(served, ULOOP_WRITE);
    else
        forget(served);
}
