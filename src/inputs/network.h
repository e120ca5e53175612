// network.h - what the system's configuration says about a station's network: its VLAN, and whether it is
// bridged elsewhere.
//
// Source: uci "wifiinfo.global.sdk" (chip family "mtk" or "qca"), the wireless package (g_path, sections
//         "wifi-iface") and "/etc/config/sysinfo". What was read is kept while the file's
//         inode, size and times stay the same, so a change takes effect at the next event; a file that was changed less
//         than two seconds before it was read is read again. A walk over all stations uses one sta_configuration.
// Chip:   "mtk" finds a station's section by "ifname"; "qca" by "ssid" and the device "wifi0" (interfaces
//         ath0...) or "wifi1".
// Result: 0 or -1, every failure logged at level 7; a lookup without a matching section is a success that
//         leaves the destination as it is (Deliberate: such a station gets an empty value).
// Owns:   the last reading of each file.
#pragma once

#include "model/record.h"

#include <cstddef>

inline constexpr const char *sta_wireless_default = "/etc/config/wireless";

extern "C" {

// The wireless package's file: set once at start from the capability table (core/capability).
extern char g_path[32];

// Copies the option that the extended path names, as strncpy does: a shorter text is followed by zeros, one of `size`
// characters and more by nothing, so `destination` must be zeroed and at least one byte longer. It is unchanged on any failure.
void sta_uci_get_param(const char *path, char *destination, std::size_t size);

// Copies option `wanted` of the first "wifi-iface" section whose option `match` equals `value` and, when
// `device` is not null, whose "device" equals it. -1 also when that section has no such option. Sizes as
// above.
int sta_uci_get_wireless_element(const char *value, const char *match, const char *device, const char *wanted,
                                 char *destination, std::size_t size);

// Copies "forwardMode" of the first section of type "sysinfo". Sizes as above.
int sta_uci_get_sysinfo_element(char *destination, std::size_t size);

// The VLAN of the station's section: its number, 0 when there is no section or no number, -1 on failure.
std::int32_t sta_sta_get_vlanid(const sta_info_t *sta);

// 1 when the device forwards as "AP" and the station's network is not "lan" (no section counts as such), else
// -1.
int sta_sta_get_brmode(const sta_info_t *sta);
}

// The configuration for one event, or for one walk over the table: each file is checked for a change when it is first needed, and
// not again. Each call of a function above checks anew.
class sta_configuration {
public:
    sta_configuration() = default;
    sta_configuration(const sta_configuration &) = delete;
    sta_configuration &operator=(const sta_configuration &) = delete;

    std::int32_t vlan_of(const sta_info_t *sta) noexcept; // sta_sta_get_vlanid
    bool is_bridged(const sta_info_t *sta) noexcept;      // sta_sta_get_brmode is 1
    int wireless_element(const char *value, const char *match, const char *device, const char *wanted,
                         char *destination, std::size_t size) noexcept; // sta_uci_get_wireless_element
    int sysinfo_element(char *destination, std::size_t size) noexcept;  // sta_uci_get_sysinfo_element

private:
    // What was found in a file, good until the file is loaded anew. Walks ask the same for station after station.
    struct answer {
        unsigned load; // of the file; 0: no answer
        const char *match, *device, *wanted, *value, *text;
        std::int32_t number; // that of the text
    };
    // False on failure, null without a section.
    bool find(const char *value, const char *match, const char *device, const char *wanted,
              const answer *&found) noexcept;
    bool element_of(const char *function, const sta_info_t *sta, const char *wanted,
                    const answer *&found) noexcept;
    answer answers[4] = {}; // two radios, two options
    unsigned next_answer = 0;
    answer forward_mode = {};
    // Which files have been looked at.
    bool chip_seen = false;
    bool wireless_seen = false;
    bool sysinfo_seen = false;
};

// Puts the VLAN into the record; a number below 1 becomes 1.
void sta_take_vlanid(sta_info_t *sta, sta_configuration &configuration) noexcept;
