// route_messages.h - decoding the kernel's messages about network interfaces and neighbours (rtnetlink). Pure functions.
//
// Source: linux/rtnetlink.h, linux/if_link.h, linux/neighbour.h; everything in host byte order.
// Bounds: nothing outside the given bytes is read, whatever lengths they state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

enum class route_kind : std::uint8_t {
    nothing,   // not needed here
    broken,    // truncated, or of a wrong length: what follows cannot be found
    link,      // an interface exists, or has changed
    link_gone, // an interface is gone
    neighbour,
    done,    // the end of an answer
    refused, // the kernel refuses the request
};

struct route_link {
    std::int32_t index;
    std::int32_t master; // the bridge that it is a port of; 0: none
    std::int32_t lower;  // the interface that it is a VLAN of; 0: none
    char name[16];
};

struct route_neighbour {
    std::int32_t index;  // of the interface
    std::uint16_t state; // NUD_*
    bool is_ipv6;
    bool has_mac;
    std::uint8_t mac[6];
    std::uint8_t address[16];    // in network order; IPv4 uses the first four, the rest is zero
    std::uint32_t confirmed_ago; // seconds since the kernel last had proof that the neighbour is there
    std::uint32_t updated_ago;   // seconds since the entry last changed
};

struct route_message {
    route_kind kind;
    std::uint32_t sequence; // of the request that this message answers; 0: none
    union {
        route_link link;
        route_neighbour neighbour;
    };
};

// Takes the first message off `datagram`. False when there is none left; after a broken one there is none.
bool route_message_next(std::span<const std::uint8_t> &datagram, route_message &message) noexcept;

// A request for all interfaces, and for all neighbours of either kind of address.
inline constexpr std::size_t route_request_size_max = 32;
std::size_t route_ask_links(std::uint32_t sequence, std::uint8_t (&request)[route_request_size_max]) noexcept;
std::size_t route_ask_neighbours(std::uint32_t sequence,
                                 std::uint8_t (&request)[route_request_size_max]) noexcept;
