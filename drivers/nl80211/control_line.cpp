#include "nl80211/control_line.h"

namespace {

bool take_prefix(std::string_view &text, std::string_view prefix) {
    if (!text.starts_with(prefix)) return false;
    text.remove_prefix(prefix.size());
    return true;
}

// Takes the first word and the space after it off `text`.
std::string_view take_word(std::string_view &text) {
    std::size_t length = 0;
    while (length < text.size() && text[length] != ' ' && text[length] != '\n') ++length;
    const std::string_view word(text.data(), length);
    text.remove_prefix(length < text.size() ? length + 1 : length);
    return word;
}

// False for an odd number of digits, other characters, or more than there is room for.
bool from_hex(std::string_view digits, std::span<std::uint8_t> room, std::size_t &size) {
    if (digits.size() % 2 != 0 || digits.size() / 2 > room.size()) return false;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        const int high = mac_address::digit(digits[i]);
        const int low = mac_address::digit(digits[i + 1]);
        if (high < 0 || low < 0) return false;
        room[i / 2] = static_cast<std::uint8_t>(high << 4 | low);
    }
    size = digits.size() / 2;
    return true;
}

struct event_name {
    std::string_view name;
    control_line::what kind;
};
constexpr event_name events_of_stations[] = {
    {"AP-STA-CONNECTED", control_line::connected},
    {"AP-STA-DISCONNECTED", control_line::disconnected},
};
constexpr event_name events_of_networks[] = {
    {"AP-DISABLED", control_line::disabled},
    {"INTERFACE-DISABLED", control_line::disabled}, // its interface was set down
    {"AP-ENABLED", control_line::enabled},
    {"CTRL-EVENT-TERMINATING", control_line::terminating},
};

} // namespace

control_line control_line_decode(std::string_view line,
                                 std::span<std::uint8_t, control_frame_max> room) noexcept {
    control_line decoded{};
    if (take_prefix(line, "IFNAME=")) decoded.ifname = take_word(line);
    if (!line.starts_with('<')) {
        const std::string_view answer = take_word(line);
        decoded.kind = answer == "OK"                     ? control_line::ok
                       : answer == "FAIL"                 ? control_line::fail
                       : answer == "PONG"                 ? control_line::pong
                       : answer == "FAIL-NO-IFNAME-MATCH" ? control_line::no_network
                                                          : control_line::other;
        return decoded;
    }
    while (!line.empty() && line[0] != '>') line.remove_prefix(1);
    take_prefix(line, ">");
    const std::string_view name = take_word(line);
    for (const event_name &one : events_of_networks)
        if (name == one.name) decoded.kind = one.kind;
    for (const event_name &one : events_of_stations)
        if (name == one.name && mac_address::parse(take_word(line), decoded.mac)) decoded.kind = one.kind;
    if (name == "AP-MGMT-FRAME-RECEIVED" && take_prefix(line, "buf=")) {
        std::size_t size = 0;
        if (from_hex(take_word(line), room, size)) {
            decoded.kind = control_line::frame_received;
            decoded.frame = room.first(size);
        }
    }
    if (name == "WDS-STA-INTERFACE-ADDED") {
        while (!line.empty()) {
            std::string_view word = take_word(line);
            if (take_prefix(word, "sta_addr=") && mac_address::parse(word, decoded.mac))
                decoded.kind = control_line::wds_interface;
        }
    }
    return decoded;
}
