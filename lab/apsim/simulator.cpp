#include "apsim/simulator.h"

std::size_t simulator::associate(const station &added, const station_event &event) {
    stations.add(added);
    return channel.send(event);
}

std::size_t simulator::disassociate(const station &gone, const station_event &event) {
    const std::string mac = gone.mac; // `gone` is usually the table's own
    stations.remove(mac, gone.radio);
    return channel.send(event);
}

std::size_t simulator::disassociate(const station &gone, int reason) {
    station_event event = gone.happening(0);
    event.off_reason_code = reason;
    return disassociate(gone, event);
}

std::size_t simulator::roam(const station &from, std::string_view ifname, int radio) {
    const std::optional<mac_address> mac = mac_address::parse(from.mac);
    station there(*mac, radio, ifname, from.event.ssid);
    there.by_hand = from.by_hand;
    there.signal_goal = from.signal_goal;
    there.demand_up = from.demand_up;
    there.demand_down = from.demand_down;
    there.random = from.random;
    there.event.repeater = from.event.repeater;
    there.basic.rssi = from.basic.rssi;
    there.basic.is_reassoc = 1;
    return associate(there);
}

std::size_t simulator::again() {
    std::size_t listeners = 0;
    for (const station &one : stations.all()) {
        if (stations.find(one.mac) != &one) continue; // an old radio after a roam
        station_event event = one.happening(1);
        event.is_reassoc = 1;
        listeners = channel.send(event);
    }
    return listeners;
}
