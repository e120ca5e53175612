#include "nl80211/capabilities.h"

#include <algorithm>

namespace {

enum element : std::uint8_t {
    supported_rates = 1,
    ht_capabilities = 45,
    rsn = 48,
    more_rates = 50,
    vht_capabilities = 191,
    vendor = 221,
    extension = 255,
};
enum extension_element : std::uint8_t { he_capabilities = 35, eht_capabilities = 108 };

using octets = std::span<const std::uint8_t>;

constexpr auto index(generation which) { return static_cast<std::size_t>(which); }

unsigned word(octets bytes, std::size_t at) { return bytes[at] | static_cast<unsigned>(bytes[at + 1]) << 8; }

bool is_2_4_ghz(unsigned frequency) { return frequency < 3000; }

void take(capabilities &known, generation which, std::uint8_t streams, std::uint8_t mcs) {
    known.newest = std::max(known.newest, which);
    known.streams[index(which)] = streams;
    known.mcs[index(which)] = mcs;
}

void widen(capabilities &known, std::uint8_t width) { known.width = std::max(known.width, width); }

void take_rates(capabilities &known, octets body) {
    for (const std::uint8_t rate : body) {
        const auto value = static_cast<std::uint8_t>(rate & 0x7f);
        // Not rates but membership selectors: features that a station must support to join.
        if (value >= 122 && value <= 127) continue;
        known.legacy = std::max(known.legacy, value);
    }
}

void take_ht(capabilities &known, octets body) {
    if (body.size() < 7) return;
    const unsigned info = word(body, 0);
    std::uint8_t streams = 0;
    while (streams < 4 && body[3U + streams] != 0) ++streams;
    if (streams == 0) return;
    if (info & 1U << 1) widen(known, width_40);
    known.short_gi = known.short_gi || (info & 3U << 5);
    known.stbc = known.stbc || (info & 7U << 7); // sending, or receiving on up to three streams
    take(known, generation::n, streams, static_cast<std::uint8_t>(8 * streams - 1));
}

// Two bits for each of eight streams: an index into `highest`; 3 means that the stream is not supported.
void take_map(capabilities &known, generation which, unsigned map, const std::uint8_t (&highest)[3]) {
    std::uint8_t streams = 0;
    while (streams < 8 && (map >> 2 * streams & 3) != 3) ++streams;
    if (streams > 0) take(known, which, streams, highest[map & 3]);
}

void take_vht(capabilities &known, octets body) {
    if (body.size() < 6) return;
    const unsigned info = word(body, 0);
    widen(known, info >> 2 & 3 ? width_160 : width_80);
    known.short_gi = known.short_gi || (info & 3U << 5);
    known.stbc = known.stbc || (info & 15U << 7);
    take_map(known, generation::ac, word(body, 4), {7, 8, 9});
}

void take_he(capabilities &known, octets body, unsigned frequency) {
    if (body.size() < 19) return;
    const std::uint8_t physical = body[6];
    if (is_2_4_ghz(frequency)) {
        if (physical & 1U << 1) widen(known, width_40);
    } else {
        if (physical & 1U << 2) widen(known, width_80);
        if (physical & 1U << 3) widen(known, width_160);
    }
    known.short_gi = true; // every 802.11ax station has a short guard interval
    take_map(known, generation::ax, word(body, 17), {7, 9, 11});
}

// Its stream map depends on widths from other elements, so the streams of 802.11ax are used.
void take_eht(capabilities &known, octets body, unsigned frequency) {
    if (body.size() < 11) return;
    if (frequency > 5950 && (body[2] & 1U << 1)) widen(known, width_320);
    take(known, generation::be, std::max<std::uint8_t>(1, known.streams[index(generation::ax)]), 13);
}

void take_rsn(capabilities &known, octets body) {
    if (body.size() < 8) return;
    std::size_t at = 6; // version, group cipher
    const std::size_t ciphers = word(body, at);
    at += 2 + 4 * ciphers;
    if (body.size() < at + 2) return;
    const std::size_t methods = word(body, at);
    at += 2;
    if (body.size() < at + 4 * methods) return;
    for (std::size_t i = 0; i < methods; ++i) {
        const octets suite = body.subspan(at + 4 * i, 4);
        const bool standard = suite[0] == 0x00 && suite[1] == 0x0f && suite[2] == 0xac;
        if (standard && (suite[3] == 3 || suite[3] == 4 || suite[3] == 9)) known.fast_transition = true;
    }
    at += 4 * methods;
    if (body.size() >= at + 2 && (body[at] & 0x80)) known.management_protection = true;
}

void take_vendor(capabilities &known, octets body) {
    constexpr std::uint8_t multi_ap[] = {0x50, 0x6f, 0x9a, 0x1b};
    if (body.size() < 4 || !std::equal(std::begin(multi_ap), std::end(multi_ap), body.begin())) return;
    // Subelement 6, whose bit 7 says that this is the link of another access point.
    if (body.size() >= 7 && body[4] == 6 && body[5] >= 1 && (body[6] & 0x80)) known.backhaul = true;
}

void take_element(capabilities &known, std::uint8_t id, octets body, unsigned frequency) {
    switch (id) {
    case supported_rates:
    case more_rates: take_rates(known, body); break;
    case ht_capabilities: take_ht(known, body); break;
    case vht_capabilities:
        if (!is_2_4_ghz(frequency)) take_vht(known, body); // some stations send it on 2.4 GHz
        break;
    case rsn: take_rsn(known, body); break;
    case vendor: take_vendor(known, body); break;
    case extension:
        if (!body.empty() && body[0] == he_capabilities) take_he(known, body.subspan(1), frequency);
        if (!body.empty() && body[0] == eht_capabilities) take_eht(known, body.subspan(1), frequency);
        break;
    default: break;
    }
}

// Rate of one stream with the shortest guard interval at the highest MCS, 100 kbit/s, by width.
struct mcs_rates {
    std::uint8_t mcs;
    std::uint16_t rate[widths];
};
constexpr mcs_rates rates_n[] = {{7, {722, 1500, 1500, 1500, 1500}}};
constexpr mcs_rates rates_ac[] = {{7, {722, 1500, 3250, 6500, 6500}},
                                  {8, {867, 1800, 3900, 7800, 7800}},
                                  {9, {867, 2000, 4333, 8667, 8667}}}; // there is no MCS 9 at 20 MHz
constexpr mcs_rates rates_ax[] = {{7, {860, 1721, 3603, 7206, 14412}},
                                  {9, {1147, 2294, 4804, 9608, 19215}},
                                  {11, {1434, 2868, 6005, 12010, 24019}},
                                  {13, {1721, 3441, 7206, 14412, 28824}}};

std::uint32_t stream_rate(std::span<const mcs_rates> table, std::uint8_t mcs, std::uint8_t width) {
    std::uint32_t rate = 0;
    for (const mcs_rates &one : table)
        if (one.mcs <= mcs) rate = one.rate[width];
    return rate;
}

} // namespace

