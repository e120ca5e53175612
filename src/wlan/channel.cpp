#include "wlan/channel.h"

#include "protocol/station_event.h"
#include "tools/log.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

sta_nl_channel sta_nl = {-1, -1, 0};

namespace {

constexpr std::uint32_t announcements = 0x8000; // the controller's multicast group
// The kernel's macros for these count in signed numbers.
constexpr std::size_t align(std::size_t length) {
    return (length + NLA_ALIGNTO - 1) / NLA_ALIGNTO * NLA_ALIGNTO;
}
constexpr std::size_t attribute_offset = NLMSG_HDRLEN + GENL_HDRLEN;
constexpr std::size_t attribute_header = sizeof(nlattr);
constexpr std::size_t header_size = attribute_offset + attribute_header;
constexpr int payload_max = 1024; // our longest payload has 12 bytes
static_assert(attribute_offset == 20 && header_size == 24);

constexpr std::uint8_t driver_cmd = 1;
constexpr std::uint8_t driver_version = 1;
constexpr std::uint16_t attribute_register = 1;
constexpr std::uint16_t attribute_notice = 4;

struct attribute {
    std::uint16_t type = 0;
    std::size_t payload = 0; // offset
    std::size_t length = 0;  // bytes of payload that were received
    std::size_t next = 0;    // offset of the next attribute
};

// The attribute at `offset`, as far as it was received; type 0 when its header is incomplete.
attribute attribute_at(const std::uint8_t *message, std::size_t received, std::size_t offset) {
    nlattr header{};
    if (offset > received || received - offset < sizeof(header)) return {};
    std::memcpy(&header, message + offset, sizeof(header));
    const std::size_t payload = offset + attribute_header;
    const std::size_t stated = header.nla_len > attribute_header ? header.nla_len - attribute_header : 0;
    return {header.nla_type, payload, std::min(stated, received - payload),
            offset + align(std::size_t{header.nla_len})};
}

} // namespace

int sta_nl_socket(std::uint32_t *port, int join) {
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);
    if (fd < 0) {
        STA_LOG("open netlink socket failed.");
        return -1;
    }
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = join ? announcements : 0;
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) < 0) {
        STA_LOG("client bind failed.");
        close(fd);
        return -1;
    }
    socklen_t size = sizeof(address);
    if (getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) < 0) {
        STA_LOG("client local failed.");
        close(fd);
        return -1;
    }
    if (port) *port = address.nl_pid;
    return fd;
}

int sta_nl_get_family_id(int socket, const char *name) {
    if (sta_nl_send_msg(socket, GENL_ID_CTRL, 0, CTRL_CMD_GETFAMILY, 1, CTRL_ATTR_FAMILY_NAME, name,
                        static_cast<int>(std::strlen(name) + 1)) != 0)
        return 0;
    std::uint8_t answer[sta_nl_message_max + 1] = {};
    ssize_t got = 0;
    do got = recv(socket, answer, sta_nl_message_max, 0);
    while (got < 0 && errno == EINTR);
    if (sta_nl_is_broken(answer, got)) return 0;
    return sta_nl_family_in(answer, static_cast<std::size_t>(got), name);
}

int sta_nl_send_msg(int socket, int type, std::uint32_t port, std::uint8_t cmd, std::uint8_t version,
                    std::uint16_t attribute, const void *payload, int length) {
    if (type == 0) return 0;
    if (length < 0 || length > payload_max) return -1;
    std::uint8_t message[align(header_size + payload_max + 1)] = {};
    const std::size_t stated = attribute_header + static_cast<std::size_t>(length) + 1;
    const std::size_t total = attribute_offset + align(stated);

    nlmsghdr header{};
    header.nlmsg_len = static_cast<std::uint32_t>(total);
    header.nlmsg_type = static_cast<std::uint16_t>(type);
    header.nlmsg_flags = NLM_F_REQUEST;
    header.nlmsg_pid = port;
    genlmsghdr generic{};
    generic.cmd = cmd;
    generic.version = version;
    nlattr one{};
    one.nla_len = static_cast<std::uint16_t>(stated);
    one.nla_type = attribute;
    std::memcpy(message, &header, sizeof(header));
    std::memcpy(message + NLMSG_HDRLEN, &generic, sizeof(generic));
    std::memcpy(message + attribute_offset, &one, sizeof(one));
    if (payload) std::memcpy(message + header_size, payload, static_cast<std::size_t>(length));

    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    for (std::size_t sent = 0; sent < total;) {
        errno = 0;
        const ssize_t n = sendto(socket, message + sent, total - sent, 0,
                                 reinterpret_cast<const sockaddr *>(&kernel), sizeof(kernel));
        if (n > 0) {
            sent += static_cast<std::size_t>(n);
        } else if (errno != EAGAIN) {
            STA_LOG("send msg to kernel failed.\n");
            return -1;
        }
    }
    return 0;
}

