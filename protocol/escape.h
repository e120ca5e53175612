// escape.h - foreign text on a terminal or in a line file: one line stays one line, and no control sequence
// gets through. Printable ASCII and well-formed UTF-8 are kept; a backslash becomes \\, line feed, carriage
// return and tab become \n \r \t, every other byte \xNN, so that the original bytes can be read back. Used by
// the log and by the lab.
#pragma once

#include <cstddef>
#include <span>
#include <string_view>

namespace escape {

// Length of the well-formed, printable UTF-8 sequence of two to four bytes at the start of `text`; 0 if there
// is none. Refused: overlong forms, surrogates, beyond U+10FFFF, and the control characters U+0080 to U+009F.
constexpr std::size_t utf8_length(std::string_view text) noexcept {
    const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = text.empty() ? 0 : byte(0);
    const std::size_t length = first >= 0xc2 && first <= 0xdf   ? 2
                               : (first & 0xf0) == 0xe0         ? 3
                               : first >= 0xf0 && first <= 0xf4 ? 4
                                                                : 0;
    if (length == 0 || text.size() < length) return 0;
    for (std::size_t i = 1; i < length; ++i)
        if ((byte(i) & 0xc0) != 0x80) return 0;
    const unsigned second = byte(1);
    if (first == 0xc2 && second < 0xa0) return 0;
    if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f)) return 0;
    if ((first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f)) return 0;
    return length;
}

// Writes as much of `text` as fits into `out`, escaped and never with half an escape at the end, and removes
// what was written from `text`. No terminator. Returns the bytes written.
constexpr std::size_t write(std::string_view &text, std::span<char> out) noexcept {
    constexpr std::string_view hex = "0123456789abcdef";
    std::size_t used = 0;
    while (!text.empty()) {
        char piece[4] = {text[0]};
        std::size_t length = 1;
        std::size_t taken = 1;
        const auto byte = static_cast<unsigned char>(text[0]);
        if (byte == '\\' || byte == '\n' || byte == '\r' || byte == '\t') {
            piece[1] = byte == '\n' ? 'n' : byte == '\r' ? 'r' : byte == '\t' ? 't' : '\\';
            piece[0] = '\\';
            length = 2;
        } else if (byte >= 0x80 && utf8_length(text) > 0) {
            taken = length = utf8_length(text);
            for (std::size_t i = 1; i < length; ++i) piece[i] = text[i];
        } else if (byte < 0x20 || byte >= 0x7f) {
            piece[0] = '\\';
            piece[1] = 'x';
            piece[2] = hex[byte >> 4];
            piece[3] = hex[byte & 15];
            length = 4;
        }
        if (out.size() - used < length) break;
        for (std::size_t i = 0; i < length; ++i) out[used++] = piece[i];
        text.remove_prefix(taken);
    }
    return used;
}

} // namespace escape
