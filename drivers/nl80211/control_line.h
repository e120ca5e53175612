// control_line.h - one message of hostapd's control interface.
//
// Source: hostapd's control interface: answers "OK", "FAIL", "PONG"; events "<LEVEL>NAME WORDS", with
// "IFNAME=NAME " before them on the global socket.
#pragma once

#include "nl80211/mac.h"

#include <cstdint>
#include <span>
#include <string_view>

struct control_line {
    enum what : std::uint8_t {
        other, // including every event that is not about stations
        ok,
        fail,
        no_network, // answer of the global socket: no network of that name
        pong,
        connected,
        disconnected,
        frame_received, // `frame`
        wds_interface,  // the station `mac` sends with four addresses: it is a repeater
        disabled,
        enabled,
        terminating,
    };
    what kind;
    std::string_view ifname; // of the network, when the line names one
    mac_address mac;         // of a station's event
    std::span<const std::uint8_t> frame;
};

// The longest frame that hostapd reports.
inline constexpr std::size_t control_frame_max = 2304;

// `room` receives the frame's bytes. A malformed event is `other`.
control_line control_line_decode(std::string_view line,
                                 std::span<std::uint8_t, control_frame_max> room) noexcept;
