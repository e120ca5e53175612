// Anything may be seen in any order: two bytes for each thing, of which the first says what, of whom and where, and the
// second how long it took. Whatever comes, the daemon is told of a client's end only where it was told that it is.
#include "../require.h"
#include "nl80211/station_life.h"

#include <cstddef>

namespace {

constexpr int clients = 2, networks = 2;

struct world {
    station_life life;
    bool entry[clients][networks] = {}; // as the kernel has it
    bool authorised[clients][networks] = {};
    int told_at[clients] = {-1, -1}; // network; -1: off
    moment now{1, 1'700'000'000'000};

    static mac_address mac_of(int client) { return {{2, 0, 0, 0, 0, static_cast<std::uint8_t>(client)}}; }
    station_figures figures(int client, int network) const {
        station_figures known{};
        known.authorized = known.associated = authorised[client][network];
        known.associated_at = known.authorized ? static_cast<std::uint64_t>(1 + client + network) : 0;
        return known;
    }
    void drain() {
        life_output what{};
        for (int steps = 0; life.take(what); ++steps) {
            require(steps < 1000, "it comes to an end");
            const int client = what.about.mac.bytes[5];
            const auto network = static_cast<int>(what.about.network);
            if (what.kind == life_output::ask) {
                const station_figures known = figures(client, network);
                life.answered(what.about.network, what.about.mac, entry[client][network] ? &known : nullptr,
                              now);
            } else if (what.kind == life_output::came) {
                told_at[client] = network;
            } else {
                require(told_at[client] == network, "an end is told where the client was");
                require(what.reason >= off_timeout && what.reason <= off_disassoc_sent,
                        "a reason is one of the driver's");
                told_at[client] = -1;
            }
        }
        for (int client = 0; client < clients; ++client) {
            const station *on = life.find_on(mac_of(client));
            require((on ? static_cast<int>(on->network) : -1) == told_at[client],
                    "who is on has been told of");
        }
    }
    void happens(unsigned what, int client, int network) {
        const mac_address mac = mac_of(client);
        const auto where = static_cast<std::uint32_t>(network);
        management_frame frame{};
        frame.from = frame.to = mac;
        switch (what) {
        case 0: entry[client][network] = true, life.entry_added(where, mac, now); break;
        case 1:
            entry[client][network] = authorised[client][network] = false;
            life.entry_removed(where, mac, {}, now);
            break;
        case 2: entry[client][network] = authorised[client][network] = true; break;
        case 3: entry[client][network] = authorised[client][network] = false; break;
        case 4: life.connected(where, mac, now); break;
        case 5: life.disconnected(where, mac, now); break;
        case 6: frame.subtype = frame_auth, life.frame_received(where, frame, 5180, now); break;
        case 7: frame.subtype = frame_deauth, life.frame_received(where, frame, 5180, now); break;
        case 8: frame.subtype = frame_disassoc, life.frame_sent(where, frame, 5180, now); break;
        case 9: life.network_ended(where, now); break;
        case 10: life.network(where, client != 0, network != 0); break;
        default:
            life.list_begin();
            for (int c = 0; c < clients; ++c)
                for (int n = 0; n < networks; ++n)
                    if (entry[c][n]) life.listed(static_cast<std::uint32_t>(n), mac_of(c), figures(c, n));
            life.list_end(now);
            break;
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    world all;
    for (std::size_t i = 0; i + 1 < size; i += 2) {
        all.now.ms += data[i + 1] * 20;
        all.life.pass(all.now);
        all.drain();
        all.happens(data[i] >> 2 & 15U, data[i] & 1, data[i] >> 1 & 1);
        all.drain();
    }
    return 0;
}
