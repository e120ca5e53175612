#include "channel/event_channel.h"

#include <algorithm>
#include <cerrno>
#include <linux/netlink.h>
#include <new>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// ms between tries while a listener's queue is full: short at first, since it may only be busy, then longer
constexpr int retry_first = 1;
constexpr int retry_last = 64;
// A listener is gone when so many readings of the table, one right after the other, do not have it.
constexpr int readings_max = 3;

} // namespace

struct event_channel::message {
    message *next;
    std::uint32_t port;
    std::uint32_t size;
    std::uint8_t *bytes() { return reinterpret_cast<std::uint8_t *>(this + 1); }
};

event_channel::event_channel(const settings &how) noexcept : settings_(how), retry_interval_(retry_first) {
    retry_.owner = this;
    retry_.cb = [](uloop_timeout *self) { static_cast<retry_timer *>(self)->owner->send_queued(); };
}

event_channel::~event_channel() {
    uloop_timeout_cancel(&retry_);
    while (first_) std::free(std::exchange(first_, first_->next));
    if (fd_ >= 0) close(fd_);
}

int event_channel::open() noexcept {
    fd_ = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_GENERIC);
    sockaddr_nl own{};
    own.nl_family = AF_NETLINK;
    socklen_t length = sizeof(own);
    if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr *>(&own), sizeof(own)) != 0 ||
        getsockname(fd_, reinterpret_cast<sockaddr *>(&own), &length) != 0)
        return errno;
    own_port_ = own.nl_pid;
    return 0;
}

// The kernel's table is read in pieces. When it is made larger or smaller between two of them, a reading can leave a socket out or
// have it twice; an event would be lost, or sent twice.
bool event_channel::find_listeners(array<netlink_listener> &found) const noexcept {
    const auto has = [&found](const netlink_listener &one) {
        return found.find([&one](const netlink_listener &other) { return other == one; }) != found.end();
    };
    for (int readings = 0; readings < readings_max; ++readings) {
        array<netlink_listener> there;
        if (!settings_.find(own_port_, there)) return false;
        for (const netlink_listener &one : there)
            if (!has(one) && !found.push(one)) return false;
        if (listeners_.find([&has](const known &one) { return !has(one.socket); }) == listeners_.end()) break;
    }
    return true;
}

void event_channel::look() noexcept {
    array<netlink_listener> there;
    if (!find_listeners(there)) return; // the next look tries again
    array<known> now;
    if (!now.reserve(there.size())) return;
    array<netlink_listener> came;
    for (const netlink_listener &one : there) {
        const known *before = listeners_.find([&one](const known &other) { return other.socket == one; });
        const bool is_new = before == listeners_.end();
        const bool wanted =
            is_new ? !settings_.is_wanted || settings_.is_wanted(settings_.owner, one.port) : before->wanted;
        if (is_new && wanted && !came.push(one)) return;
        now.push({one, wanted});
    }
    listeners_ = std::move(now);
    for (const netlink_listener &one : came) {
        if (settings_.family != 0) announce_to(one.port);
        if (settings_.came) settings_.came(settings_.owner, one);
    }
}

void event_channel::announce_to(std::uint32_t port) noexcept {
    std::uint8_t bytes[announcement_size];
    write_announcement(settings_.family, bytes);
    queue(port, bytes);
}

void event_channel::announce(std::uint16_t family, int times) noexcept {
    if (family != 0) settings_.family = family;
    for (int i = 0; i < times; ++i)
        for (const known &one : listeners_)
            if (one.wanted) announce_to(one.socket.port);
}

std::size_t event_channel::send(const station_event &event) noexcept {
    std::uint8_t bytes[event_message_size];
    write_event_message(settings_.family, event, bytes);
    return send(bytes);
}

std::size_t event_channel::send(std::span<const std::uint8_t> bytes) noexcept {
    for (const known &one : listeners_)
        if (one.wanted) queue(one.socket.port, bytes);
    return listeners();
}

void event_channel::send_to(std::uint32_t port, const station_event &event) noexcept {
    std::uint8_t bytes[event_message_size];
    write_event_message(settings_.family, event, bytes);
    queue(port, bytes);
}

void event_channel::queue(std::uint32_t port, std::span<const std::uint8_t> bytes) noexcept {
    if (!first_ && send_now(port, bytes)) return;
    void *memory = queued_ < settings_.queue_max ? std::malloc(sizeof(message) + bytes.size()) : nullptr;
    if (!memory) {
        ++lost_;
        return;
    }
    auto *added = new (memory) message{nullptr, port, static_cast<std::uint32_t>(bytes.size())};
    std::memcpy(added->bytes(), bytes.data(), bytes.size());
    (last_ ? last_->next : first_) = added;
    last_ = added;
    ++queued_;
    if (!retry_.pending) uloop_timeout_set(&retry_, retry_interval_);
}

// False when the listener's own queue is full.
bool event_channel::send_now(std::uint32_t port, std::span<const std::uint8_t> bytes) noexcept {
    sockaddr_nl to{};
    to.nl_family = AF_NETLINK;
    to.nl_pid = port;
    ssize_t done = 0;
    do
        done = sendto(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT, reinterpret_cast<const sockaddr *>(&to),
                      sizeof(to));
    while (done < 0 && errno == EINTR);
    if (done < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return false;
    ++(done < 0 ? lost_ : sent_); // ECONNREFUSED: the listener is gone
    return true;
}

void event_channel::send_queued() noexcept {
    while (first_) {
        if (!send_now(first_->port, {first_->bytes(), first_->size})) {
            uloop_timeout_set(&retry_, retry_interval_);
            retry_interval_ = std::min(2 * retry_interval_, retry_last);
            return;
        }
        retry_interval_ = retry_first;
        message *done = std::exchange(first_, first_->next);
        if (!first_) last_ = nullptr;
        std::free(done);
        --queued_;
    }
}

std::size_t event_channel::listeners() const {
    return static_cast<std::size_t>(
        std::count_if(listeners_.begin(), listeners_.end(), [](const known &one) { return one.wanted; }));
}

std::uint32_t event_channel::port(std::size_t index) const {
    for (const known &one : listeners_)
        if (one.wanted && index-- == 0) return one.socket.port;
    return 0;
}
