#include "text.h"

#include "protocol/escape.h"

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

bool speaks_utf8 = false;

// Format characters: they are invisible, and some of them change the direction of the text around them.
bool is_invisible(std::uint32_t c) {
    return c == 0xad || c == 0x61c || (c >= 0x200b && c <= 0x200f) || (c >= 0x2028 && c <= 0x202e) ||
           (c >= 0x2060 && c <= 0x206f) || c == 0xfeff || (c >= 0xfff9 && c <= 0xfffb) || c >= 0xe0000;
}

} // namespace

void text_begin() {
    if (!std::setlocale(LC_CTYPE, "")) return;
    const char *codes = nl_langinfo(CODESET);
    speaks_utf8 = std::strcmp(codes, "UTF-8") == 0;
}

int terminal_columns() {
    constexpr int usual = 80, least = 20;
    winsize size{};
    if (!isatty(STDOUT_FILENO) || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return usual;
    return std::max<int>(size.ws_col, least);
}

bool is_shown(std::uint32_t c) {
    if (c < 0x80) return c >= 0x20 && c < 0x7f;
    return c >= 0xa0 && !is_invisible(c);
}

std::size_t read_character(const char *text, std::uint32_t &character) {
    const auto first = static_cast<unsigned char>(*text);
    if (first < 0x80) {
        character = first;
        return 1;
    }
    const std::size_t length = escape::utf8_length({text, strnlen(text, 4)});
    character = length == 2 ? first & 0x1f : length == 3 ? first & 0x0f : first & 0x07;
    for (std::size_t i = 1; i < length; ++i)
        character = character << 6 | (static_cast<unsigned char>(text[i]) & 0x3f);
    return length;
}

shown_text show(const char *text, int columns) {
    shown_text out{};
    std::size_t fits = 0; // bytes and columns that leave room for the "~"
    int fits_columns = 0;
    while (*text != '\0') {
        std::uint32_t character = 0;
        std::size_t length = read_character(text, character);
        const char *bytes = text;
        int width = 1;
        if (length == 0 || !is_shown(character) || (character >= 0x80 && !speaks_utf8)) {
            length = length == 0 ? 1 : length;
            bytes = "?";
        } else if (character >= 0x80) {
            width = wcwidth(static_cast<wchar_t>(character));
            if (width < 0) {
                bytes = "?";
                width = 1;
            }
        }
        const std::size_t size = bytes == text ? length : 1;
        if (out.columns + width > columns || out.length + size + 1 > sizeof(out.bytes)) {
            out.length = fits;
            out.columns = fits_columns;
            if (columns > 0) {
                out.bytes[out.length++] = '~';
                ++out.columns;
            }
            return out;
        }
        std::memcpy(out.bytes + out.length, bytes, size);
        out.length += size;
        out.columns += width;
        if (out.columns < columns) {
            fits = out.length;
            fits_columns = out.columns;
        }
        text += length;
    }
    return out;
}
