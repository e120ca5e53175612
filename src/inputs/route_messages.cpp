#include "inputs/route_messages.h"

#include <algorithm>
#include <cstring>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace {

using bytes = std::span<const std::uint8_t>;

constexpr std::uint32_t ticks_in_a_second = 100; // USER_HZ: the kernel's unit for times

constexpr std::size_t aligned(std::size_t length) { return (length + 3) / 4 * 4; } // as netlink does

// Takes the fixed structure at the beginning of `from`. False when `from` is too short.
template <class Header> bool take(bytes &from, Header &header) {
    if (from.size() < sizeof(header)) return false;
    std::memcpy(&header, from.data(), sizeof(header));
    from = from.subspan(std::min(aligned(sizeof(header)), from.size()));
    return true;
}

// Calls `visit` with the type and the value of each attribute. False when one is malformed.
template <class Visit> bool for_each_attribute(bytes attributes, Visit visit) {
    while (attributes.size() >= sizeof(rtattr)) {
        rtattr header{};
        std::memcpy(&header, attributes.data(), sizeof(header));
        if (header.rta_len < sizeof(header) || header.rta_len > attributes.size()) return false;
        visit(header.rta_type, attributes.subspan(sizeof(header), header.rta_len - sizeof(header)));
        attributes = attributes.subspan(std::min(aligned(header.rta_len), attributes.size()));
    }
    return true;
}

// The attribute's value as a number; 0 when it is too short.
template <class Number> Number number_of(bytes value) {
    Number number = 0;
    if (value.size() >= sizeof(number)) std::memcpy(&number, value.data(), sizeof(number));
    return number;
}

route_kind read_link(bytes payload, bool gone, route_link &link) {
    ifinfomsg header{};
    if (!take(payload, header)) return route_kind::broken;
    link = {};
    link.index = header.ifi_index;
    bool elsewhere = false, partial = false;
    const bool whole = for_each_attribute(payload, [&](unsigned type, bytes value) {
        switch (type) {
        case IFLA_IFNAME:
            std::memcpy(link.name, value.data(), std::min(value.size(), sizeof(link.name) - 1));
            break;
        case IFLA_MASTER: link.master = number_of<std::int32_t>(value); break;
        case IFLA_LINK: link.lower = number_of<std::int32_t>(value); break;
        case IFLA_LINK_NETNSID: elsewhere = true; break;
        case IFLA_WIRELESS: partial = true; break; // a wireless event: it has nothing else
        default: break;
        }
    });
    if (!whole) return route_kind::broken;
    // A bridge sends messages about its ports as well. A port that leaves the bridge is not an interface that is gone.
    if (header.ifi_family != AF_UNSPEC || partial) return route_kind::nothing;
    if (elsewhere) link.lower = 0;
    return gone ? route_kind::link_gone : route_kind::link;
}

route_kind read_neighbour(bytes payload, route_neighbour &neighbour) {
    ndmsg header{};
    if (!take(payload, header)) return route_kind::broken;
    neighbour = {};
    neighbour.index = header.ndm_ifindex;
    neighbour.state = header.ndm_state;
    neighbour.is_ipv6 = header.ndm_family == AF_INET6;
    const std::size_t wanted = neighbour.is_ipv6 ? 16 : 4;
    bool has_address = false;
    const bool whole = for_each_attribute(payload, [&](unsigned type, bytes value) {
        if (type == NDA_DST && value.size() == wanted) {
            std::memcpy(neighbour.address, value.data(), wanted);
            has_address = true;
        } else if (type == NDA_LLADDR && value.size() == sizeof(neighbour.mac)) {
            std::memcpy(neighbour.mac, value.data(), sizeof(neighbour.mac));
            neighbour.has_mac = true;
        } else if (type == NDA_CACHEINFO) {
            nda_cacheinfo times{};
            if (!take(value, times)) return;
            neighbour.confirmed_ago = times.ndm_confirmed / ticks_in_a_second;
            neighbour.updated_ago = times.ndm_updated / ticks_in_a_second;
        }
    });
    if (!whole) return route_kind::broken;
    if (header.ndm_family != AF_INET && header.ndm_family != AF_INET6)
        return route_kind::nothing; // an entry that a bridge has learned
    return has_address ? route_kind::neighbour : route_kind::broken;
}

// A request for all objects of one kind.
template <class Header>
std::size_t put_request(std::uint16_t type, std::uint32_t sequence,
                        std::uint8_t (&request)[route_request_size_max]) {
    nlmsghdr header{};
    header.nlmsg_len = NLMSG_HDRLEN + sizeof(Header);
    header.nlmsg_type = type;
    header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    header.nlmsg_seq = sequence;
    std::memset(request, 0, sizeof(request));
    std::memcpy(request, &header, sizeof(header));
    static_assert(NLMSG_HDRLEN + sizeof(Header) <= sizeof(request));
    return header.nlmsg_len;
}

} // namespace

bool route_message_next(std::span<const std::uint8_t> &datagram, route_message &message) noexcept {
    if (datagram.empty()) return false;
    nlmsghdr header{};
    if (datagram.size() >= sizeof(header)) std::memcpy(&header, datagram.data(), sizeof(header));
    if (header.nlmsg_len < sizeof(header) || header.nlmsg_len > datagram.size()) {
        message.kind = route_kind::broken;
        datagram = {};
        return true;
    }
    const bytes payload = datagram.subspan(sizeof(header), header.nlmsg_len - sizeof(header));
    datagram = datagram.subspan(std::min(aligned(header.nlmsg_len), datagram.size()));
    message.sequence = header.nlmsg_seq;
    switch (header.nlmsg_type) {
    case NLMSG_DONE: message.kind = route_kind::done; break;
    case NLMSG_ERROR: message.kind = route_kind::refused; break;
    case RTM_NEWLINK:
    case RTM_DELLINK:
        message.kind = read_link(payload, header.nlmsg_type == RTM_DELLINK, message.link);
        break;
    case RTM_NEWNEIGH: message.kind = read_neighbour(payload, message.neighbour); break;
    default: message.kind = route_kind::nothing; break;
    }
    return true;
}

std::size_t route_ask_links(std::uint32_t sequence,
                            std::uint8_t (&request)[route_request_size_max]) noexcept {
    return put_request<ifinfomsg>(RTM_GETLINK, sequence, request);
}

std::size_t route_ask_neighbours(std::uint32_t sequence,
                                 std::uint8_t (&request)[route_request_size_max]) noexcept {
    return put_request<ndmsg>(RTM_GETNEIGH, sequence, request);
}
