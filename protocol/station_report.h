// station_report.h - the collector's message: one station as a fixed image of 696 bytes, little-endian, without
// header or length prefix. The daemon writes it, collectors read it; struct, writer and reader expand the one list
// below.
//
// Source: the collector reads the daemon's record as a 32-bit device holds it in memory. The link of its list (bytes
//         0 to 7), the reference to its name (204 to 207) and all padding mean nothing to it and are zero.
// Units:  counters are bytes and packets since the association, as the driver gives them.
#pragma once

#include "protocol/wire.h"

#include <cstddef>
#include <cstdint>
#include <span>

inline constexpr std::size_t station_report_size = 696;

// log_type: why the report was sent.
enum report_kind : std::uint16_t {
    report_online = 1,
    report_offline = 2,
    report_update = 3, // periodic, or the early one after an association
    report_roamed = 4, // to the other radio
};

template <std::size_t N> using report_text = char[N];
// 32-bit clock words.
struct report_clock {
    std::int32_t sec;
    std::int32_t nsec;
};

// clang-format off
// F(type, field, offset)
#define STATION_REPORT_FIELDS(F)                                                                          \
    F(report_text<128>, ssid, 8)                                                                          \
    F(report_text<20>, ifname, 136)           /* wireless interface; empty when not reported */           \
    F(report_text<20>, mac, 156)              /* 17 characters, lower case, colons */                     \
    F(report_text<17>, ip, 176)               /* "0.0.0.0" while no address is known */                   \
    F(report_text<11>, power, 193)            /* dBm + 95, decimal text */                                \
    F(std::uint16_t, status, 208)             /* 1 online, 2 waiting for its first pass */                \
    F(report_clock, online_clock, 212)        /* monotonic; zero for one restored from the backup file */ \
    F(report_clock, online_ts, 220)           /* wall clock of the association */                         \
    F(report_clock, offline_ts, 228)          /* wall clock of the departure */                            \
    F(std::int32_t, oltime, 236)              /* seconds */                                               \
    F(std::uint64_t, work_up, 240)                                                                        \
    F(std::uint64_t, work_down, 248)                                                                      \
    F(std::int32_t, flow_rateup, 256)         /* 1024 for each Mbit/s */                                  \
    F(std::int32_t, flow_ratedown, 260)       /* likewise */                                              \
    F(std::uint64_t, wifi_up, 264)            /* bytes */                                                 \
    F(std::uint64_t, wifi_down, 272)          /* bytes */                                                 \
    F(std::uint64_t, uplink_up, 280)                                                                      \
    F(std::uint64_t, uplink_down, 288)                                                                    \
    F(std::uint16_t, log_type, 296)           /* report_kind */                                           \
    F(std::uint8_t, restored, 298)            /* from the backup file, not yet confirmed */               \
    F(std::uint8_t, no_backup, 299)                                                                       \
    F(std::uint8_t, third_flag, 300)                                                                      \
    F(std::int32_t, radio_id, 304)                                                                        \
    F(std::int32_t, reason_code, 308)         /* why the station left */                                  \
    F(report_text<52>, reason, 312)           /* its name */                                              \
    F(std::int32_t, time_delay, 364)                                                                      \
    F(std::int32_t, pkt_loserate, 368)                                                                    \
    F(std::int32_t, floornoise, 372)                                                                      \
    F(std::int32_t, utilization, 376)         /* per cent from an event, as it is from a table */         \
    F(std::uint32_t, maxRate, 380)            /* Mbit/s */                                                \
    F(report_text<8>, version, 384)                                                                       \
    F(std::int32_t, channel, 392)                                                                         \
    F(std::int8_t, is_reassoc, 396)                                                                       \
    F(report_text<23>, ap_mac, 397)           /* 20 bytes at most, line feed included */                  \
    F(std::int32_t, vlanid, 420)                                                                          \
    F(std::int32_t, load_uptime, 424)         /* system uptime when last listed by the driver */          \
    F(std::uint8_t, roam_enable, 428)                                                                     \
    F(std::int8_t, repeater_type, 429)        /* 1: wireless repeater */                                  \
    F(std::int8_t, rssi, 430)                 /* dBm */                                                   \
    F(report_text<17>, before_ip, 431)                                                                    \
    F(std::uint32_t, dhcp_update_time, 448)   /* low word of the wall clock in microseconds */            \
    F(std::int8_t, single_log_up_cnt, 452)                                                                \
    F(std::int32_t, wlanid, 456)                                                                          \
    F(std::uint32_t, txper, 460)                                                                          \
    F(std::uint32_t, rxper, 464)                                                                          \
    F(std::uint32_t, txPkt, 468)                                                                          \
    F(std::uint32_t, txBcast, 472)                                                                        \
    F(std::uint32_t, txMcast, 476)                                                                        \
    F(std::int32_t, supportSTBC, 480)                                                                     \
    F(std::int32_t, supportSGI, 484)                                                                      \
    F(std::int32_t, maxMCS, 488)                                                                          \
    F(std::int32_t, maxBW, 492)                                                                           \
    F(std::int32_t, FCAP, 496)                                                                            \
    F(std::int32_t, fromDS, 500)                                                                          \
    F(std::int32_t, toDS, 504)                                                                            \
    F(std::uint32_t, cost_assoc_req, 508)                                                                 \
    F(std::uint32_t, cost_auth_req, 512)                                                                  \
    F(std::uint32_t, cost_msg2, 516)                                                                      \
    F(std::uint32_t, cost_msg4, 520)                                                                      \
    F(std::uint32_t, onesecrxbyte, 524)                                                                   \
    F(std::uint32_t, onesectxbyte, 528)                                                                   \
    F(report_text<32>, ap_auth_req, 532)                                                                  \
    F(report_text<32>, ap_assoc_req, 564)                                                                 \
    F(report_text<32>, key_start, 596)                                                                    \
    F(report_text<32>, key_msg2, 628)                                                                     \
    F(report_text<32>, key_end, 660)
