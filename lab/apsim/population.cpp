#include "apsim/population.h"

#include <algorithm>
#include <array>
#include <iterator>

namespace {

constexpr std::array names = {"anna", "ben",   "chiara", "dario", "elif", "farid", "greta", "hugo",
                              "ines", "jonas", "kira",   "luca",  "mila", "nils",  "olga",  "pavel",
                              "rosa", "samir", "tess",   "ugo",   "vera", "wim",   "yara",  "zoe"};
constexpr std::array things = {"phone", "laptop", "tablet", "watch", "tv"};

constexpr const char *network = "Lobby", *guest_network = "Lobby Guest";
constexpr int seconds_to_arrive = 8; // of a whole population
// Signals at which a client prefers the other radio: the 5 GHz of radio 1 is faster, the 2.4 GHz of radio 0
// reaches farther.
constexpr int weak_on_radio_1 = -72;
constexpr int strong_on_radio_0 = -56;

std::string name_of(int number) {
    const auto n = static_cast<std::size_t>(number);
    std::string name = std::string(names[n % names.size()]) + "-" + things[n / names.size() % things.size()];
    if (const std::size_t round = n / (names.size() * things.size()); round > 0)
        name += std::to_string(round + 1);
    return name;
}

mac_address mac_of(int number) {
    return {
        {0x02, 0x60, 0x00, 0x00, static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)}};
}

std::string ip_of(int number) {
    return "10.60." + std::to_string(number / 250) + "." + std::to_string(number % 250 + 2);
}

} // namespace

std::string population::person::ifname() const { return ifname_of(radio) + (guest ? "1" : ""); }

void population::start(int count, std::uint64_t seed, int guests) {
    wanted_ = count;
    guests_ = guests;
    if (count > 0) {
        random_ = random_numbers(seed);
        return;
    }
    for (const person &one : people_) leave(one);
    people_.clear();
    (void)air_.leases.write();
}

void population::advance() {
    if (wanted_ == 0) return;
    const std::size_t before = people_.size();
    for (person &one : people_) live(one);
    std::erase_if(people_, [](const person &one) { return one.mac.empty(); });
    bool changed = people_.size() != before;
    const int missing = wanted_ - static_cast<int>(people_.size());
    for (int i = 0; i < std::min(missing, 1 + wanted_ / seconds_to_arrive); ++i, changed = true) arrive();
    while (static_cast<int>(people_.size()) > wanted_) {
        leave(people_.back());
        people_.pop_back();
        changed = true;
    }
    if (changed) (void)air_.leases.write(); // without a lease file there are no names
}

void population::arrive() {
    int number = next_number_;
    if (free_numbers_.empty())
        ++next_number_;
    else
        number = free_numbers_
                     .extract(std::next(free_numbers_.begin(),
                                        random_.between(0, static_cast<int>(free_numbers_.size()) - 1)))
                     .value();
    const int radio = random_.between(0, 2) > 0;
    const mac_address mac = mac_of(number);
    const person &one =
        people_.emplace_back(person{mac.text(), number, radio, guests_ > 0 && number % guests_ == 0});
    air_.leases.set(mac.text(), ip_of(number), name_of(number));
    station client(mac, radio, one.ifname(), one.guest ? guest_network : network);
    client.random = random_.branch();
    client.signal_goal = random_.between(-80, -38);
    client.basic.rssi = static_cast<std::int8_t>(client.signal_goal);
    client.event.repeater = random_.once_in(40);
    air_.associate(client);
}

void population::live(person &one) {
    station *client = air_.stations.find(one.mac, one.radio);
    if (!client) { // a command has removed it
        air_.leases.remove(one.mac);
        free_numbers_.insert(one.number);
        one.mac.clear();
        return;
    }
    if (client->signal() == client->signal_goal && random_.once_in(12))
        client->signal_goal = random_.between(-88, -35);
    if (random_.once_in(20)) {
        constexpr unsigned demands[][2] = {{0, 0}, {2, 10}, {80, 600}, {300, 6'000}, {4'000, 3'000}};
        const auto &demand = demands[random_.between(0, std::ssize(demands) - 1)];
        client->demand_up = demand[0];
        client->demand_down = demand[1];
    }
    const int signal = client->signal();
    const bool roams = one.radio == 1 ? signal < weak_on_radio_1 : signal > strong_on_radio_0;
    if (roams && random_.once_in(5)) {
        one.radio = 1 - one.radio;
        air_.roam(*client, one.ifname(), one.radio);
    } else if (random_.once_in(400)) {
        leave(one);
        one.mac.clear();
    }
}

void population::leave(const person &one) {
    air_.leases.remove(one.mac);
    free_numbers_.insert(one.number);
    constexpr int reasons[] = {reason_disassociated_by_station, reason_deauthenticated_by_station,
                               reason_signal_too_low};
    const int reason = reasons[random_.between(0, std::ssize(reasons) - 1)];
    // A radio that still lists the client after a roam drops it as well.
    for (int radio : {1 - one.radio, one.radio})
        if (const station *client = air_.stations.find(one.mac, radio)) air_.disassociate(*client, reason);
}
