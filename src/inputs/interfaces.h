// interfaces.h - the wireless interfaces in the configuration, and the radio of each.
//
// Source: the wireless package (g_path, inputs/network.h), sections "wifi-iface", options "ifname" and "device".
#pragma once

#include "tools/array.h"

#include <cstdint>

struct wireless_interface {
    char ifname[20];
    std::int32_t radio_id;
};

// Adds each interface that has a name, in the file's order. False when the file cannot be read, or without memory.
bool sta_uci_interfaces(sta_array<wireless_interface> &found) noexcept;

// The radio of interface `ifname` is the number at the end of its `device` ("wifi1"; null: not known). Without one, the rule
// of inputs/network applies: interfaces "ath0..." are on the first radio.
std::int32_t sta_radio_of(const char *ifname, const char *device) noexcept;
