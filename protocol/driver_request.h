// driver_request.h - what is asked of the wireless driver through was_ext_ioctl_msg, and the layouts of the
// answers. Little-endian. Shared by the daemon and by the lab's driver simulator.
//
// Source: the driver's private request interface. Bytes that no row names belong to the driver.
#pragma once

#include "protocol/wire.h"

#include <cstdint>

enum driver_command : int {
    driver_station_table = 1, // header + entries; `Num` and the section mask are filled in before the call
    driver_roam_delete = 4,   // roam_delete_*: drop a station that has gone to the other radio
    driver_station_count = 5, // 1024 zero bytes; the answer is the count as decimal text
};

inline constexpr int driver_count_size = 1024;

// Station table: header, then the basic entries, then (mask bit 1) the extended entries in the same order.
inline constexpr std::size_t table_num_offset = 0;  // u32: entries asked for; after the call, entries filled
inline constexpr std::size_t table_mask_offset = 4; // u32
inline constexpr std::size_t table_header_size = 16;
inline constexpr unsigned table_basic = 1;    // section mask, bit 0
inline constexpr unsigned table_extended = 2; // section mask, bit 1
inline constexpr std::size_t table_basic_size = 160;
inline constexpr std::size_t table_extended_size = 224;

// clang-format off
#define DRIVER_BASIC_FIELDS(NUM, TEXT)                                     \
    TEXT(ssid, 16, 33)                                                     \
    TEXT(ifname, 49, 23)                                                   \
    NUM(std::int32_t, tx_time, 72)       /* thousandths of time_delay */   \
    NUM(std::int32_t, floornoise, 80)                                      \
    NUM(std::int32_t, utilization, 84)   /* taken as it is */              \
    NUM(std::uint32_t, maxRate, 88)                                        \
    NUM(std::uint32_t, rx_rate, 92)                                        \
    NUM(std::uint32_t, tx_rate, 96)                                        \
    NUM(std::uint64_t, rx_bytes, 104)                                      \
    NUM(std::uint64_t, tx_bytes, 112)                                      \
    NUM(std::int32_t, channel, 120)                                        \
    NUM(std::int8_t, is_reassoc, 124)                                      \
    NUM(std::int8_t, rssi, 125)          /* dBm */                         \
    NUM(std::int32_t, online_time, 128)  /* seconds */                     \
    NUM(std::int8_t, chain_rssi0, 132)                                     \
    NUM(std::int8_t, chain_rssi1, 133)                                     \
    NUM(std::int8_t, chain_rssi2, 134)                                     \
    NUM(std::int8_t, chain_rssi3, 135)                                     \
    NUM(std::int32_t, psm, 140)          /* power-save mode */

#define DRIVER_EXTENDED_FIELDS(NUM, TEXT)                                  \
    NUM(std::uint32_t, txper, 0)                                           \
    NUM(std::uint32_t, rxper, 4)                                           \
    NUM(std::uint8_t, supportSTBC, 8)                                      \
    NUM(std::uint8_t, supportSGI, 9)                                       \
    NUM(std::uint8_t, maxMCS, 10)                                          \
    NUM(std::uint8_t, maxBW, 11)                                           \
    NUM(std::uint8_t, FCAP, 12)                                            \
    NUM(std::uint8_t, fromDS, 13)                                          \
    NUM(std::uint8_t, toDS, 14)                                            \
    NUM(std::uint32_t, cost_assoc_req, 16)                                 \
    NUM(std::uint32_t, cost_auth_req, 20)                                  \
    NUM(std::uint32_t, cost_msg2, 24)                                      \
    NUM(std::uint32_t, cost_msg4, 28)                                      \
    NUM(std::uint32_t, onesecrxbyte, 32)                                   \
    NUM(std::uint32_t, onesectxbyte, 36)                                   \
    NUM(std::uint32_t, txBcast, 40)                                        \
    NUM(std::uint32_t, txMcast, 48)                                        \
    NUM(std::uint32_t, txPkt, 56)                                          \
    TEXT(ap_auth_req, 64, 32)                                              \
    TEXT(ap_assoc_req, 96, 32)                                             \
    TEXT(key_start, 128, 32)                                               \
    TEXT(key_msg2, 160, 32)                                                \
    TEXT(key_end, 192, 32)
