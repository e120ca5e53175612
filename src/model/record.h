// record.h - the station record: one fixed-size block per client, keyed by its `mac` text.
//
// Owns:   `name` (from the counting allocator, may be null). Everything else is in the block.
// Units:  clocks and *_ts seconds and nanoseconds, oltime seconds, maxRate Mbit/s, wifi_* and uplink_* bytes,
//         rssi dBm; the other figures are the driver's own.
// Texts:  always terminated. On 32-bit hosts with 8-byte alignment of 64-bit words the record begins in memory as
//         the collector's image (outputs/report.cpp proves it field by field).
#pragma once

#include "base/cxx/ubox.h"

#include <cstdint>

// 32-bit clock words, as the collector's image has them.
struct sta_clock {
    std::int32_t sec;
    std::int32_t nsec;
};

// A station's status; only model/state writes it. In a record outside the table it means nothing.
enum sta_status : std::uint16_t {
    sta_status_online = 1, // has address, name and figures; counted, reported every log-up period
    sta_status_added = 2,  // associated or restored; waits for its first five-second pass
};

inline constexpr std::uint32_t sta_name_size = 32; // size of a name buffer

struct sta_info_t {
    struct list_head list; // link in g_sta_sta_master; first member
    char ssid[128];
    char ifname[20]; // wireless interface; empty when not reported
    char mac[20];    // 17 characters, lower case, colons: the table's key
    char ip[17];     // "0.0.0.0" while no address is known; empty until the first pass
    char power[11];  // at most 7 characters
    char *name;
    std::uint16_t status;
    sta_clock online_clock; // monotonic, when the record was made; zero in a restored record
    sta_clock online_ts;    // wall clock of the association, from the driver
    sta_clock offline_ts;
    std::int32_t oltime;
    std::uint64_t work_up; // working counters, cleared when the station comes online
    std::uint64_t work_down;
    std::int32_t flow_rateup;
    std::int32_t flow_ratedown;
    std::uint64_t wifi_up;
    std::uint64_t wifi_down;
    std::uint64_t uplink_up;
    std::uint64_t uplink_down;
    std::uint16_t log_type; // kind of the last report
    std::uint8_t restored;  // from the backup file and not yet confirmed by a driver event
    std::uint8_t no_backup; // never written to the backup file
    std::uint8_t third_flag;
    std::int32_t radio_id;
    std::int32_t reason_code;
    char reason[52];
    std::int32_t time_delay;
    std::int32_t pkt_loserate;
    std::int32_t floornoise;
    std::int32_t utilization; // per cent from an event, the driver's own figure from a table
    std::uint32_t maxRate;
    char version[8]; // at most 5 characters
    std::int32_t channel;
    std::int8_t is_reassoc;
    char ap_mac[23]; // at most 20 bytes, with the line feed of its source
    std::int32_t vlanid;
    std::int32_t load_uptime; // system uptime at which the driver last listed the station
    std::uint8_t roam_enable;
    std::int8_t repeater_type; // 1: wireless repeater
    std::int8_t rssi;
    char before_ip[17];
    std::uint32_t dhcp_update_time; // low word of the wall clock in microseconds
    std::int8_t single_log_up_cnt;  // passes of the one-second log-up since the association, up to 3
    std::int32_t wlanid;
    std::uint32_t txper;
    std::uint32_t rxper;
    std::uint32_t txPkt;
    std::uint32_t txBcast;
    std::uint32_t txMcast;
    std::int32_t supportSTBC;
    std::int32_t supportSGI;
    std::int32_t maxMCS;
    std::int32_t maxBW;
    std::int32_t FCAP;
    std::int32_t fromDS;
    std::int32_t toDS;
    std::uint32_t cost_assoc_req;
    std::uint32_t cost_auth_req;
    std::uint32_t cost_msg2;
    std::uint32_t cost_msg4;
    std::uint32_t onesecrxbyte;
    std::uint32_t onesectxbyte;
    char ap_auth_req[32];
    char ap_assoc_req[32];
    char key_start[32];
    char key_msg2[32];
    char key_end[32];
    // Not in the image; shown by the object `wsmd` alone.
    char protocol[8];          // of the network where the station is now: `version` stays that of the first
    std::uint32_t driver_rate; // Mbit/s, from the driver: a notification may set `maxRate` to 0
};
