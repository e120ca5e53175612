#include "life/neighbours.h"

#include "inputs/links.h"
#include "inputs/route_messages.h"
#include "model/identity.h"
#include "model/table.h"
#include "outputs/happenings.h"
#include "tools/health.h"
#include "tools/log.h"
#include "tools/text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

struct uloop_fd sta_neighbour_watcher = {};
struct uloop_timeout sta_neighbour_timer = {};

namespace {

constexpr int apart_ms = 1000;
constexpr std::size_t datagram_max = 32768; // the kernel sends no larger ones

bool is_open = false;
bool links_wanted = false;   // before the neighbours
std::uint32_t answering = 0; // the request that the kernel is answering; 0: none
std::uint32_t last_request = 0;

using writer = std::size_t(std::uint32_t, std::uint8_t (&)[route_request_size_max]);

void ask(writer *write) {
    std::uint8_t request[route_request_size_max];
    if (++last_request == 0) ++last_request;
    const std::size_t size = write(last_request, request);
    if (send(sta_neighbour_watcher.fd, request, size, 0) == static_cast<ssize_t>(size))
        answering = last_request;
    else
        sta_neighbours_ask();
}

void ask_now(struct uloop_timeout * /*timer*/) {
    if (answering != 0) return sta_neighbours_ask(); // the kernel answers one at a time
    if (links_wanted) {
        sta_links_clear();
        ask(route_ask_links);
    } else {
        ++sta_health.neighbours_dumps;
        ask(route_ask_neighbours);
    }
}

// The answer is complete, or the kernel has refused the request.
void answered(const route_message &message) {
    if (message.sequence != answering) return;
    answering = 0;
    if (message.kind == route_kind::refused) return sta_neighbours_ask();
    if (!links_wanted) return;
    links_wanted = false;
    ask_now(nullptr);
}

// Whether the kernel knows where this neighbour is.
bool is_there(const route_neighbour &neighbour) {
    return neighbour.state != NUD_NONE && (neighbour.state & (NUD_INCOMPLETE | NUD_FAILED)) == 0;
}

bool is_station_like(const route_neighbour &neighbour, const station_address &address) {
    constexpr std::uint8_t zero[6] = {};
    constexpr std::uint8_t group = 1;
    return neighbour.has_mac && (neighbour.mac[0] & group) == 0 &&
           std::memcmp(neighbour.mac, zero, sizeof(zero)) != 0 && sta_address_is_host(address);
}

const sta_info_t *station_of(const std::uint8_t (&mac)[6]) {
    char text[18];
    sta_put_mac(text, mac);
    return sta_sta_peek(text);
}

std::int32_t seconds_ago(std::uint32_t seconds) {
    const std::int32_t now = sta_monotonic_seconds();
    return now - static_cast<std::int32_t>(std::min(seconds, static_cast<std::uint32_t>(std::max(now, 0))));
}

// When the station was last seen at its address. For a new address: when the kernel made or changed its entry.
std::int32_t seen_at(const route_neighbour &neighbour, bool known) {
    if (!known) return seconds_ago(neighbour.updated_ago);
    const bool now = (neighbour.state & (NUD_REACHABLE | NUD_PERMANENT)) != 0;
    return now ? sta_monotonic_seconds() : seconds_ago(neighbour.confirmed_ago);
}

void take(const route_neighbour &neighbour) {
    ++sta_health.neighbours_received;
    if (!is_there(neighbour)) return;
    station_address address = {};
    std::memcpy(address.bytes, neighbour.address, sizeof(address.bytes));
    address.is_ipv6 = neighbour.is_ipv6;
    address.origin = station_origin::neighbour;
    if (!is_station_like(neighbour, address)) {
        ++sta_health.neighbours_unusable;
        return;
    }
    const sta_info_t *sta = station_of(neighbour.mac);
    if (!sta) {
        ++sta_health.neighbours_unknown;
        return;
    }
    if (!sta_links_lead(neighbour.index, sta->ifname)) {
        ++sta_health.neighbours_foreign;
        return;
    }
    address.seen = seen_at(neighbour, sta_identity_has(sta, address));
    if (!sta_identity_add(sta, address)) return;
    char text[station_address_text_size];
    sta_address_write(address, text);
    sta_tell_address(sta, text, station_origin::neighbour);
}

void ask_for_everything() {
    links_wanted = true;
    answering = 0; // the end of an answer may be among the lost messages
    sta_neighbours_ask();
}

void receive(struct uloop_fd *watcher, unsigned int /*events*/) {
    const sta_turn turn{"neighbours"};
    std::uint8_t datagram[datagram_max];
    sockaddr_nl sender{};
    socklen_t size = sizeof(sender);
    const ssize_t got = recvfrom(watcher->fd, datagram, sizeof(datagram), MSG_DONTWAIT,
                                 reinterpret_cast<sockaddr *>(&sender), &size);
    if (!watcher->registered) uloop_fd_add(watcher, ULOOP_READ); // the loop drops a socket with an error
    if (got < 0) {
        if (errno != ENOBUFS) return;
        ++sta_health.neighbours_overruns;
        ask_for_everything();
        return;
    }
    constexpr std::uint32_t kernel = 0;
    if (sender.nl_pid == kernel) sta_neighbours_handle({datagram, static_cast<std::size_t>(got)});
}

} // namespace

void sta_neighbours_init() noexcept {
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    sockaddr_nl address{};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_NEIGH;
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) < 0) {
        STA_NOTICE("no socket for neighbours: stations have no addresses from there\n");
        if (fd >= 0) close(fd);
        return;
    }
    sta_neighbour_watcher.fd = fd;
    sta_neighbour_watcher.cb = receive;
    uloop_fd_add(&sta_neighbour_watcher, ULOOP_READ);
    is_open = true;
    links_wanted = true;
    ask_now(nullptr);
}

void sta_neighbours_ask() noexcept {
    if (!is_open || sta_neighbour_timer.pending) return;
    sta_neighbour_timer.cb = ask_now;
    uloop_timeout_set(&sta_neighbour_timer, apart_ms);
}

void sta_neighbours_handle(std::span<const std::uint8_t> datagram) noexcept {
    route_message message;
    while (route_message_next(datagram, message)) {
        switch (message.kind) {
        case route_kind::link: sta_links_put(message.link); break;
        case route_kind::link_gone: sta_links_remove(message.link.index); break;
        case route_kind::neighbour: take(message.neighbour); break;
        case route_kind::done:
        case route_kind::refused: answered(message); break;
        case route_kind::broken: ++sta_health.neighbours_malformed; break;
        case route_kind::nothing: break;
        }
    }
}

void sta_neighbours_forget() noexcept {
    if (is_open) {
        uloop_fd_delete(&sta_neighbour_watcher);
        close(sta_neighbour_watcher.fd);
    }
    sta_neighbour_watcher = {};
    sta_neighbour_timer = {};
    is_open = links_wanted = false;
    answering = last_request = 0;
    sta_links_clear();
}