// clang-format on

// One report, decoded. Texts are terminated.
struct station_report {
#define STATION_REPORT_FIELD(type, field, off) type field;
    STATION_REPORT_FIELDS(STATION_REPORT_FIELD)
#undef STATION_REPORT_FIELD
};

namespace station_report_layout {

struct slot {
    std::size_t off, len;
};
#define STATION_REPORT_SLOT(type, field, off) slot{off, sizeof(type)},
inline constexpr slot slots[] = {STATION_REPORT_FIELDS(STATION_REPORT_SLOT)};
#undef STATION_REPORT_SLOT

constexpr bool in_order() {
    std::size_t end = 0;
    for (const slot &one : slots) {
        if (one.off < end || one.off + one.len > station_report_size) return false;
        end = one.off + one.len;
    }
    return true;
}
static_assert(in_order(), "report fields overlap or leave the image");

template <class Int> void put(std::uint8_t *at, const Int &value) noexcept { wire::put<Int>(at, value); }
inline void put(std::uint8_t *at, const report_clock &clock) noexcept {
    wire::put(at, clock.sec);
    wire::put(at + sizeof(clock.sec), clock.nsec);
}
template <std::size_t N> void put(std::uint8_t *at, const char (&text)[N]) noexcept {
    std::memcpy(at, text, N);
}

template <class Int> void get(const std::uint8_t *at, Int &value) noexcept { value = wire::get<Int>(at); }
inline void get(const std::uint8_t *at, report_clock &clock) noexcept {
    clock.sec = wire::get<std::int32_t>(at);
    clock.nsec = wire::get<std::int32_t>(at + sizeof(clock.sec));
}
template <std::size_t N> void get(const std::uint8_t *at, char (&text)[N]) noexcept {
    wire::get_text(text, at);
}

} // namespace station_report_layout

// Writes the image; every byte of it is set. Text fields are copied whole, with the bytes after their terminator.
inline void station_report_encode(const station_report &report,
                                  std::span<std::uint8_t, station_report_size> image) noexcept {
    std::memset(image.data(), 0, image.size());
#define STATION_REPORT_PUT(type, field, off) station_report_layout::put(image.data() + (off), report.field);
    STATION_REPORT_FIELDS(STATION_REPORT_PUT)
#undef STATION_REPORT_PUT
}

// The reverse, for a collector. Texts are terminated even where the image's are not; the bytes after a terminator are zero.
inline void station_report_decode(std::span<const std::uint8_t, station_report_size> image,
                                  station_report &report) noexcept {
#define STATION_REPORT_GET(type, field, off) station_report_layout::get(image.data() + (off), report.field);
    STATION_REPORT_FIELDS(STATION_REPORT_GET)
#undef STATION_REPORT_GET
}
