// station_event.h - the wireless driver's station event: the payload of one netlink attribute, 464 bytes,
// little-endian, natural alignment. Shared by the daemon, which decodes it, and the lab, which encodes it.
//
// Source: the driver's event structure. Bytes that no row names belong to the driver and are not read.
#pragma once

#include "protocol/wire.h"

#include <cstdint>
#include <span>

inline constexpr std::size_t station_event_size = 464;
// netlink header 16 + generic netlink header 4 + attribute header 4
inline constexpr std::size_t station_event_offset = 24;
inline constexpr const char *station_event_family = "TK_STA";
inline constexpr int station_event_cmd = 2; // generic netlink command of an event

// clang-format off
// NUM(type, field, offset)   TEXT(field, offset, bytes on the wire)
#define STATION_EVENT_FIELDS(NUM, TEXT)                                                              \
    NUM(std::uint32_t, assoc, 0)            /* 1 associated, 0 disassociated */                      \
    TEXT(ssid, 10, 130)                                                                              \
    NUM(std::uint32_t, time_stamp, 140)     /* wall clock, seconds */                                \
    NUM(std::int32_t, radio_id, 144)                                                                 \
    TEXT(ifname, 154, 20)                                                                            \
    NUM(std::int32_t, off_reason_code, 176)                                                          \
    NUM(std::int32_t, time_delay, 180)                                                               \
    NUM(std::int32_t, floornoise, 188)                                                               \
    NUM(std::int32_t, utilization, 192)     /* 0 to 255 */                                           \
    NUM(std::uint32_t, maxRate, 196)        /* Mbit/s */                                             \
    TEXT(version, 200, 8)                                                                            \
    NUM(std::int32_t, sta_rxrate, 208)                                                               \
    NUM(std::int32_t, sta_txrate, 212)                                                               \
    NUM(std::uint64_t, sta_rxbyte, 216)                                                              \
    NUM(std::uint64_t, sta_txbyte, 224)                                                              \
    NUM(std::int32_t, channel, 232)                                                                  \
    NUM(std::int8_t, is_reassoc, 236)       /* 2 on a disassociation: the station roams to another AP */ \
    NUM(std::int8_t, rssi, 237)             /* dBm */                                                \
    NUM(std::uint8_t, roam_enable, 238)                                                              \
    NUM(std::uint8_t, repeater, 239)        /* 1: the station is a wireless repeater */              \
    NUM(std::uint32_t, txper, 240)                                                                   \
    NUM(std::uint32_t, rxper, 244)                                                                   \
    NUM(std::uint8_t, supportSTBC, 248)                                                              \
    NUM(std::uint8_t, supportSGI, 249)                                                               \
    NUM(std::uint8_t, maxMCS, 250)                                                                   \
    NUM(std::uint8_t, maxBW, 251)                                                                    \
    NUM(std::uint8_t, FCAP, 252)                                                                     \
    NUM(std::uint8_t, fromDS, 253)                                                                   \
    NUM(std::uint8_t, toDS, 254)                                                                     \
    NUM(std::uint32_t, cost_assoc_req, 256)                                                          \
    NUM(std::uint32_t, cost_auth_req, 260)                                                           \
    NUM(std::uint32_t, cost_msg2, 264)                                                               \
    NUM(std::uint32_t, cost_msg4, 268)                                                               \
    NUM(std::uint32_t, onesecrxbyte, 272)                                                            \
    NUM(std::uint32_t, onesectxbyte, 276)                                                            \
    NUM(std::uint32_t, txBcast, 280)        /* low words of 64-bit slots: the record keeps 32 bits */ \
    NUM(std::uint32_t, txMcast, 288)                                                                 \
    NUM(std::uint32_t, txPkt, 296)                                                                   \
    TEXT(ap_auth_req, 304, 32)                                                                       \
    TEXT(ap_assoc_req, 336, 32)                                                                      \
    TEXT(key_start, 368, 32)                                                                         \
    TEXT(key_msg2, 400, 32)                                                                          \
    TEXT(key_end, 432, 32)
// clang-format on

inline constexpr std::size_t station_event_mac_offset = 4;

// One event, decoded. Every text has one byte more than its field on the wire and is always terminated.
struct station_event {
    std::uint8_t mac[6];
#define STATION_EVENT_NUM(type, field, off) type field;
#define STATION_EVENT_TEXT(field, off, len) char field[(len) + 1];
    STATION_EVENT_FIELDS(STATION_EVENT_NUM, STATION_EVENT_TEXT)
#undef STATION_EVENT_NUM
#undef STATION_EVENT_TEXT
};

#define STATION_EVENT_NUM(type, field, off) static_assert((off) + sizeof(type) <= station_event_size);
#define STATION_EVENT_TEXT(field, off, len) static_assert((off) + (len) <= station_event_size);
STATION_EVENT_FIELDS(STATION_EVENT_NUM, STATION_EVENT_TEXT)
#undef STATION_EVENT_NUM
#undef STATION_EVENT_TEXT

// Decodes the event in `bytes`. The driver's structure has a fixed size: the caller passes all of it, with
// zeros where the message was short.
inline void station_event_decode(std::span<const std::uint8_t, station_event_size> bytes,
                                 station_event &event) noexcept {
    std::memcpy(event.mac, bytes.data() + station_event_mac_offset, sizeof(event.mac));
#define STATION_EVENT_NUM(type, field, off) event.field = wire::get<type>(bytes.data() + (off));
#define STATION_EVENT_TEXT(field, off, len) wire::get_text(event.field, bytes.data() + (off));
    STATION_EVENT_FIELDS(STATION_EVENT_NUM, STATION_EVENT_TEXT)
#undef STATION_EVENT_NUM
#undef STATION_EVENT_TEXT
}

// The reverse, for programs that act as the driver. Texts are written without a terminator when they fill their
// field.
inline void station_event_encode(const station_event &event,
                                 std::span<std::uint8_t, station_event_size> bytes) noexcept {
    std::memset(bytes.data(), 0, bytes.size());
    std::memcpy(bytes.data() + station_event_mac_offset, event.mac, sizeof(event.mac));
#define STATION_EVENT_NUM(type, field, off) wire::put<type>(bytes.data() + (off), event.field);
#define STATION_EVENT_TEXT(field, off, len) wire::put_text(bytes.data() + (off), event.field, len);
    STATION_EVENT_FIELDS(STATION_EVENT_NUM, STATION_EVENT_TEXT)
#undef STATION_EVENT_NUM
#undef STATION_EVENT_TEXT
}
