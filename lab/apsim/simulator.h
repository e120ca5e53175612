// simulator.h - the driver and its surroundings. The control socket, the driver requests
// and the population all work through this.
#pragma once

#include "apsim/driver_requests.h"
#include "apsim/event_sender.h"
#include "apsim/lease_file.h"
#include "apsim/station.h"

// off_reason_code of an event
inline constexpr int reason_disassociated_by_station = 308;
inline constexpr int reason_deauthenticated_by_station = 307;
inline constexpr int reason_dropped = 310;
inline constexpr int reason_signal_too_low = 301;

struct simulator {
    event_sender channel;
    station_table stations;
    driver_requests requests;
    lease_file leases;

    simulator(std::uint16_t family, std::uint64_t seed, const std::string &lease_path)
        : channel(family), stations(seed),
          requests(stations, [this](const station &asked) { disassociate(asked, reason_dropped); }),
          leases(lease_path) {}
    simulator(simulator &&) = delete;

    // Adds the station and sends `event` about it; returns how many listeners there are. So do the others.
    std::size_t associate(const station &added, const station_event &event);
    std::size_t associate(const station &added) { return associate(added, added.happening(1)); }
    // Removes the station from its radio.
    std::size_t disassociate(const station &gone, const station_event &event);
    std::size_t disassociate(const station &gone, int reason);
    // The client appears on another interface. Another radio that lists it keeps it until it is asked to drop
    // it.
    std::size_t roam(const station &from, std::string_view ifname, int radio);
    // Every client associates again where it is, as after a restart of the radios.
    std::size_t again();
};
