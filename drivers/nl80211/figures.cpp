#include "nl80211/figures.h"

#include <algorithm>
#include <ctime>
#include <linux/nl80211.h>

namespace {

constexpr std::int8_t signal_unknown = -95;

// The daemon's record has rates in 1/1024 Mbit/s.
std::int32_t rate_1024(std::uint32_t rate_100kbit) {
    return static_cast<std::int32_t>(rate_100kbit * 1024 / 10);
}

std::int8_t signal_of(const station_figures &figures) {
    return figures.signal == 0 ? signal_unknown : figures.signal;
}

// Per cent of the frames that were not acknowledged.
std::uint32_t failed_percent(const station_figures &figures) {
    const std::uint64_t all = std::uint64_t{figures.tx_packets} + figures.tx_failed;
    return all == 0 ? 0 : static_cast<std::uint32_t>(std::uint64_t{figures.tx_failed} * 100 / all);
}

std::uint32_t max_rate(const station &about, const network_facts &where) {
    return capabilities_max_rate(capabilities_common(about.can, about.access_point_can), where.width);
}

template <std::size_t N> void put_ssid(char (&field)[N], const network_facts &where) {
    const std::size_t size = std::min<std::size_t>(where.ssid_size, N - 1);
    std::memcpy(field, where.ssid, size);
    field[size] = '\0';
}

// Time of a step, "13:20:11.042"; "" for a step that was not seen.
template <std::size_t N> void put_time(char (&field)[N], std::int64_t wall_ms) {
    field[0] = '\0';
    if (wall_ms == 0) return;
    const auto seconds = static_cast<std::time_t>(wall_ms / 1000);
    std::tm parts{};
    localtime_r(&seconds, &parts);
    std::snprintf(field, N, "%02d:%02d:%02d.%03d", parts.tm_hour, parts.tm_min, parts.tm_sec,
                  static_cast<int>(wall_ms % 1000));
}

// The fields that event and extended entry share.
template <class Record>
void put_common(Record &record, const station &about, const station_figures &figures) {
    record.txper = failed_percent(figures);
    record.supportSTBC = about.can.stbc;
    record.supportSGI = about.can.short_gi;
    record.maxMCS = capabilities_max_mcs(about.can);
    record.maxBW = about.can.width;
    record.cost_auth_req = about.cost_auth;
    record.cost_assoc_req = about.cost_assoc;
    record.cost_msg4 = about.cost_key;
    record.txPkt = figures.tx_packets;
    put_time(record.ap_auth_req, about.auth_wall_ms);
    put_time(record.ap_assoc_req, about.assoc_wall_ms);
    put_time(record.key_start, about.key_start_wall_ms);
    put_time(record.key_end, about.key_end_wall_ms);
}

std::uint64_t age_seconds(std::uint64_t associated_at, std::uint64_t boot_ns) {
    return associated_at == 0 || associated_at > boot_ns ? 0 : (boot_ns - associated_at) / 1'000'000'000;
}

} // namespace

std::uint8_t width_of(std::uint32_t channel_width) noexcept {
    switch (channel_width) {
    case NL80211_CHAN_WIDTH_40: return width_40;
    case NL80211_CHAN_WIDTH_80: return width_80;
    case NL80211_CHAN_WIDTH_80P80:
    case NL80211_CHAN_WIDTH_160: return width_160;
    case 13: return width_320; // NL80211_CHAN_WIDTH_320, which older headers lack
    default: return width_20;
    }
}

station_event make_event(bool on, const station &about, const station_figures &figures,
                         const network_facts &where, std::int32_t reason, moment now,
                         std::uint64_t boot_ns) noexcept {
    station_event event{};
    put_common(event, about, figures);
    std::memcpy(event.mac, about.mac.bytes, sizeof(event.mac));
    event.assoc = on ? 1 : 0;
    put_ssid(event.ssid, where);
    std::int64_t seconds = now.wall_ms / 1000;
    if (on && about.found) seconds -= static_cast<std::int64_t>(age_seconds(about.associated_at, boot_ns));
    event.time_stamp = static_cast<std::uint32_t>(seconds);
    event.radio_id = where.radio;
    std::memcpy(event.ifname, where.ifname, sizeof(where.ifname));
    event.off_reason_code = on ? 0 : reason;
    event.floornoise = where.noise;
    event.utilization = where.busy;
    event.maxRate = max_rate(about, where);
    std::snprintf(event.version, sizeof(event.version), "%s",
                  generation_name(capabilities_common(about.can, about.access_point_can).newest));
    event.sta_rxrate = rate_1024(figures.rx_rate);
    event.sta_txrate = rate_1024(figures.tx_rate);
    event.sta_rxbyte = figures.rx_bytes;
    event.sta_txbyte = figures.tx_bytes;
    event.channel = channel_of(where.frequency);
    event.is_reassoc = about.is_reassociation ? 1 : 0;
    event.rssi = signal_of(figures);
    event.roam_enable = about.can.fast_transition;
    event.repeater = about.repeater;
    return event;
}

driver_basic make_basic(const station &about, const station_figures &figures, const network_facts &where,
                        std::uint64_t boot_ns) noexcept {
    driver_basic entry{};
    std::memcpy(entry.mac, about.mac.bytes, sizeof(entry.mac));
    put_ssid(entry.ssid, where);
    std::memcpy(entry.ifname, where.ifname, sizeof(where.ifname));
    entry.floornoise = where.noise;
    entry.utilization = where.busy * 100 / 255; // per cent; in the event it is a share of 255
    entry.maxRate = max_rate(about, where);
    entry.rx_rate = figures.rx_rate / 10;
    entry.tx_rate = figures.tx_rate / 10;
    entry.rx_bytes = figures.rx_bytes;
    entry.tx_bytes = figures.tx_bytes;
    entry.channel = channel_of(where.frequency);
    entry.is_reassoc = about.is_reassociation ? 1 : 0;
    entry.rssi = signal_of(figures);
    entry.online_time = static_cast<std::int32_t>(age_seconds(figures.associated_at, boot_ns));
    entry.chain_rssi0 = figures.chain[0];
    entry.chain_rssi1 = figures.chain[1];
    entry.chain_rssi2 = figures.chain[2];
    entry.chain_rssi3 = figures.chain[3];
    return entry;
}

driver_extended make_extended(const station &about, const station_figures &figures) noexcept {
    driver_extended entry{};
    put_common(entry, about, figures);
    return entry;
}
