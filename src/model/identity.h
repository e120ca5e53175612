// identity.h - who a station is: the addresses and names it has, each with how that is known, since when, and when it was last
// seen. Kept beside the records of the table; what the record itself says (its `ip`, its `name`) stays as it is.
//
// Keys:   the record. What is known of it goes when it is freed (model/members).
// Memory: plain malloc, for those stations alone of which something is known: some 180 bytes with one address and one name, 28
//         for each further address. Without memory nothing is remembered.
// Units:  monotonic seconds.
#pragma once

#include "model/record.h"

#include <span>

// How an address or a name came to be known. Of two ways the one that stands first counts.
enum class station_origin : std::uint8_t { lease, snoop, dhcpmon, event, neighbour, restored };

// The bus's word for it.
const char *station_origin_name(station_origin origin) noexcept;

inline constexpr std::size_t station_addresses_max = 8;
inline constexpr std::size_t station_names_max = 4;
inline constexpr std::size_t station_address_text_size = 46; // of the longest address, with its end

struct station_address {
    std::uint8_t bytes[16]; // in network order; those of IPv4 are the first four, the rest is zero
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

// Reads either kind of address. False for a text that is none, and for an address that no station can have.
bool sta_address_read(const char *text, station_address &address) noexcept;

// Whether a station can have it: neither zero nor loopback, multicast or broadcast, nor one kind inside of the other.
bool sta_address_is_host(const station_address &address) noexcept;

// The address as text, in the one form that the standard prefers.
void sta_address_write(const station_address &address, char (&text)[station_address_text_size]) noexcept;

// Remembers the address of `one`, which the station had at `one.seen`. True when it is new. Of nine the one unseen for longest
// goes (counted). Of neighbours at most eight new ones of a station are believed in a minute (counted).
bool sta_identity_add(const sta_info_t *sta, const station_address &one) noexcept;

// Whether this address of the station is known.
bool sta_identity_has(const sta_info_t *sta, const station_address &one) noexcept;

// Remembers what the text says, seen now. Nothing comes of a text that is no address, of an empty name, and of the name "-".
void sta_identity_add_address(const sta_info_t *sta, const char *text, station_origin origin) noexcept;
void sta_identity_add_name(const sta_info_t *sta, const char *name, station_origin origin) noexcept;

// What is known, in order of becoming known; good until the next change.
std::span<const station_address> sta_identity_addresses(const sta_info_t *sta) noexcept;
std::span<const station_name> sta_identity_names(const sta_info_t *sta) noexcept;

// Of the record, before it is freed; and of all, as at start.
void sta_identity_forget(const sta_info_t *sta) noexcept;
void sta_identity_forget_all() noexcept;
