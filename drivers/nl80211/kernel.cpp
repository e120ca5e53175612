#include "nl80211/kernel.h"

#include <algorithm>
#include <cerrno>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/genl/ctrl.h>
#include <netlink/genl/genl.h>
#include <netlink/msg.h>
#include <netlink/netlink.h>
#include <netlink/socket.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int buffer_size = 2 << 20;         // of the listening socket: some 500 removals
constexpr std::size_t message_max = 1 << 15; // the kernel makes the parts of a list this large
constexpr int patience_seconds = 5;          // for a kernel that is busy with its radios

// The bytes of a received datagram. Only one is read at a time.
alignas(nlmsghdr) std::uint8_t buffer[message_max];

// Calls `each` with every netlink message in the first `size` bytes; stops when it returns false.
template <class Each> void for_each_message(const std::uint8_t *bytes, std::size_t size, Each each) {
    while (size >= sizeof(nlmsghdr)) {
        nlmsghdr header;
        std::memcpy(&header, bytes, sizeof(header));
        if (header.nlmsg_len < sizeof(header) || header.nlmsg_len > size) return;
        if (!each(header, std::span(bytes + sizeof(header), header.nlmsg_len - sizeof(header)))) return;
        const std::size_t step = std::min<std::size_t>((header.nlmsg_len + 3U) & ~3U, size);
        bytes += step;
        size -= step;
    }
}

} // namespace

bool kernel::open() noexcept {
    if (asker_) return true;
    listener_ = nl_socket_alloc();
    asker_ = nl_socket_alloc();
    if (!listener_ || !asker_ || genl_connect(listener_) != 0 || genl_connect(asker_) != 0) {
        close();
        return false;
    }
    family_ = genl_ctrl_resolve(asker_, NL80211_GENL_NAME);
    // The first list is taken after this, so no event in between is missed.
    if (family_ < 0 || !listen_to("mlme") || !listen_to("config")) {
        close();
        return false;
    }
    const int fd = nl_socket_get_fd(listener_);
    if (setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &buffer_size, sizeof(buffer_size)) != 0)
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &buffer_size,
                   sizeof(buffer_size)); // the kernel may limit it
    const timeval patience{patience_seconds, 0};
    setsockopt(nl_socket_get_fd(asker_), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    watch_.fd = fd;
    watch_.owner = this;
    watch_.cb = [](uloop_fd *self, unsigned) { static_cast<watch *>(self)->owner->listen(); };
    if (uloop_fd_add(&watch_, ULOOP_READ | ULOOP_ERROR_CB) != 0) {
        close();
        return false;
    }
    return true;
}

void kernel::close() noexcept {
    if (watch_.registered) uloop_fd_delete(&watch_);
    if (listener_) nl_socket_free(listener_);
    if (asker_) nl_socket_free(asker_);
    listener_ = asker_ = nullptr;
    family_ = -1;
}

bool kernel::listen_to(const char *group) noexcept {
    const int number = genl_ctrl_resolve_grp(asker_, NL80211_GENL_NAME, group);
    return number >= 0 && nl_socket_add_membership(listener_, number) == 0;
}

void kernel::listen() noexcept {
    for (;;) {
        const ssize_t got = recv(watch_.fd, buffer, sizeof(buffer), MSG_DONTWAIT);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0 && errno == ENOBUFS) {
            told_.overrun(told_.owner);
            continue;
        }
        if (got <= 0) return;
        for_each_message(buffer, static_cast<std::size_t>(got), [this](const nlmsghdr &header, auto content) {
            kernel_message message;
            if (header.nlmsg_type != family_ || !kernel_message_decode(content, message)) return true;
            // The handler may ask the kernel, and the answer overwrites the buffer, so the frame is copied.
            std::uint8_t frame[2400];
            const std::size_t size = std::min(message.frame.size(), sizeof(frame));
            std::copy_n(message.frame.data(), size, frame); // most have none
            message.frame = {frame, size};
            told_.heard(told_.owner, message);
            return asker_ != nullptr;
        });
        if (!asker_) return;
    }
}

int kernel::ask(const question &what, answer to, void *context) noexcept {
    if (!asker_) return -ENOENT;
    nl_msg *message = nlmsg_alloc();
    if (!message) return -ENOMEM;
    bool whole = genlmsg_put(message, NL_AUTO_PORT, NL_AUTO_SEQ, family_, 0, what.all ? NLM_F_DUMP : 0,
                             what.command, 0);
    if (whole && what.ifindex != 0) whole = nla_put_u32(message, NL80211_ATTR_IFINDEX, what.ifindex) == 0;
    if (whole && what.mac)
        whole = nla_put(message, NL80211_ATTR_MAC, sizeof(what.mac->bytes), what.mac->bytes) == 0;
    const int sent = whole ? nl_send_auto_complete(asker_, message) : -1;
    const std::uint32_t number = nlmsg_hdr(message)->nlmsg_seq;
    nlmsg_free(message);
    if (sent < 0) return -EIO;

    // Not the listener's buffer: its messages may still be in use.
    alignas(nlmsghdr) static std::uint8_t answers[message_max];
    int result = 0;
    for (bool done = false; !done;) {
        const ssize_t got = recv(nl_socket_get_fd(asker_), answers, sizeof(answers), 0);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return -errno;
        for_each_message(answers, static_cast<std::size_t>(got), [&](const nlmsghdr &header, auto content) {
            if (header.nlmsg_seq != number) return true; // late answer to a request that was given up
            if (header.nlmsg_type == NLMSG_DONE || header.nlmsg_type == NLMSG_ERROR) {
                if (content.size() >= sizeof(result)) std::memcpy(&result, content.data(), sizeof(result));
                done = true;
                return false;
            }
            kernel_message decoded;
            if (to && header.nlmsg_type == family_ && kernel_message_decode(content, decoded))
                to(context, decoded);
            return true;
        });
    }
    return result;
}

int kernel::interfaces(answer to, void *context) noexcept {
    return ask({NL80211_CMD_GET_INTERFACE, true, 0, nullptr}, to, context);
}

int kernel::interface(std::uint32_t ifindex, answer to, void *context) noexcept {
    return ask({NL80211_CMD_GET_INTERFACE, false, ifindex, nullptr}, to, context);
}

int kernel::stations(std::uint32_t ifindex, answer to, void *context) noexcept {
    return ask({NL80211_CMD_GET_STATION, true, ifindex, nullptr}, to, context);
}

int kernel::station(std::uint32_t ifindex, const mac_address &mac, answer to, void *context) noexcept {
    return ask({NL80211_CMD_GET_STATION, false, ifindex, &mac}, to, context);
}

int kernel::survey(std::uint32_t ifindex, answer to, void *context) noexcept {
    return ask({NL80211_CMD_GET_SURVEY, true, ifindex, nullptr}, to, context);
}

int kernel::remove_station(std::uint32_t ifindex, const mac_address &mac) noexcept {
    return ask({NL80211_CMD_DEL_STATION, false, ifindex, &mac}, nullptr, nullptr);
}