capabilities capabilities_decode(std::span<const std::uint8_t> elements, unsigned frequency) noexcept {
    capabilities known{};
    while (elements.size() >= 2) {
        const std::uint8_t id = elements[0];
        const std::size_t length = elements[1];
        if (elements.size() - 2 < length) break; // truncated
        take_element(known, id, elements.subspan(2, length), frequency);
        elements = elements.subspan(2 + length);
    }
    if (known.newest == generation::unknown && known.legacy > 0)
        known.newest = known.legacy <= 22      ? generation::b
                       : is_2_4_ghz(frequency) ? generation::g
                                               : generation::a;
    return known;
}

capabilities capabilities_common(const capabilities &station, const capabilities &access_point) noexcept {
    if (access_point.newest == generation::unknown) return station;
    capabilities both = station;
    both.newest = std::min(station.newest, access_point.newest);
    both.width = std::min(station.width, access_point.width);
    for (std::size_t i = 0; i < std::size(both.streams); ++i) {
        both.streams[i] = std::min(station.streams[i], access_point.streams[i]);
        both.mcs[i] = std::min(station.mcs[i], access_point.mcs[i]);
    }
    both.legacy = std::min(station.legacy, access_point.legacy);
    both.short_gi = station.short_gi && access_point.short_gi;
    return both;
}

std::uint32_t capabilities_max_rate(const capabilities &both, std::uint8_t channel_width) noexcept {
    const std::uint8_t width = std::min<std::uint8_t>(std::min(both.width, channel_width), width_320);
    const std::size_t at = index(both.newest);
    const std::uint32_t streams = both.streams[at];
    switch (both.newest) {
    case generation::n: {
        const std::uint32_t rate = stream_rate(rates_n, 7, width) * streams;
        return (both.short_gi ? rate : rate * 9 / 10) / 10;
    }
    case generation::ac: {
        const std::uint32_t rate = stream_rate(rates_ac, both.mcs[at], width) * streams;
        return (both.short_gi ? rate : rate * 9 / 10) / 10;
    }
    case generation::ax:
    case generation::be: return stream_rate(rates_ax, both.mcs[at], width) * streams / 10;
    default: return both.legacy / 2;
    }
}

const char *generation_name(generation which) noexcept {
    constexpr const char *names[] = {"", "11b", "11g", "11a", "11n", "11ac", "11ax", "11be"};
    return names[index(which)];
}

std::uint8_t capabilities_max_mcs(const capabilities &station) noexcept {
    return station.mcs[index(station.newest)];
}
