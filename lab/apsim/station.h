// station.h - the driver's own list of associated stations, with figures that change over time.
#pragma once

#include "apsim/random.h"
#include "apsim/station_fields.h"

#include <json-c/json.h>
#include <list>
#include <set>
#include <string>
#include <vector>

// One station on one radio. After a roam a client may be on both for a while: the old radio keeps it until
// it is asked to drop it.
struct station {
    std::string mac;
    int radio;
    station_event event; // identity, and the fields that only events have
    driver_basic basic;
    driver_extended extended;
    std::set<std::string, std::less<>> by_hand; // fields that were set by a command: they keep their values
    int signal_goal;                            // dBm the signal moves towards
    unsigned demand_up;                         // kbit/s, from the station
    unsigned demand_down;                       // kbit/s, to it
    random_numbers random;                      // for its own figures

    // A station with ordinary figures.
    station(const mac_address &address, int on_radio, std::string_view ifname, std::string_view ssid);

    int signal() const { return basic.rssi; } // dBm

    // Sets a field of every record that has it, and keeps the value from then on.
    field_result set(std::string_view name, std::string_view text);

    // The event of the station's association (1) or disassociation (0), with the current time.
    station_event happening(std::uint32_t assoc) const;

    json_object *json() const; // the caller owns it
};

// Interface of a radio and radio of an interface, by default: ath0 and ath01 belong to radio
// 0, ath1 and ath11 to radio 1.
std::string ifname_of(int radio);
int radio_of(std::string_view ifname);

class station_table {
public:
    using stations = std::list<station>;

    explicit station_table(std::uint64_t seed) : seed_(seed), air_(seed) {}

    // The newest association of this client (on this radio); null when there is none.
    station *find(std::string_view mac);
    station *find(std::string_view mac, int radio);
    // Adds the station in place of one with the same client and radio.
    station &add(station added);
    bool remove(std::string_view mac, int radio);
    // Stations of this interface's radio, in the order of arrival: a driver lists all networks of a radio together. The
    // radio is that of a station on the interface; without one it is radio_of(), if the name is an access point's.
    std::vector<const station *> with(std::string_view ifname) const;

    const stations &all() const { return stations_; }

    // One second goes by.
    void advance();

private:
    static void advance(station &one, int noise, int utilization);

    std::uint64_t seed_;
    random_numbers air_;
    stations stations_;
    int noise_[2] = {-95, -100};    // dBm, by radio
    int utilization_[2] = {60, 30}; // 0 to 255
};
