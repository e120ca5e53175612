// events.h - the driver's messages: those typed by hand (tests/golden/driver) with single fields changed.
#pragma once

#include "support/calls.h"

#include "life/driver_events.h"
#include "wlan/channel.h"

#include <algorithm>
#include <array>
#include <string_view>

inline constexpr int driver_family = 0x1c;
inline constexpr const char *event_mac = "00:11:22:33:44:ab";

// Offsets in a whole message, as in the golden files.
namespace at {
enum offset : std::size_t {
    type = 4,
    command = 16,
    assoc = 24,
    mac_bytes = 28,
    ssid = 34,
    radio_id = 168,
    ifname = 178,
    off_reason_code = 200,
    utilization = 216,
    version = 224,
    is_reassoc = 260,
    rssi = 261,
    repeater = 263,
    supportSTBC = 272,
    ap_auth_req = 328,
};
}

struct change {
    std::size_t offset;
    byte_vector bytes;
};

inline byte_vector text_bytes(std::string_view text, std::size_t size) {
    byte_vector bytes(size, 0);
    std::copy_n(text.begin(), std::min(size, text.size()), bytes.begin());
    return bytes;
}

inline byte_vector changed(byte_vector message, const std::vector<change> &changes) {
    for (const change &one : changes)
        std::copy(one.bytes.begin(), one.bytes.end(), message.begin() + static_cast<long>(one.offset));
    return message;
}

inline byte_vector association(const std::vector<change> &changes = {}) {
    return changed(golden("driver/association.hex"), changes);
}
inline byte_vector disassociation(const std::vector<change> &changes = {}) {
    return changed(golden("driver/disassociation.hex"), changes);
}

inline void handle(const byte_vector &message) {
    std::array<std::uint8_t, sta_nl_message_max> buffer{};
    const byte_vector bytes = turned(message, true);
    std::copy(bytes.begin(), bytes.end(), buffer.begin());
    sta_nl_handle(buffer, static_cast<long>(message.size()));
}

// An access point on which the golden events result in the golden reports.
struct Events : Channel {
    Events() {
        sta_nl = {-1, driver_family, 0x11223344};
        answer_sendto = [](const byte_vector &bytes) { return static_cast<long>(bytes.size()); };
        write_file("/proc/tk_sys/sys_mac", "02:00:00:00:00:99\n");
        write_file("/etc/config/wifiinfo", "config global 'global'\n\toption sdk 'mtk'\n");
        vlan("30");
    }
    static void vlan(const std::string &id) {
        write_file("/etc/config/wireless",
                   "config wifi-iface\n\toption ifname 'ath12'\n\toption vlanid '" + id + "'\n");
    }
    // The station after this association; null when there is none.
    sta_info_t *associate(const std::vector<change> &changes = {}) {
        handle(association(changes));
        return stations().empty() ? nullptr : stations().back();
    }
};

// What was logged in the handler's name.
inline std::vector<std::string> event_lines() { return lines_of("g_sta_recv_msg"); }
