// The input is reports of a few stations in their order, with the seconds between them. Whatever they hold: a stay is of one
// station, its bytes never become fewer, it does not end before it began, and every stay ends.
#include "../require.h"
#include "collector/sessions.h"

#include <algorithm>
#include <cstring>
#include <map>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    constexpr std::size_t step = 24;
    sessions people({.most_stays = 8});
    std::map<std::int64_t, stay> known;
    moment clock = 1'700'000'000 * second;
    std::vector<change> done;
    const auto check = [&known, &done] {
        for (const change &one : done) {
            const stay &now_is = one.now;
            const auto before = known.find(now_is.id);
            require((before == known.end()) == (one.kind == change_kind::joined),
                    "only joining makes a new stay");
            if (before != known.end()) {
                require(before->second.mac == now_is.mac && before->second.began == now_is.began,
                        "a stay is of one station");
                require(now_is.up.total >= before->second.up.total &&
                            now_is.down.total >= before->second.down.total,
                        "bytes never become fewer");
            }
            require(now_is.ended == 0 || now_is.ended >= now_is.began, "an end is not before the beginning");
            require(now_is.addresses.size() <= 16, "addresses are bounded");
            if (one.kind == change_kind::left)
                known.erase(now_is.id);
            else
                known[now_is.id] = now_is;
        }
        done.clear();
    };
    for (; size >= step; data += step, size -= step) {
        station_report report{};
        (void)std::snprintf(report.mac, sizeof(report.mac), "02:00:00:00:00:%02x", data[0] % 12);
        if (data[0] >= 0xf0) report.mac[data[1] % 17] = static_cast<char>(data[2]);
        report.log_type = data[1] % 6;
        report.radio_id = data[2] % 3;
        (void)std::snprintf(report.ap_mac, sizeof(report.ap_mac), "02:54:4b:00:00:%02x\n", data[3] % 3);
        std::memcpy(&report.wifi_up, data + 4, 8);
        report.wifi_down = report.wifi_up >> 8;
        report.rssi = static_cast<std::int8_t>(data[12]);
        std::int16_t since = 0, left = 0;
        std::memcpy(&since, data + 13, 2);
        std::memcpy(&left, data + 15, 2);
        report.online_ts.sec = static_cast<std::int32_t>(clock / second) + since;
        report.offline_ts.sec = static_cast<std::int32_t>(clock / second) + left;
        std::memcpy(report.ip, data + 17, 4);
        std::memcpy(report.ssid, data + 19, 4);
        clock += data[23] * second;
        people.tick(clock, done);
        people.take(report, clock, done);
        check();
        require(people.count() == known.size() && people.count() <= 8, "stays are counted");
    }
    people.tick(clock + 3600 * second, done);
    check();
    require(people.count() == 0 && !people.next_deadline(), "every stay ends");
    return 0;
}
