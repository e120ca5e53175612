// station_change.h - a driver's event in the daemon's terms: an association or disassociation, in the record's units.
//
// Source: protocol/station_event.h. A driver with events of another layout needs another decoder and nothing else.
#pragma once

#include "protocol/station_event.h"

#include <cstdint>
#include <span>

enum class station_change_kind {
    none,  // an event of another kind
    comes, // associated
    goes,  // disassociated
    moves, // disassociated, and roams to another access point: its record stays until the driver reports its departure
};

// Texts are terminated; `figures` has the counters, capabilities and texts that are taken as they are.
struct station_change {
    station_change_kind kind;
    char mac[18];             // "aa:bb:cc:dd:ee:ff"
    std::int32_t time;        // wall clock, seconds
    std::int8_t rssi;         // dBm; a reading below -94 counts as -65
    std::int8_t reading;      // the rssi before that correction
    std::int32_t utilization; // per cent
    int wlanid;               // the number in the interface's name; -1: there is none
    bool repeater;            // a wireless repeater, by the event or by its SSID
    station_event figures;
};

// Decodes an event and logs it, level 7, in the name of `function`.
void station_change_decode(const char *function, std::span<const std::uint8_t, station_event_size> bytes,
                           station_change &change) noexcept;
