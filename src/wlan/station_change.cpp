#include "wlan/station_change.h"

#include "tools/log.h"
#include "tools/text.h"

#include <string_view>

namespace {

constexpr std::uint8_t to_other_access_point = 2; // is_reassoc of a disassociation
constexpr std::string_view repeater_ssid = "@Talvik-Repeater";

station_change_kind kind_of(const station_event &event) {
    if (event.assoc == 1) return station_change_kind::comes;
    if (event.assoc != 0) return station_change_kind::none;
    return event.is_reassoc == to_other_access_point ? station_change_kind::moves : station_change_kind::goes;
}

// A reading of 0 to 255 as per cent, cut toward zero.
std::int32_t percent(std::int32_t utilization) {
    return static_cast<std::int32_t>(std::int64_t{utilization} * 100 / 255);
}

std::int8_t signal(std::int8_t reading) {
    constexpr std::int8_t weakest = -94;
    constexpr std::int8_t instead = -65;
    return reading < weakest ? instead : reading;
}

// The first one or two digits after at least one other character.
int number_in(const char *ifname) {
    const std::size_t start = std::strcspn(ifname, "0123456789");
    if (start == 0 || ifname[start] == '\0') return -1;
    const int number = ifname[start] - '0';
    const char second = ifname[start + 1];
    return second >= '0' && second <= '9' ? number * 10 + (second - '0') : number;
}

} // namespace

void station_change_decode(const char *function, std::span<const std::uint8_t, station_event_size> bytes,
                           station_change &change) noexcept {
    station_event &event = change.figures;
    station_event_decode(bytes, event);
    sta_put_mac(change.mac, event.mac);
    STA_LOG_AS(function, "assoc %d mac %s\n", static_cast<int>(event.assoc), change.mac);
    STA_LOG_AS(function,
               "ssid %s ifname %s radio_id %d off_reason_code %d sta_rxbyte=%llu sta_txbyte=%llu "
               "sta_rxrate=%d sta_txrate=%d "
               "rssi=%d\n",
               event.ssid, event.ifname, event.radio_id, event.off_reason_code,
               static_cast<unsigned long long>(event.sta_rxbyte),
               static_cast<unsigned long long>(event.sta_txbyte), event.sta_rxrate, event.sta_txrate,
               event.rssi);
    STA_LOG_AS(function, "floornoise=%d utilization=%d version=%s channel %d is_reassoc %d\n",
               event.floornoise, event.utilization, event.version, event.channel, event.is_reassoc);
    change.kind = kind_of(event);
    change.time = static_cast<std::int32_t>(event.time_stamp);
    change.rssi = signal(event.rssi);
    change.reading = event.rssi;
    change.utilization = percent(event.utilization);
    change.wlanid = number_in(event.ifname);
    change.repeater = repeater_ssid == event.ssid || event.repeater == 1;
}
