// The cost of one association for the bridge without system calls: decoding the kernel's five recorded messages and hostapd's
// three lines, the decisions, and the event for the daemon. The floor copies the same bytes.
#include "nl80211/recorded.h"

#include "channel/messages.h"
#include "nl80211/control_line.h"
#include "nl80211/figures.h"
#include "nl80211/station_life.h"

#include <benchmark/benchmark.h>
#include <cstring>

namespace {

constexpr std::uint32_t wlan1 = 3;
constexpr unsigned channel_36 = 5180;

struct association {
    octets added, response, key, listed, removed;
    mac_address mac;
    std::string authenticates, associates, connected;

    explicit association(const mac_address &of)
        : added(with_mac(recorded("new_station_event"), of)),
          response(with_mac(recorded("assoc_response_sent"), of)),
          key(with_mac(recorded("key_frame_sent"), of)), listed(with_mac(recorded("station_listed"), of)),
          removed(with_mac(recorded("del_station_event"), of)), mac(of) {
        char text[18];
        std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac.bytes[0], mac.bytes[1],
                      mac.bytes[2], mac.bytes[3], mac.bytes[4], mac.bytes[5]);
        char plain[13];
        std::snprintf(plain, sizeof(plain), "%02x%02x%02x%02x%02x%02x", mac.bytes[0], mac.bytes[1],
                      mac.bytes[2], mac.bytes[3], mac.bytes[4], mac.bytes[5]);
        const std::string address(plain), access_point = "020000000100";
        const std::string head = access_point + address + access_point;
        authenticates = "<3>AP-MGMT-FRAME-RECEIVED buf=b0003a01" + head + "0000000001000000";
        associates = "<3>AP-MGMT-FRAME-RECEIVED buf=00003a01" + head +
                     "1000310405000005"
                     "4c6f626279" // the network's name: "Lobby"
                     "01080c1218243048606c2d1a6e1002ffff000000000000000000000000000000000000000000000000";
        connected = std::string("<3>AP-STA-CONNECTED ") + text;
    }
};

// Feeds one arrival and one departure in; returns how many outputs of each kind came.
int play(station_life &life, const association &one, moment now,
         std::span<std::uint8_t, event_message_size> sent) {
    kernel_message message;
    management_frame frame{};
    std::uint8_t room[control_frame_max];
    mac_address to{};
    network_facts where{};
    const auto hear = [&](const std::string &line) {
        const control_line said = control_line_decode(line, room);
        if (said.kind == control_line::connected) life.connected(wlan1, said.mac, now);
        if (said.kind == control_line::frame_received && management_frame_decode(said.frame, frame))
            life.frame_received(wlan1, frame, channel_36, now);
    };
    hear(one.authenticates);
    if (kernel_message_decode(one.added, message)) life.entry_added(wlan1, message.mac, now);
    hear(one.associates);
    if (kernel_message_decode(one.response, message) && management_frame_decode(message.frame, frame))
        life.frame_sent(wlan1, frame, channel_36, now);
    if (kernel_message_decode(one.key, message) && key_message_number(message.frame, to) == 1)
        life.key_message_sent(wlan1, to, 1, now);
    hear(one.connected);
    int events = 0;
    const auto settle = [&] {
        life_output what{};
        while (life.take(what)) {
            if (what.kind == life_output::ask) {
                // The other stations stay; this one is asked about after its departure.
                const bool is_there =
                    !(what.about.mac == one.mac) && kernel_message_decode(one.listed, message);
                life.answered(wlan1, what.about.mac, is_there ? &message.figures : nullptr, now);
                continue;
            }
            const bool on = what.kind == life_output::came;
            if (on && kernel_message_decode(one.listed, message))
                life.answered(wlan1, what.about.mac, &message.figures, now);
            write_event_message(
                driver_family,
                make_event(on, what.about, message.figures, where, what.reason, what.when, 100'000'000'000),
                sent);
            ++events;
        }
    };
    settle();
    // The access point deauthenticates it, so that its departure is certain at once.
    frame = {};
    frame.subtype = frame_deauth;
    frame.to = one.mac;
    life.frame_sent(wlan1, frame, channel_36, now);
    if (kernel_message_decode(one.removed, message))
        life.entry_removed(wlan1, message.mac, message.figures, now);
    now.ms += 2000;
    life.pass(now);
    settle();
    return events;
}

// With so many other stations.
void bridge_association(benchmark::State &state) {
    station_life life;
    life.network(wlan1, true, true);
    moment now{1000, 1'700'000'000'000};
    for (std::uint32_t i = 0; i < state.range(0); ++i) life.connected(wlan1, mac_number(i), now);
    life_output what{};
    while (life.take(what)) {
    }
    const association one(mac_number(1U << 30));
    std::uint8_t sent[event_message_size];
    for (auto _ : state) {
        now.ms += 10'000;
        if (play(life, one, now, sent) != 2) {
            state.SkipWithError("not one arrival and one departure");
            return;
        }
        benchmark::DoNotOptimize(sent);
    }
}

void bridge_association_floor(benchmark::State &state) {
    const association one(mac_number(0));
    std::uint8_t room[16384];
    for (auto _ : state) {
        std::size_t used = 0;
        const auto move = [&](const auto &part) {
            std::memcpy(room + used, part.data(), part.size());
            used += part.size();
        };
        move(one.added), move(one.response), move(one.key), move(one.listed), move(one.removed);
        move(one.authenticates), move(one.associates), move(one.connected);
        std::memset(room + used, 0, std::size_t{2} * event_message_size);
        benchmark::DoNotOptimize(room);
    }
}

BENCHMARK(bridge_association)->Arg(64)->Arg(256)->Arg(512);
BENCHMARK(bridge_association_floor)->Arg(64)->Arg(256)->Arg(512);

} // namespace

BENCHMARK_MAIN();
