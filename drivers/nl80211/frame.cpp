#include "nl80211/frame.h"

namespace {

constexpr std::size_t body = 24; // after frame control, duration, three addresses and the sequence number

std::uint16_t word(std::span<const std::uint8_t> bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
}

// Where the elements begin, or the size of a body without elements.
std::size_t fixed_part(std::uint8_t subtype) {
    switch (subtype) {
    case frame_assoc_request: return body + 4;
    case frame_reassoc_request: return body + 10; // includes the old access point's address
    case frame_assoc_response:
    case frame_reassoc_response: return body + 6;
    case frame_auth: return body + 6;
    case frame_deauth:
    case frame_disassoc: return body + 2;
    default: return 0;
    }
}

} // namespace

bool management_frame_decode(std::span<const std::uint8_t> bytes, management_frame &frame) noexcept {
    if (bytes.size() < body || (bytes[0] & 0x0f) != 0) return false; // version 0, type management
    const auto subtype = static_cast<std::uint8_t>(bytes[0] >> 4);
    const std::size_t fixed = fixed_part(subtype);
    if (fixed == 0 || bytes.size() < fixed) return false;
    frame = {static_cast<frame_subtype>(subtype),
             mac_address::at(&bytes[4]),
             mac_address::at(&bytes[10]),
             0,
             0,
             0,
             {}};
    switch (subtype) {
    case frame_auth:
        frame.transaction = word(bytes, body + 2);
        frame.status = word(bytes, body + 4);
        break;
    case frame_assoc_response:
    case frame_reassoc_response: frame.status = word(bytes, body + 2); [[fallthrough]];
    case frame_assoc_request:
    case frame_reassoc_request: frame.elements = bytes.subspan(fixed); break;
    default: frame.reason = word(bytes, body); break;
    }
    return true;
}

int key_message_number(std::span<const std::uint8_t> ethernet, mac_address &to) noexcept {
    constexpr std::size_t type_at = 12, packet_at = 15, information_at = 19;
    constexpr std::uint8_t packet_key = 3;
    constexpr std::uint8_t has_mic = 0x01; // of the information's high byte; set in message 3, not in 1
    constexpr std::uint8_t pairwise = 0x08;
    if (ethernet.size() < information_at + 2) return 0;
    if (ethernet[type_at] != 0x88 || ethernet[type_at + 1] != 0x8e || ethernet[packet_at] != packet_key)
        return 0;
    if (!(ethernet[information_at + 1] & pairwise)) return 0;
    to = mac_address::at(ethernet.data());
    return ethernet[information_at] & has_mic ? 3 : 1;
}
