// summary.h - a summary of a sequence of reports for each station.
#pragma once

#include "protocol/station_report.h"

#include <cstdint>
#include <map>
#include <string>

// A session lasts from an arrival to the departure, or to an arrival with another time of association.
class summary {
public:
    void add(const station_report &sta);
    // One line per station, in order of their MACs, under a heading.
    std::string text() const;

private:
    struct history {
        unsigned reports = 0;
        unsigned sessions = 0;
        unsigned roams = 0;
        std::int64_t seconds = 0; // of sessions that are over
        std::uint64_t up = 0;     // bytes, of sessions that are over
        std::uint64_t down = 0;
        bool online = false;
        std::int32_t since = 0;           // wall clock of the association
        std::int64_t current_seconds = 0; // of the current session
        std::uint64_t current_up = 0;
        std::uint64_t current_down = 0;
        std::map<std::string, unsigned> reasons;
        void end_session();
    };
    std::map<std::string, history> stations_;
};
