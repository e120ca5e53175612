// interfaces.h - the wireless interfaces that the configuration names, and the radio that each is on.
//
// Source: the wireless package (g_path, inputs/network.h), sections "wifi-iface", options "ifname" and "device".
#pragma once

#include "tools/array.h"

#include <cstdint>

struct wireless_interface {
    char ifname[20];
    std::int32_t radio_id;
};

// Adds each interface that has a name, in the file's order. False: the file could not be read, or memory ran out.
bool sta_uci_interfaces(sta_array<wireless_interface> &found) noexcept;

// The radio of interface `ifname` by the number at the end of its `device` ("wifi1"; null: not known), else by the rule of
// inputs/network: interfaces "ath0..." are on the first one.
std::int32_t sta_radio_of(const char *ifname, const char *device) noexcept;
