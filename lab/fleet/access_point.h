// access_point.h - one access point of a fleet: a simulated population, and the reports that a daemon would send about it.
//
// Each visit of a client has a MAC that is unique in the fleet, as with telephones that use random MACs, so each stay has its
// own MAC. A client that roams between the radios keeps it.
#pragma once

#include "apsim/population.h"
#include "apsim/simulator.h"
#include "collector/received.h"

#include <functional>
#include <map>
#include <string>
#include <utility>

struct access_point_plan {
    int number; // from 1, of the fleet
    int stations;
    std::uint64_t seed;
    int period; // seconds between two reports of a station
};

class access_point {
public:
    // `departed`: the report ends the station's stay.
    using handler = std::function<void(received &&report, bool departed)>;
    access_point(const access_point_plan &plan, handler send);

    // One second passes; `when` is the time after it, in seconds since 1970.
    void advance(std::int64_t when);

private:
    struct visit {
        std::string mac, ip;
        std::int64_t began;
        station last;        // as last reported
        std::int32_t online; // seconds, as the driver counts them
    };
    void tell(const visit &of, report_kind kind, std::int64_t when);
    void arrive(const station &now_is, std::int64_t when);

    access_point_plan plan_;
    handler send_;
    std::string mac_, boot_;
    std::uint64_t seq_ = 0;
    std::uint32_t visits_ = 0;
    simulator air_;
    population people_;
    std::map<std::string, visit> here_; // by the population's MAC, which is used again later
};
