#include "apsim/netlink_channel.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <sstream>
#include <sys/socket.h>

namespace {

constexpr std::uint32_t controller_group = 0x8000; // mask of the generic netlink controller's multicast group
constexpr int retry_interval = 1;                  // ms, while a listener's queue is full
constexpr std::size_t queue_max = 100'000;         // messages
constexpr std::size_t events_max = 10'000;         // kept for whoever asks

// Header, generic header, attributes: the netlink layouts are in host order, and the daemon's host is this
// one.
struct message_writer {
    std::vector<std::uint8_t> bytes;

    message_writer(std::uint16_t type, std::uint8_t command, std::uint8_t version) {
        nlmsghdr header{};
        header.nlmsg_type = type;
        append(&header, sizeof(header));
        const genlmsghdr generic{command, version, 0};
        append(&generic, sizeof(generic));
    }
    void append(const void *data, std::size_t size) {
        const auto *first = static_cast<const std::uint8_t *>(data);
        bytes.insert(bytes.end(), first, first + size);
    }
    void attribute(std::uint16_t type, const void *data, std::size_t size) {
        const nlattr header{static_cast<std::uint16_t>(sizeof(nlattr) + size), type};
        append(&header, sizeof(header));
        append(data, size);
        bytes.resize((bytes.size() + 3) & ~std::size_t{3}); // attributes start at multiples of 4
    }
    std::vector<std::uint8_t> finish() {
        const auto length = static_cast<std::uint32_t>(bytes.size());
        std::memcpy(bytes.data(), &length, sizeof(length)); // nlmsg_len is the header's first word
        return std::move(bytes);
    }
};

std::vector<std::uint8_t> announcement(std::uint16_t family) {
    message_writer out(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY, 2);
    out.attribute(CTRL_ATTR_FAMILY_NAME, station_event_family, std::strlen(station_event_family) + 1);
    out.attribute(CTRL_ATTR_FAMILY_ID, &family, sizeof(family));
    return out.finish();
}

} // namespace

netlink_channel::~netlink_channel() {
    if (fd_ >= 0) close(fd_);
}

std::string netlink_channel::open() {
    fd_ = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_GENERIC);
    sockaddr_nl own{};
    own.nl_family = AF_NETLINK;
    socklen_t length = sizeof(own);
    if (fd_ < 0 || bind(fd_, reinterpret_cast<sockaddr *>(&own), sizeof(own)) != 0 ||
        getsockname(fd_, reinterpret_cast<sockaddr *>(&own), &length) != 0)
        return std::string("no netlink socket: ") + std::strerror(errno);
    own_port_ = own.nl_pid;
    return {};
}

std::vector<netlink_channel::listener> netlink_channel::find_listeners() const {
    // sk Eth Pid Groups Rmem Wmem Dump Locks Drops Inode; one heading
    std::vector<listener> found;
    std::ifstream table("/proc/net/netlink");
    for (std::string line; std::getline(table, line);) {
        std::istringstream words(line);
        std::string socket;
        std::string skipped;
        int protocol = -1;
        listener one{};
        std::uint32_t groups = 0;
        words >> socket >> protocol >> one.port >> std::hex >> groups >> std::dec >> skipped >> skipped >>
            skipped >> skipped >> skipped >> one.inode;
        if (words && protocol == NETLINK_GENERIC && (groups & controller_group) && one.port != own_port_)
            found.push_back(one);
    }
    std::ranges::sort(found, {}, &listener::inode);
    return found;
}

void netlink_channel::look() {
    const std::vector<listener> before = std::exchange(listeners_, find_listeners());
    const bool news = std::ranges::any_of(listeners_, [&before](const listener &one) {
        return std::ranges::find(before, one) == before.end();
    });
    if (news && family_ != 0) announce(0, 1);
}

void netlink_channel::announce(std::uint16_t family, int times) {
    if (family != 0) family_ = family;
    for (int i = 0; i < times; ++i) queue({0, announcement(family_)});
}

std::size_t netlink_channel::send(const station_event &event) {
    std::array<std::uint8_t, station_event_size> record{};
    station_event_encode(event, record);
    message_writer out(family_, station_event_cmd, 1);
    out.attribute(1, record.data(), record.size());
    const std::size_t listeners = send(out.finish());
    if (listeners > 0) {
        ++events_sent_;
        told one{event.assoc, {}, event.ifname, event.radio_id, event.is_reassoc};
        std::memcpy(one.mac.bytes, event.mac, sizeof(event.mac));
        events_.push_back(std::move(one));
        if (events_.size() > events_max) events_.pop_front();
    }
    return listeners;
}

std::size_t netlink_channel::send(const std::vector<std::uint8_t> &bytes) {
    look();
    for (const listener &one : listeners_) queue({one.port, bytes});
    return listeners_.size();
}

void netlink_channel::queue(message out) {
    if (queue_.size() >= queue_max) {
        ++lost_;
        return;
    }
    queue_.push_back(std::move(out));
    if (!retry_.running()) send_queued();
}

void netlink_channel::send_queued() {
    while (!queue_.empty()) {
        const message &next = queue_.front();
        sockaddr_nl to{};
        to.nl_family = AF_NETLINK;
        to.nl_pid = next.port;
        to.nl_groups = next.port == 0 ? controller_group : 0;
        const ssize_t done = sendto(fd_, next.bytes.data(), next.bytes.size(), MSG_DONTWAIT,
                                    reinterpret_cast<const sockaddr *>(&to), sizeof(to));
        if (done < 0 && errno == EINTR) continue;
        if (done < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            retry_.start(retry_interval);
            return;
        }
        // ECONNREFUSED: the listener has gone; ESRCH: the group has no member.
        ++(done < 0 && errno != ESRCH ? lost_ : sent_);
        queue_.pop_front();
    }
}

std::vector<std::uint32_t> netlink_channel::ports() const {
    std::vector<std::uint32_t> ports;
    for (const listener &one : listeners_) ports.push_back(one.port);
    return ports;
}
