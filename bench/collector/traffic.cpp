#include "bench/collector/traffic.h"

#include <cstdio>
#include <cstring>
#include <span>

namespace {

constexpr std::int32_t begin = 1'700'000'000;

} // namespace

moment time_of_minute(int minute) { return (moment{begin} + 60 * moment{minute}) * second; }

std::vector<std::string> images_of_minute(int minute) {
    std::vector<std::string> images;
    for (int number = 0; number < stations; ++number) {
        station_report report{};
        report.log_type = minute == 0 ? report_online : report_update;
        report.online_ts.sec = begin;
        report.oltime = 60 * minute;
        report.radio_id = number % 2;
        report.rssi = static_cast<std::int8_t>(-40 - number % 40);
        report.floornoise = -95;
        report.wifi_up = static_cast<std::uint64_t>(minute) * 10'000;
        report.wifi_down = static_cast<std::uint64_t>(minute) * 90'000;
        report.channel = number % 2 == 0 ? 6 : 36;
        (void)std::snprintf(report.mac, sizeof(report.mac), "02:00:00:00:%02x:%02x", number >> 8,
                            number & 255);
        (void)std::snprintf(report.ip, sizeof(report.ip), "10.0.%d.%d", number >> 8, number & 255);
        (void)std::snprintf(report.ssid, sizeof(report.ssid), "Lobby");
        (void)std::snprintf(report.ifname, sizeof(report.ifname), "ath%d", number % 2);
        (void)std::snprintf(report.ap_mac, sizeof(report.ap_mac), "02:54:4b:00:00:01\n");
        std::string &image = images.emplace_back(station_report_size, '\0');
        station_report_encode(report,
                              std::span<std::uint8_t, station_report_size>(
                                  reinterpret_cast<std::uint8_t *>(image.data()), station_report_size));
    }
    return images;
}

std::vector<message> traffic::next_minute() {
    const moment at = time_of_minute(minute_);
    std::vector<message> all;
    std::vector<change> done;
    for (std::string &image : images_of_minute(minute_)) {
        message one{take_message(std::move(image), at), {}};
        done.clear();
        stays_.take(*one.in->report, at, done);
        one.what = std::move(done.back());
        all.push_back(std::move(one));
    }
    ++minute_;
    return all;
}
