// stay.h - a station's stay: from arrival to departure, over all radios and access points it moved between.
// Texts of the report are escaped (protocol/escape.h): valid UTF-8 without control characters.
#pragma once

#include "collector/received.h"

#include <string>
#include <vector>

enum class presence {
    here,
    leaving, // its departure was reported; it may come back within the grace time
    moving,  // it has left one radio for another that has not reported it yet
    gone,
};

struct stay_address {
    std::string ip;
    moment first = 0;
    moment last = 0;
    bool operator==(const stay_address &) const = default;
};

struct signal_range { // dBm
    int last = 0;
    int least = 0;
    int most = 0;
    std::int64_t sum = 0;
    std::int64_t count = 0; // 0: none was reported, the other members mean nothing
    bool operator==(const signal_range &) const = default;
};

struct byte_counter {
    std::uint64_t total = 0; // over the whole stay
    std::uint64_t raw = 0;   // as the driver last reported it
    bool operator==(const byte_counter &) const = default;
};

struct stay {
    std::int64_t id = 0;
    std::string mac;
    presence state = presence::here;
    // Where it is, or was last.
    std::string ap; // MAC of the access point; empty: not reported
    int radio = 0;
    int channel = 0;
    std::string ssid;
    std::string ifname;
    std::int32_t association =
        0; // the access point's clock at the association, seconds: distinguishes associations
    // Times are the access point's where they are plausible, otherwise times of receipt.
    moment began = 0;
    moment seen = 0;  // receipt of the last report
    moment ended = 0; // 0 while it is open
    // The departure, while leaving and afterwards.
    int reason_code = 0;
    std::string reason;
    std::string ended_by; // departures.h
    unsigned roams = 0;   // to another radio or access point
    unsigned returns = 0; // came back within the grace time, or associated again
    unsigned reports = 0;
    signal_range signal;
    byte_counter up;
    byte_counter down;
    int rate_up = 0; // Mbit/s
    int rate_down = 0;
    unsigned max_rate = 0; // Mbit/s
    int noise = 0;         // dBm; 0: not reported
    int utilization = 0;
    std::string version; // such as "11ax"
    bool repeater = false;
    std::vector<stay_address> addresses; // newest last
    bool operator==(const stay &) const = default;
};

enum class change_kind { joined, updated, roamed, returned, leaving, left };

const char *change_name(change_kind kind);
const char *presence_name(presence state);

// A change of a stay, by a report or by the passing of time.
struct change {
    change_kind kind = change_kind::updated;
    moment at = 0;
    stay now;            // after the change
    std::string from_ap; // roamed: where it was before
    int from_radio = 0;
};
