// schema.h - the tables of the store. Times are microseconds since 1970, texts are escaped (protocol/escape.h).
//
// A new version is a new entry at the end: it is run on files of the version before it. An entry is never changed.
#pragma once

// clang-format off
inline constexpr const char *schema_versions[] = {
    // 1
    R"(CREATE TABLE stay(id INTEGER PRIMARY KEY, mac TEXT NOT NULL, state INTEGER NOT NULL, ap TEXT NOT NULL,
         radio INTEGER NOT NULL, channel INTEGER NOT NULL, ssid TEXT NOT NULL, ifname TEXT NOT NULL,
         association INTEGER NOT NULL, began INTEGER NOT NULL, seen INTEGER NOT NULL, ended INTEGER,
         reason_code INTEGER NOT NULL, reason TEXT NOT NULL, ended_by TEXT NOT NULL, roams INTEGER NOT NULL,
         returns INTEGER NOT NULL, reports INTEGER NOT NULL, signal INTEGER, signal_least INTEGER, signal_most INTEGER,
         signal_sum INTEGER NOT NULL, signal_count INTEGER NOT NULL, up INTEGER NOT NULL, down INTEGER NOT NULL,
         raw_up INTEGER NOT NULL, raw_down INTEGER NOT NULL, rate_up INTEGER NOT NULL, rate_down INTEGER NOT NULL,
         max_rate INTEGER NOT NULL, version TEXT NOT NULL, repeater INTEGER NOT NULL);
       CREATE INDEX stay_of_station ON stay(mac, began);
       CREATE INDEX stay_by_end ON stay(ended);
       CREATE TABLE address(stay INTEGER NOT NULL, ip TEXT NOT NULL, first INTEGER NOT NULL, last INTEGER NOT NULL,
         PRIMARY KEY(stay, ip)) WITHOUT ROWID;
       CREATE TABLE event(id INTEGER PRIMARY KEY, at INTEGER NOT NULL, kind TEXT NOT NULL, stay INTEGER NOT NULL,
         ap TEXT NOT NULL, radio INTEGER NOT NULL, from_ap TEXT, from_radio INTEGER);
       CREATE INDEX event_of_stay ON event(stay);
       CREATE TABLE sample(id INTEGER PRIMARY KEY, at INTEGER NOT NULL, stay INTEGER NOT NULL, signal INTEGER,
         up INTEGER NOT NULL, down INTEGER NOT NULL, rate_up INTEGER NOT NULL, rate_down INTEGER NOT NULL);
       CREATE INDEX sample_of_stay ON sample(stay);)",
    // 2: what the radios report of the air
    R"(CREATE TABLE radio(id INTEGER PRIMARY KEY, at INTEGER NOT NULL, ap TEXT NOT NULL, radio INTEGER NOT NULL,
         stations INTEGER NOT NULL, noise INTEGER, utilization INTEGER NOT NULL);
       CREATE INDEX radio_by_time ON radio(at);
       CREATE INDEX stay_by_begin ON stay(began);)",
};
// clang-format on
