// reports.h - reports as an access point would send them, for tests.
#pragma once

#include "collector/received.h"

#include <cstring>
#include <string>

inline constexpr moment noon = 1'700'000'000 * second;

struct told {
    report_kind kind = report_update;
    int since = 0; // seconds after noon of the association
    int radio = 0;
    int rssi = -50;
    std::uint64_t up = 0;
    std::uint64_t down = 0;
    const char *ip = "0.0.0.0";
    int left = 0; // seconds after noon of the departure
    int reason_code = 0;
    const char *reason = "";
    const char *mac = "02:00:00:00:00:01";
    const char *ap = "02:54:4b:00:00:01\n";
    const char *ssid = "Lobby";
};

template <std::size_t N> void set_text(char (&field)[N], const char *text) {
    std::memset(field, 0, N);
    std::memcpy(field, text, std::min(N - 1, std::strlen(text)));
}

inline station_report make_report(const told &what) {
    station_report report{};
    const auto clock = [](int seconds) { return static_cast<std::int32_t>(noon / second + seconds); };
    report.log_type = what.kind;
    report.online_ts.sec = clock(what.since);
    report.oltime = what.left > what.since ? what.left - what.since : 0;
    if (what.kind == report_offline) report.offline_ts.sec = clock(what.left);
    report.radio_id = what.radio;
    report.rssi = static_cast<std::int8_t>(what.rssi);
    report.wifi_up = what.up;
    report.wifi_down = what.down;
    report.reason_code = what.reason_code;
    report.channel = what.radio == 0 ? 6 : 36;
    set_text(report.ip, what.ip);
    set_text(report.reason, what.reason);
    set_text(report.mac, what.mac);
    set_text(report.ap_mac, what.ap);
    set_text(report.ssid, what.ssid);
    set_text(report.ifname, what.radio == 0 ? "ath0" : "ath1");
    return report;
}

inline std::string image_of(const station_report &report) {
    std::string image(station_report_size, '\0');
    station_report_encode(report, std::span<std::uint8_t, station_report_size>(
                                      reinterpret_cast<std::uint8_t *>(image.data()), station_report_size));
    return image;
}
