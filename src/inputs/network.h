// network.h - what the system's configuration says of a station's network: its VLAN, and whether it is
// bridged elsewhere.
//
// Source: uci "wifiinfo.global.sdk" (chip family "mtk" or "qca"), the wireless package (g_path, sections
//         "wifi-iface") and "/etc/config/sysinfo". What was read is kept as long as the file is the same by
//         inode, size and times, so a change counts at the next event; a file that has changed less than two seconds before
//         it was read is read again. A walk over all stations is one event: it holds a snapshot.
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
// characters and more by nothing, so `destination` is zeroed and at least one byte longer. Untouched on any failure.
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

// Puts the VLAN into the record: 1 for what is below 1.
void sta_take_vlanid(sta_info_t *sta);

// 1 when the device forwards as "AP" and the station's network is not "lan" (no section counts as such), else
// -1.
int sta_sta_get_brmode(const sta_info_t *sta);
}

// While one lives, all look-ups see each configuration file as the first that could load it found it. A walk over the
// table holds one: it asks every station's question of the same configuration, and looks at the files once.
class sta_uci_snapshot {
public:
    sta_uci_snapshot() noexcept;
    ~sta_uci_snapshot();
    sta_uci_snapshot(const sta_uci_snapshot &) = delete;
    sta_uci_snapshot &operator=(const sta_uci_snapshot &) = delete;
};