// clang-format on

inline constexpr std::size_t basic_mac_offset = 4; // six raw bytes

#define DRIVER_NUM(type, field, off) type field;
#define DRIVER_TEXT(field, off, len) char field[(len) + 1];
// One basic entry, decoded; texts are terminated.
struct driver_basic {
    std::uint8_t mac[6];
    DRIVER_BASIC_FIELDS(DRIVER_NUM, DRIVER_TEXT)
};
// One extended entry, decoded; texts are terminated.
struct driver_extended {
    DRIVER_EXTENDED_FIELDS(DRIVER_NUM, DRIVER_TEXT)
};
#undef DRIVER_NUM
#undef DRIVER_TEXT

#define DRIVER_NUM(type, field, off) static_assert((off) + sizeof(type) <= table_basic_size);
#define DRIVER_TEXT(field, off, len) static_assert((off) + (len) <= table_basic_size);
DRIVER_BASIC_FIELDS(DRIVER_NUM, DRIVER_TEXT)
#undef DRIVER_NUM
#undef DRIVER_TEXT
#define DRIVER_NUM(type, field, off) static_assert((off) + sizeof(type) <= table_extended_size);
#define DRIVER_TEXT(field, off, len) static_assert((off) + (len) <= table_extended_size);
DRIVER_EXTENDED_FIELDS(DRIVER_NUM, DRIVER_TEXT)
#undef DRIVER_NUM
#undef DRIVER_TEXT

#define DRIVER_NUM(type, field, off) value.field = wire::get<type>(entry + (off));
#define DRIVER_TEXT(field, off, len) wire::get_text(value.field, entry + (off));
// Decode one entry: `entry` points to table_basic_size or table_extended_size readable bytes.
inline driver_basic driver_basic_decode(const std::uint8_t *entry) noexcept {
    driver_basic value;
    std::memcpy(value.mac, entry + basic_mac_offset, sizeof(value.mac));
    DRIVER_BASIC_FIELDS(DRIVER_NUM, DRIVER_TEXT)
    return value;
}
inline driver_extended driver_extended_decode(const std::uint8_t *entry) noexcept {
    driver_extended value;
    DRIVER_EXTENDED_FIELDS(DRIVER_NUM, DRIVER_TEXT)
    return value;
}
#undef DRIVER_NUM
#undef DRIVER_TEXT

#define DRIVER_NUM(type, field, off) wire::put<type>(entry + (off), value.field);
#define DRIVER_TEXT(field, off, len) wire::put_text(entry + (off), value.field, len);
// The reverse, for programs that act as the driver; `entry` points to zeroed bytes of the entry's size.
inline void driver_basic_encode(const driver_basic &value, std::uint8_t *entry) noexcept {
    std::memcpy(entry + basic_mac_offset, value.mac, sizeof(value.mac));
    DRIVER_BASIC_FIELDS(DRIVER_NUM, DRIVER_TEXT)
}
inline void driver_extended_encode(const driver_extended &value, std::uint8_t *entry) noexcept {
    DRIVER_EXTENDED_FIELDS(DRIVER_NUM, DRIVER_TEXT)
}
#undef DRIVER_NUM
#undef DRIVER_TEXT

// Roam-delete request: the station's MAC text, NUL-padded, and the radio it is dropped from.
inline constexpr std::size_t roam_delete_size = 24;
inline constexpr std::size_t roam_delete_mac_size = 20;
inline constexpr std::size_t roam_delete_radio_offset = 20; // i32
