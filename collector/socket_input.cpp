#include "collector/socket_input.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr std::size_t most_peers = 512; // at once

std::string failed(const std::string &what, const std::string &path) {
    return what + " " + path + ": " + std::strerror(errno);
}

sockaddr_un address_of(const std::string &path) { // `path` fits
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    return address;
}

// True when a process accepts connections at `path`.
bool in_use(const std::string &path) {
    const sockaddr_un address = address_of(path);
    const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (probe < 0) return false;
    const bool connected =
        connect(probe, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0 || errno == EAGAIN;
    close(probe);
    return connected;
}

bool watch(int poll, int fd) {
    epoll_event wanted{};
    wanted.events = EPOLLIN;
    wanted.data.fd = fd;
    return epoll_ctl(poll, EPOLL_CTL_ADD, fd, &wanted) == 0;
}

// The socket that the service manager has opened for us, -1: none.
int handed_over() {
    constexpr int first = 3;
    const char *pid = std::getenv("LISTEN_PID"), *count = std::getenv("LISTEN_FDS");
    if (!pid || !count || pid != std::to_string(getpid()) || std::string_view(count) != "1") return -1;
    const int flags = fcntl(first, F_GETFL);
    const bool usable = flags >= 0 && fcntl(first, F_SETFD, FD_CLOEXEC) == 0 &&
                        fcntl(first, F_SETFL, flags | O_NONBLOCK) == 0;
    return usable ? first : -1;
}

} // namespace

socket_input::~socket_input() {
    for (const peer &each : peers_) close(each.fd);
    if (poll_ >= 0) close(poll_);
    if (listener_ < 0) return;
    close(listener_);
    if (!path_.empty()) unlink(path_.c_str());
}

// lab/common/stream_server opens a socket likewise; the collector is installed without the lab and so does not use it.
std::string socket_input::listen(const std::string &path) {
    if (listener_ = handed_over(); listener_ >= 0) return watch_listener("the socket that was handed over");
    if (path.empty() || path.size() >= sizeof(sockaddr_un::sun_path))
        return path + ": not a path for a socket";
    struct stat there {};
    if (lstat(path.c_str(), &there) == 0) {
        if (!S_ISSOCK(there.st_mode)) return path + ": not a socket";
        if (in_use(path)) return path + ": somebody listens there already";
        unlink(path.c_str());
    }
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return failed("cannot make a socket for", path);
    const sockaddr_un address = address_of(path);
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        ::listen(fd, SOMAXCONN) != 0) {
        std::string why = failed("cannot listen at", path);
        close(fd);
        return why;
    }
    listener_ = fd;
    path_ = path;
    return watch_listener(path);
}

std::string socket_input::watch_listener(const std::string &path) {
    poll_ = epoll_create1(EPOLL_CLOEXEC);
    return poll_ >= 0 && watch(poll_, listener_) ? std::string() : failed("cannot watch", path);
}

bool socket_input::serve(int milliseconds, int also) {
    pollfd wanted[] = {{poll_, POLLIN, 0}, {also, POLLIN, 0}};
    if (poll(wanted, 2, milliseconds) < 0 && errno != EINTR) return false;
    if (wanted[0].revents != 0) drain();
    return true;
}

void socket_input::drain() {
    for (bool more = true; more;) {
        more = accept_some();
        receive_all();
        // When there are too few places, the peer that has been connected longest is dropped.
        while (more && peers_.size() >= most_peers / 2) {
            close(peers_.front().fd);
            peers_.pop_front();
        }
    }
}

// True when more may be waiting.
bool socket_input::accept_some() {
    while (peers_.size() < most_peers) {
        const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0 && (errno == EINTR || errno == ECONNABORTED)) continue;
        if (fd < 0 && (errno == EMFILE || errno == ENFILE) && !peers_.empty()) {
            receive_all();
            if (peers_.empty()) return true;
            close(peers_.front().fd);
            peers_.pop_front();
            continue;
        }
        if (fd < 0) return false;
        watch(poll_, fd);
        peers_.push_back({fd, {}});
    }
    return true;
}

void socket_input::receive_all() {
    for (auto at = peers_.begin(); at != peers_.end();) {
        const auto current = at++;
        if (!receive(*current)) continue;
        close(current->fd);
        std::string message = std::move(current->in);
        peers_.erase(current);
        if (!message.empty()) take_(std::move(message));
    }
}

// True at the end of the message.
bool socket_input::receive(peer &from) const {
    char chunk[4096];
    while (from.in.size() <= station_report_size) {
        const ssize_t got = recv(from.fd, chunk, sizeof(chunk), 0);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return false;
        if (got <= 0) return true;
        from.in.append(chunk, static_cast<std::size_t>(got));
    }
    return true; // longer than any report: the rest is not needed
}
