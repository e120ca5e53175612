// departures.h - the newest departures: who left, when and why. Nothing is made up: what the driver did not say is
// "not known".
//
// Memory: plain malloc, growing with the departures up to the ring's size; without memory a departure is only counted.
#pragma once

#include "model/record.h"

// Who or what ended a stay.
enum class departure_cause : std::uint8_t {
    unknown,
    station,      // it disassociated or deauthenticated
    access_point, // deauthenticated or disassociated by the access point
    idle,         // the access point had received nothing from it for too long
    kick,         // somebody asked the daemon to disconnect it
    roam,         // it went to another access point
    unlisted,     // the driver has not listed it for five minutes
    swept,        // restored after a restart, and not confirmed since
};

struct station_departure {
    char mac[18];
    char name[sta_name_size]; // empty: not known
    char ip[17];              // empty: not known
    char ssid[33];
    char ifname[20];
    std::int32_t radio_id;
    std::int32_t channel;
    std::int64_t came;        // seconds since 1970; 0: not known
    std::int64_t left;        // seconds since 1970
    std::int32_t lasted;      // seconds; -1: not known
    std::int32_t reason_code; // 0: none was given
    const char *reason;       // its name, static
    std::uint64_t rx_bytes;   // from the station
    std::uint64_t tx_bytes;
    std::int8_t signal; // dBm, the last one; 0: not known
    departure_cause ended_by;
    bool inferred; // from the station's absence, not from an event
};

// Their names on the bus.
const char *departure_cause_name(departure_cause cause) noexcept;
const char *departure_known_from(const station_departure &departure) noexcept;

inline constexpr std::uint32_t departures_default = 128;
inline constexpr std::uint32_t departures_most = 4096;

// Sets how many are kept, at most departures_most. The newest stay.
void sta_departures_keep(std::uint32_t entries) noexcept;

void sta_departures_add(const station_departure &departure) noexcept;

// The `index`-th newest one, counted from 0; null after the last. Valid until the next departure.
const station_departure *sta_departures_newest(std::size_t index) noexcept;

// Departures since the start, including those that are no longer kept.
std::uint32_t sta_departures_total() noexcept;

// Somebody has asked to disconnect this station: the departure that follows is a kick.
void sta_departures_kick(const char *mac) noexcept;

// Whether a kick was asked for within the last 30 seconds. The request is then forgotten.
bool sta_departures_take_kick(const char *mac) noexcept;

// Back to the state at start. For tests.
void sta_departures_forget() noexcept;
