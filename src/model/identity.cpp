#include "model/identity.h"

#include "model/table.h"
#include "tools/health.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <functional>

namespace {

constexpr std::int32_t window = 60; // seconds
constexpr std::uint8_t new_in_window = 8;

struct known {
    const sta_info_t *owner;
    std::int32_t window_began;
    std::uint8_t in_window; // new addresses from neighbour messages
    std::uint8_t addresses;
    std::uint8_t names;
    station_name name[station_names_max];
    station_address address[station_addresses_max]; // allocated for `addresses` of them
};

// Sorted by the address of the record.
known **all = nullptr;
std::size_t used = 0;
std::size_t room = 0;
constexpr std::size_t slot_size = sizeof(void *); // of `all`

std::size_t size_with(std::size_t addresses) {
    return offsetof(known, address) + addresses * sizeof(station_address);
}

known **place_of(const sta_info_t *sta) {
    return std::lower_bound(all, all + used, sta, [](const known *one, const sta_info_t *owner) {
        return std::less<>{}(one->owner, owner);
    });
}

known **find(const sta_info_t *sta) {
    known **place = place_of(sta);
    return place != all + used && (*place)->owner == sta ? place : nullptr;
}

bool make_place() {
    if (used < room) return true;
    const std::size_t most = room > 0 ? 2 * room : 16;
    void *grown = std::realloc(all, most * slot_size);
    if (!grown) return false;
    all = static_cast<known **>(grown);
    room = most;
    return true;
}

// Null without memory.
known **find_or_make(const sta_info_t *sta) {
    if (known **there = find(sta)) return there;
    if (!make_place()) return nullptr;
    auto *fresh = static_cast<known *>(std::calloc(1, size_with(0)));
    if (!fresh) return nullptr;
    fresh->owner = sta;
    known **place = place_of(sta);
    std::memmove(place + 1, place, static_cast<std::size_t>(all + used - place) * slot_size);
    *place = fresh;
    ++used;
    return place;
}

bool same(const station_address &a, const station_address &b) {
    return a.is_ipv6 == b.is_ipv6 && std::memcmp(a.bytes, b.bytes, sizeof(a.bytes)) == 0;
}

// An entry that was known is seen again.
template <class Entry> void see(Entry &entry, std::int32_t seen, station_origin origin) {
    entry.seen = std::max(entry.seen, seen);
    entry.origin = std::min(entry.origin, origin);
}

// Removes the entry that has not been seen for longest.
template <class Entry> void displace(Entry *entries, std::uint8_t &count) {
    Entry *oldest = std::min_element(entries, entries + count,
                                     [](const Entry &a, const Entry &b) { return a.seen < b.seen; });
    std::memmove(oldest, oldest + 1, static_cast<std::size_t>(entries + count - oldest - 1) * sizeof(Entry));
    --count;
}

// Whether one more address is accepted. A station that claims a thousand addresses would push out its real ones and send
// an event for each.
bool is_believed(known &station, station_origin origin) {
    if (origin != station_origin::neighbour) return true;
    const std::int32_t now = sta_monotonic_seconds();
    if (station.in_window == 0 || now - station.window_began >= window) {
        station.window_began = now;
        station.in_window = 0;
    }
    if (station.in_window >= new_in_window) {
        ++sta_health.addresses_refused;
        return false;
    }
    ++station.in_window;
    return true;
}

void free_names(known *station) {
    for (std::uint8_t i = 0; i < station->names; ++i) std::free(station->name[i].text);
}

} // namespace

const char *station_origin_name(station_origin origin) noexcept {
    switch (origin) {
    case station_origin::lease: return "lease";
    case station_origin::snoop: return "snoop";
    case station_origin::dhcpmon: return "dhcpmon";
    case station_origin::event: return "event";
    case station_origin::neighbour: return "neighbour";
    case station_origin::restored: break;
    }
    return "restored";
}

bool sta_address_read(const char *text, station_address &address) noexcept {
    address = {};
    address.is_ipv6 = std::strchr(text, ':') != nullptr;
    return inet_pton(address.is_ipv6 ? AF_INET6 : AF_INET, text, address.bytes) == 1 &&
           sta_address_is_host(address);
}

