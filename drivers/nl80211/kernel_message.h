// kernel_message.h - decoding messages of the kernel's wireless configuration (nl80211).
//
// Source: <linux/nl80211.h>. Numbers are in host order. A value that is not in the message is 0, unless the field says otherwise.
#pragma once

#include "nl80211/mac.h"

#include <cstdint>
#include <span>

// Attribute STA_INFO: the kernel's figures of one station. "Received" is from the station.
struct station_figures {
    std::uint32_t inactive_ms;
    std::uint64_t associated_at; // ns of CLOCK_BOOTTIME; 0: never
    std::uint64_t rx_bytes;
    std::uint64_t tx_bytes;
    std::uint32_t tx_packets;
    std::uint32_t tx_failed;
    std::uint32_t rx_rate; // 100 kbit/s; 0: unknown
    std::uint32_t tx_rate;
    std::int8_t signal; // dBm; 0: unknown
    std::int8_t chain[4];
    bool authorized; // both flags are clear in the message of a removal
    bool associated;
};

struct kernel_message {
    enum what : std::uint8_t {
        other,
        station_added,
        station_removed,
        station, // an answer
        frame_sent,
        key_frame_sent,
        interface, // an answer, or a new or changed interface
        interface_removed,
        survey,
    };
    what kind;
    std::uint32_t ifindex;
    std::uint32_t generation; // of the list that the message belongs to
    mac_address mac;          // of the station or the interface
    bool has_mac;
    station_figures figures;
    std::span<const std::uint8_t> frame; // part of the decoded bytes
    bool acknowledged;                   // of a frame that was sent
    // An interface's:
    std::uint32_t wiphy;
    std::uint32_t type; // NL80211_IFTYPE_*
    char ifname[16];
    std::uint8_t ssid[32];
    std::uint8_t ssid_size;
    std::uint32_t frequency; // MHz; of a survey as well
    std::uint32_t width;     // NL80211_CHAN_WIDTH_*
    // A survey's:
    bool in_use;
    std::int8_t noise; // dBm; 0: unknown
    std::uint64_t time_ms;
    std::uint64_t busy_ms;
};

// Decodes the generic netlink message after a netlink header: `bytes` begin with the generic header. False when it is
// truncated, or lacks a necessary attribute.
bool kernel_message_decode(std::span<const std::uint8_t> bytes, kernel_message &message) noexcept;

// 2412 is 1, 5180 is 36, 5955 is 1; 0 for a frequency that is not a channel.
int channel_of(std::uint32_t frequency) noexcept;
