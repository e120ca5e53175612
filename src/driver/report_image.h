// report_image.h - the collector's message: the station record as a fixed image of 696 bytes, little-endian,
// without header or length prefix. Writer, reader and tests expand the one list below.
//
// Source: the collector reads the record as a 32-bit device holds it in memory. The list link (bytes 0-7),
//         the name's memory reference (204-207) and all padding mean nothing to it and are zero.
#pragma once

#include "sta/sta_info.h"
#include "tools/wire.h"

#include <cstddef>
#include <span>

inline constexpr std::size_t sta_report_size = 696;

// clang-format off
// F(field of sta_info_t, offset, bytes)
#define STA_REPORT_FIELDS(F)                                                                          \
    F(ssid, 8, 128)            F(ifname, 136, 20)         F(mac, 156, 20)          F(ip, 176, 17)     \
    F(power, 193, 11)          F(status, 208, 2)          F(online_clock, 212, 8)                     \
    F(online_ts, 220, 8)       F(offline_ts, 228, 8)      F(oltime, 236, 4)                           \
    F(work_up, 240, 8)         F(work_down, 248, 8)       F(flow_rateup, 256, 4)                      \
    F(flow_ratedown, 260, 4)   F(wifi_up, 264, 8)         F(wifi_down, 272, 8)                        \
    F(uplink_up, 280, 8)       F(uplink_down, 288, 8)     F(log_type, 296, 2)                         \
    F(restored, 298, 1)        F(no_backup, 299, 1)       F(third_flag, 300, 1)                       \
    F(radio_id, 304, 4)        F(reason_code, 308, 4)     F(reason, 312, 52)                          \
    F(time_delay, 364, 4)      F(pkt_loserate, 368, 4)    F(floornoise, 372, 4)                       \
    F(utilization, 376, 4)     F(maxRate, 380, 4)         F(version, 384, 8)                          \
    F(channel, 392, 4)         F(is_reassoc, 396, 1)      F(ap_mac, 397, 23)                          \
    F(vlanid, 420, 4)          F(load_uptime, 424, 4)     F(roam_enable, 428, 1)                      \
    F(repeater_type, 429, 1)   F(rssi, 430, 1)            F(before_ip, 431, 17)                       \
    F(dhcp_update_time, 448, 4) F(single_log_up_cnt, 452, 1) F(wlanid, 456, 4)                        \
    F(txper, 460, 4)           F(rxper, 464, 4)           F(txPkt, 468, 4)                            \
    F(txBcast, 472, 4)         F(txMcast, 476, 4)         F(supportSTBC, 480, 4)                      \
    F(supportSGI, 484, 4)      F(maxMCS, 488, 4)          F(maxBW, 492, 4)                            \
    F(FCAP, 496, 4)            F(fromDS, 500, 4)          F(toDS, 504, 4)                             \
    F(cost_assoc_req, 508, 4)  F(cost_auth_req, 512, 4)   F(cost_msg2, 516, 4)                        \
    F(cost_msg4, 520, 4)       F(onesecrxbyte, 524, 4)    F(onesectxbyte, 528, 4)                     \
    F(ap_auth_req, 532, 32)    F(ap_assoc_req, 564, 32)   F(key_start, 596, 32)                       \
    F(key_msg2, 628, 32)       F(key_end, 660, 32)
// clang-format on

// log_type: why the report was sent
enum sta_log_type : std::uint16_t {
    sta_log_online = 1,
    sta_log_offline = 2,
    sta_log_update = 3, // periodic or single log-up
    sta_log_roamed = 4, // to the other radio
};

// Writes the image of `sta`; every byte of `image` is set.
void sta_report_encode(const sta_info_t *sta, std::span<std::uint8_t, sta_report_size> image) noexcept;

// The reverse, for a collector: fills `sta` (zeroed first; link and name stay null). Texts are terminated
// even where the image is not.
void sta_report_decode(std::span<const std::uint8_t, sta_report_size> image, sta_info_t *sta) noexcept;
