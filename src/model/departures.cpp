#include "model/departures.h"

#include "model/table.h"
#include "tools/text.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

struct departure_ring {
    station_departure *entries; // in the order of addition, starting at `oldest`
    std::uint32_t used;
    std::uint32_t room;
    std::uint32_t oldest; // used once the ring is full
    std::uint32_t most;
    std::uint32_t total;
};
departure_ring ring = {nullptr, 0, 0, 0, departures_default, 0};

struct asked_kick {
    char mac[18];
    std::int32_t when; // monotonic
};
asked_kick kicks[16] = {}; // more than an operator asks for within 30 seconds
std::size_t next_kick = 0;

// Makes room for one more. False without memory.
bool grow() {
    if (ring.used < ring.room) return true;
    constexpr std::uint32_t first = 8;
    const std::uint32_t wanted = std::min(std::max(first, 2 * ring.room), ring.most);
    void *grown = std::realloc(ring.entries, wanted * sizeof(station_departure));
    if (!grown) return false;
    ring.entries = static_cast<station_departure *>(grown);
    ring.room = wanted;
    return true;
}

// Rotates the entries, so that the oldest is the first. In three reversals: std::rotate would be half a kilobyte of code.
void into_order_of_addition() {
    const auto reverse = [](std::uint32_t first, std::uint32_t end) {
        for (; first + 1 < end; ++first, --end) std::swap(ring.entries[first], ring.entries[end - 1]);
    };
    reverse(0, ring.oldest);
    reverse(ring.oldest, ring.used);
    reverse(0, ring.used);
    ring.oldest = 0;
}

} // namespace

const char *departure_cause_name(departure_cause cause) noexcept {
    switch (cause) {
    case departure_cause::unknown: break;
    case departure_cause::station: return "station";
    case departure_cause::access_point: return "access-point";
    case departure_cause::idle: return "idle";
    case departure_cause::kick: return "kick";
    case departure_cause::roam: return "roam";
    case departure_cause::unlisted: return "unlisted";
    case departure_cause::swept: return "swept";
    }
    return "unknown";
}

const char *departure_known_from(const station_departure &departure) noexcept {
    return departure.inferred ? "inferred" : "event";
}

void sta_departures_keep(std::uint32_t entries) noexcept {
    entries = std::min(entries, departures_most);
    if (entries == ring.most) return;
    into_order_of_addition();
    if (ring.used > entries) {
        std::copy(ring.entries + (ring.used - entries), ring.entries + ring.used, ring.entries);
        ring.used = entries;
    }
    ring.most = entries;
    if (ring.room <= entries) return;
    ring.room = entries;
    if (entries == 0) {
        std::free(ring.entries);
        ring.entries = nullptr;
    } else if (void *smaller = std::realloc(ring.entries, entries * sizeof(station_departure))) {
        ring.entries = static_cast<station_departure *>(smaller);
    }
}

void sta_departures_add(const station_departure &departure) noexcept {
    ++ring.total;
    if (ring.used < ring.most && grow()) {
        // If the ring wrapped around because it could not grow earlier, the oldest entry is not the first.
        into_order_of_addition();
        ring.entries[ring.used++] = departure;
    } else if (ring.used > 0) {
        ring.entries[ring.oldest] = departure;
        ring.oldest = (ring.oldest + 1) % ring.used;
    }
}

const station_departure *sta_departures_newest(std::size_t index) noexcept {
    if (index >= ring.used) return nullptr;
    return ring.entries + (ring.oldest + ring.used - 1 - index) % ring.used;
}

std::uint32_t sta_departures_total() noexcept { return ring.total; }

void sta_departures_kick(const char *mac) noexcept {
    asked_kick &kick = kicks[next_kick];
    next_kick = (next_kick + 1) % std::size(kicks);
    sta_put_text(kick.mac, mac);
    kick.when = sta_monotonic_seconds();
}

bool sta_departures_take_kick(const char *mac) noexcept {
    constexpr std::int32_t answered_within = 30; // seconds
    bool recent = false;
    for (asked_kick &kick : kicks) {
        if (std::strcmp(kick.mac, mac) != 0) continue;
        recent = recent || sta_monotonic_seconds() - kick.when <= answered_within;
        kick = {};
    }
    return recent;
}

void sta_departures_forget() noexcept {
    std::free(ring.entries);
    ring = {nullptr, 0, 0, 0, departures_default, 0};
    for (asked_kick &kick : kicks) kick = {};
    next_kick = 0;
}
