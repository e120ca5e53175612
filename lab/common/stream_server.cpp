#include "common/stream_server.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

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

constexpr std::size_t most_at_once = 1 << 20; // bytes of one peer before the others have their turn

} // namespace

stream_server::~stream_server() {
    watch_.reset();
    for (peer &each : peers_) {
        each.watch.reset();
        close(each.fd);
    }
    if (listener_ < 0) return;
    close(listener_);
    unlink(path_.c_str());
}

std::string stream_server::listen(const std::string &path) {
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
    watch_.emplace(fd, [this] { accept_all(); });
    return watch_->watch(ULOOP_READ) ? std::string() : failed("cannot watch", path);
}

void stream_server::drain() {
    accept_all();
    serve_up_to(nullptr);
}

void stream_server::accept_all() {
    for (;;) {
        const int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0 && errno == EINTR) continue;
        if (fd < 0) break; // none left; with too many open files the next round tries again
        peer *added = &peers_.emplace_back(fd);
        added->watch.emplace(fd, [this, added] { serve_up_to(added); });
        added->watch->watch(ULOOP_READ);
    }
    serve_up_to(nullptr); // most senders have written and closed by now
}

// Serves all peers up to and including `last`, oldest first; all of them for null.
void stream_server::serve_up_to(const peer *last) {
    for (auto at = peers_.begin(); at != peers_.end();) {
        const auto current = at++;
        const bool done = &*current == last;
        serve(current);
        if (done) break;
    }
}

// True when there is something new for the handler.
bool stream_server::receive(peer &from) {
    const std::size_t before = from.in.size();
    const bool ended_before = from.ended;
    char chunk[65536];
    while (!from.ended && from.in.size() - before < most_at_once) {
        const ssize_t got = recv(from.fd, chunk, sizeof(chunk), 0);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
        if (got <= 0)
            from.ended = true;
        else
            from.in.append(chunk, static_cast<std::size_t>(got));
    }
    return from.in.size() != before || from.ended != ended_before;
}

void stream_server::serve(peers::iterator at) {
    peer &served = *at;
    if (receive(served)) handle_(served);
    while (!served.out.empty()) {
        const ssize_t sent = send(served.fd, served.out.data(), served.out.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            served.watch->watch(served.ended ? ULOOP_WRITE : ULOOP_READ | ULOOP_WRITE);
            return;
        }
        if (sent < 0) { // the peer is gone: the rest cannot be sent
            served.out.clear();
            served.close = true;
            break;
        }
        served.out.erase(0, static_cast<std::size_t>(sent));
    }
    if (served.ended || served.close) {
        served.watch.reset();
        ::close(served.fd);
        peers_.erase(at);
    } else {
        served.watch->watch(ULOOP_READ);
    }
}