bool sta_address_is_host(const station_address &address) noexcept {
    constexpr std::uint8_t loopback_or_none[15] = {};
    constexpr std::uint8_t mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff};
    constexpr std::uint8_t ipv4_loopback = 127, ipv4_multicast = 224, ipv6_multicast = 0xff;
    const std::uint8_t first = address.bytes[0];
    if (!address.is_ipv6) return first != 0 && first != ipv4_loopback && first < ipv4_multicast;
    return first != ipv6_multicast &&
           std::memcmp(address.bytes, loopback_or_none, sizeof(loopback_or_none)) != 0 &&
           std::memcmp(address.bytes, mapped, sizeof(mapped)) != 0;
}

void sta_address_write(const station_address &address, char (&text)[station_address_text_size]) noexcept {
    inet_ntop(address.is_ipv6 ? AF_INET6 : AF_INET, address.bytes, text, sizeof(text));
}

bool sta_identity_add(const sta_info_t *sta, const station_address &one) noexcept {
    known **place = find_or_make(sta);
    if (!place) return false;
    for (std::uint8_t i = 0; i < (*place)->addresses; ++i)
        if (station_address &there = (*place)->address[i]; same(there, one)) {
            see(there, one.seen, one.origin);
            return false;
        }
    if (!is_believed(**place, one.origin)) return false;
    if ((*place)->addresses == station_addresses_max) {
        displace((*place)->address, (*place)->addresses);
        ++sta_health.addresses_displaced;
        --sta_health.addresses_kept;
    } else {
        void *grown = std::realloc(*place, size_with((*place)->addresses + 1U));
        if (!grown) return false;
        *place = static_cast<known *>(grown);
    }
    station_address &fresh = (*place)->address[(*place)->addresses++];
    fresh = one;
    fresh.since = one.seen;
    ++sta_health.addresses_kept;
    return true;
}

bool sta_identity_has(const sta_info_t *sta, const station_address &one) noexcept {
    return std::ranges::any_of(sta_identity_addresses(sta),
                               [&](const station_address &there) { return same(there, one); });
}

void sta_identity_add_address(const sta_info_t *sta, const char *text, station_origin origin) noexcept {
    station_address one;
    if (!sta_address_read(text, one)) return;
    one.origin = origin;
    one.seen = sta_monotonic_seconds();
    sta_identity_add(sta, one);
}

void sta_identity_add_name(const sta_info_t *sta, const char *name, station_origin origin) noexcept {
    if (!name || *name == '\0' || std::strcmp(name, "-") == 0) return;
    known **place = find_or_make(sta);
    if (!place) return;
    known &station = **place;
    const std::int32_t now = sta_monotonic_seconds();
    for (std::uint8_t i = 0; i < station.names; ++i)
        if (std::strcmp(station.name[i].text, name) == 0) return see(station.name[i], now, origin);
    char *copy = strdup(name);
    if (!copy) return;
    if (station.names == station_names_max) {
        station_name *oldest =
            std::min_element(station.name, station.name + station.names,
                             [](const station_name &a, const station_name &b) { return a.seen < b.seen; });
        std::free(oldest->text);
        displace(station.name, station.names);
    }
    station.name[station.names++] = {copy, now, now, origin};
}

std::span<const station_address> sta_identity_addresses(const sta_info_t *sta) noexcept {
    known **place = find(sta);
    if (!place) return {};
    return {(*place)->address, (*place)->addresses};
}

std::span<const station_name> sta_identity_names(const sta_info_t *sta) noexcept {
    known **place = find(sta);
    if (!place) return {};
    return {(*place)->name, (*place)->names};
}

void sta_identity_forget(const sta_info_t *sta) noexcept {
    known **place = find(sta);
    if (!place) return;
    sta_health.addresses_kept -= (*place)->addresses;
    free_names(*place);
    std::free(*place);
    std::memmove(place, place + 1, static_cast<std::size_t>(all + used - place - 1) * slot_size);
    if (--used == 0) sta_identity_forget_all();
}

void sta_identity_forget_all() noexcept {
    for (std::size_t i = 0; i < used; ++i) {
        free_names(all[i]);
        std::free(all[i]);
    }
    std::free(all);
    all = nullptr;
    used = room = 0;
    sta_health.addresses_kept = 0;
}
