// network_facts.h - a network and its channel, as they appear in stations' events.
#pragma once

#include <cstdint>

struct network_facts {
    char ifname[16];
    std::uint8_t ssid[32];
    std::uint8_t ssid_size;
    int radio;               // 0 or 1
    std::uint32_t frequency; // MHz; 0: unknown
    std::uint8_t width;      // width_20 and so on
    std::int8_t noise;       // dBm; 0: unknown
    std::uint8_t busy;       // share of the time, of 255
};
