// url.h - decoding escaped characters in a URL.
#pragma once

#include <charconv>
#include <string>
#include <string_view>

// Replaces "%2f" and the like by their characters. False: a % without two hexadecimal digits, or a zero byte.
inline bool url_decode(std::string_view text, std::string &out) {
    out.clear();
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] != '%') {
            out += text[at];
            continue;
        }
        if (text.size() - at < 3) return false;
        const char *digits = text.data() + at + 1;
        unsigned byte = 0;
        const auto [end, error] = std::from_chars(digits, digits + 2, byte, 16);
        if (error != std::errc() || end != digits + 2 || byte == 0) return false;
        out += static_cast<char>(byte);
        at += 2;
    }
    return true;
}
