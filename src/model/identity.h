// identity.h - a station's addresses and names, each with its origin, since when it is known, and when it was last seen.
// Kept beside the records of the table; the record's own `ip` and `name` are not changed.
//
// Keys:   the record. Its addresses and names are freed with it (model/members).
// Memory: plain malloc, only for stations with an address or a name: some 180 bytes with one of each, and 28 for each further
//         address. Without memory nothing is remembered.
// Units:  monotonic seconds.
#pragma once

#include "model/record.h"

#include <span>

// How an address or a name came to be known. If there are several, the one listed first here counts.
enum class station_origin : std::uint8_t { lease, snoop, dhcpmon, event, neighbour, restored };

// Its name on the bus.
const char *station_origin_name(station_origin origin) noexcept;

inline constexpr std::size_t station_addresses_max = 8;
inline constexpr std::size_t station_names_max = 4;
inline constexpr std::size_t station_address_text_size = 46; // of the longest address, with its terminator

struct station_address {
    std::uint8_t bytes[16]; // in network order; IPv4 uses the first four, the rest is zero
    bool is_ipv6;
    station_origin origin;
    std::int32_t since;
    std::int32_t seen;
};

struct station_name {
    char *text; // plain malloc
    std::int32_t since;
    std::int32_t seen;
    station_origin origin;
};

// Reads either kind of address. False for a text that is not an address, and for an address that no station can have.
bool sta_address_read(const char *text, station_address &address) noexcept;

// Whether a station can have it: neither zero nor loopback, multicast or broadcast, nor an IPv4 address inside an IPv6 one.
bool sta_address_is_host(const station_address &address) noexcept;

// The address as text, IPv6 in the standard short form.
void sta_address_write(const station_address &address, char (&text)[station_address_text_size]) noexcept;

// Remembers the address of `one`, which the station had at `one.seen`. True when it is new. A station
// keeps eight: a ninth displaces the one not seen for longest (counted). At most eight new addresses of a station are accepted
// from neighbour messages in a minute; more are refused (counted).
bool sta_identity_add(const sta_info_t *sta, const station_address &one) noexcept;

// Whether this address of the station is known.
bool sta_identity_has(const sta_info_t *sta, const station_address &one) noexcept;

// Remember an address or a name, seen now. Ignored: a text that is not an address, an empty name, and the name "-".
void sta_identity_add_address(const sta_info_t *sta, const char *text, station_origin origin) noexcept;
void sta_identity_add_name(const sta_info_t *sta, const char *name, station_origin origin) noexcept;

// What is known, oldest first; valid until the next change.
std::span<const station_address> sta_identity_addresses(const sta_info_t *sta) noexcept;
std::span<const station_name> sta_identity_names(const sta_info_t *sta) noexcept;

// Forget those of a record before it is freed; forget all, as at start.
void sta_identity_forget(const sta_info_t *sta) noexcept;
void sta_identity_forget_all() noexcept;