int sta_nl_register(std::int32_t limit) {
    const std::uint32_t payload[3] = {1, sta_nl.port, static_cast<std::uint32_t>(limit)};
    return sta_nl_send_msg(sta_nl.socket, sta_nl.family, sta_nl.port, driver_cmd, driver_version,
                           attribute_register, payload, sizeof(payload));
}

int sta_nl_send_notice() {
    if (sta_nl.socket < 0) return sta_nl.socket;
    if (sta_nl.family < 0) return sta_nl.family;
    if (sta_nl.port == 0) return 0;
    return sta_nl_send_msg(sta_nl.socket, sta_nl.family, sta_nl.port, driver_cmd, driver_version,
                           attribute_notice, nullptr, 0);
}

int sta_nl_family_in(const std::uint8_t *message, std::size_t received, const char *name) noexcept {
    const attribute first = attribute_at(message, received, attribute_offset);
    // A netlink text may lack its NUL; then it ends with its attribute.
    const std::size_t length = std::strlen(name);
    if (first.length < length || std::memcmp(message + first.payload, name, length) != 0) return 0;
    if (first.length > length && message[first.payload + length] != '\0') return 0;
    const attribute second = attribute_at(message, received, first.next);
    std::uint16_t id = 0;
    if (second.type != CTRL_ATTR_FAMILY_ID || second.length < sizeof(id)) return 0;
    std::memcpy(&id, message + second.payload, sizeof(id));
    return id;
}

bool sta_nl_is_broken(const std::uint8_t *message, long received) noexcept {
    if (received < static_cast<long>(NLMSG_HDRLEN)) return true;
    nlmsghdr header;
    std::memcpy(&header, message, sizeof(header));
    return header.nlmsg_type == NLMSG_ERROR || header.nlmsg_len < NLMSG_HDRLEN ||
           header.nlmsg_len > static_cast<std::uint32_t>(received);
}

int sta_nl_open() noexcept {
    sta_nl.socket = sta_nl_socket(&sta_nl.port, 1);
    if (sta_nl.socket < 0) return -1;
    sta_nl.family = sta_nl_get_family_id(sta_nl.socket, station_event_family);
    return 0;
}

bool sta_nl_has_more() noexcept {
    pollfd socket{sta_nl.socket, POLLIN, 0};
    return poll(&socket, 1, 0) > 0 && (socket.revents & POLLIN) != 0;
}

bool sta_nl_is_event(const std::uint8_t *message) noexcept {
    nlmsghdr header;
    std::memcpy(&header, message, sizeof(header));
    return sta_nl.family > 0 && header.nlmsg_type == sta_nl.family &&
           message[NLMSG_HDRLEN] == station_event_cmd;
}

void sta_nl_take_announcement(const std::uint8_t *message, std::size_t received) noexcept {
    nlmsghdr header;
    std::memcpy(&header, message, sizeof(header));
    if (header.nlmsg_type != GENL_ID_CTRL || message[NLMSG_HDRLEN] != CTRL_CMD_NEWFAMILY) return;
    const int family = sta_nl_family_in(message, received, station_event_family);
    if (family == 0) return;
    if (sta_nl.family != family) STA_NOTICE("the driver has announced the family %s\n", station_event_family);
    sta_nl.family = family;
    sta_nl_register(0); // Deliberate: without the station limit, unlike at start
}
