// frame.h - decoding the management frames and key frames that show a station's arrival and departure.
//
// Source: IEEE 802.11, 9.3.3 (management frames, little-endian) and IEEE 802.1X (EAPOL over Ethernet, big-endian).
#pragma once

#include "nl80211/mac.h"

#include <cstdint>
#include <span>

enum frame_subtype : std::uint8_t {
    frame_assoc_request = 0,
    frame_assoc_response = 1,
    frame_reassoc_request = 2,
    frame_reassoc_response = 3,
    frame_disassoc = 10,
    frame_auth = 11,
    frame_deauth = 12,
};

struct management_frame {
    frame_subtype subtype;
    mac_address to;
    mac_address from;
    std::uint16_t transaction;              // of an authentication
    std::uint16_t status;                   // of an authentication or a response
    std::uint16_t reason;                   // of a deauthentication or disassociation
    std::span<const std::uint8_t> elements; // of a request or response; part of the decoded bytes
};

// False for other frames and for frames that are too short.
bool management_frame_decode(std::span<const std::uint8_t> bytes, management_frame &frame) noexcept;

// The number of the access point's message in the key exchange (Ethernet frame): 1 or 3, and its receiver. 0 for anything else.
int key_message_number(std::span<const std::uint8_t> ethernet, mac_address &to) noexcept;
