// mac.h - the address of a station or of a network.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

struct mac_address {
    std::uint8_t bytes[6];

    bool operator==(const mac_address &) const = default;
    // True for broadcast as well. No station has such an address.
    bool is_multicast() const { return (bytes[0] & 1) != 0; }
    bool is_broadcast() const {
        for (const std::uint8_t byte : bytes)
            if (byte != 0xff) return false;
        return true;
    }

    static mac_address at(const std::uint8_t *six_bytes) {
        mac_address mac;
        std::memcpy(mac.bytes, six_bytes, sizeof(mac.bytes));
        return mac;
    }

    // "02:00:00:00:00:01" in either case; false for any other text.
    static bool parse(std::string_view text, mac_address &mac) {
        if (text.size() != 17) return false;
        for (std::size_t i = 0; i < 6; ++i) {
            const int high = digit(text[3 * i]);
            const int low = digit(text[3 * i + 1]);
            if (high < 0 || low < 0 || (i > 0 && text[3 * i - 1] != ':')) return false;
            mac.bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
        }
        return true;
    }

    // Value of a hexadecimal digit; -1 for any other character.
    static int digit(char c) {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    }
};

// The address in lower case, for a log line or a command.
struct mac_text {
    char text[18];
    explicit mac_text(const mac_address &mac) {
        std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac.bytes[0], mac.bytes[1],
                      mac.bytes[2], mac.bytes[3], mac.bytes[4], mac.bytes[5]);
    }
};
