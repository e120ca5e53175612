#include "tools/text.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::string_view white = " \r\n\t";
constexpr bool is_white(char c) { return c != '\0' && white.find(c) != std::string_view::npos; }
constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }
constexpr bool is_hex(char c) { return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }
constexpr char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
constexpr int nibble(char c) {
    if (is_digit(c)) return c - '0';
    const char l = lower(c);
    return l >= 'a' && l <= 'f' ? l - 'a' + 10 : -1;
}
bool only_digits_and_dots(const char *text) {
    for (; *text != '\0'; ++text)
        if (!is_digit(*text) && *text != '.') return false;
    return true;
}

} // namespace

std::int32_t sta_number(const char *text) {
    return static_cast<std::int32_t>(
        std::clamp<long long>(std::strtoll(text, nullptr, 10), INT32_MIN, INT32_MAX));
}

void sta_str_trim(char *text) {
    if (!text) return;
    std::size_t length = std::strlen(text);
    while (length > 0 && is_white(text[length - 1])) text[--length] = '\0';
    if (text[0] != ' ') return;
    const char *start = text;
    while (is_white(*start)) ++start;
    std::memmove(text, start, std::strlen(start) + 1);
}

void sta_space_to_middleline(char *text) {
    while (text && (text = std::strchr(text, ' '))) *text = '-';
}

int sta_tolower(const char *src, char *dst) {
    if (!src || !dst) return -1;
    for (; *src != '\0'; ++src, ++dst) *dst = lower(*src);
    return 0;
}

void sta_str_del_char(char *text, char unwanted) {
    if (!text) return;
    char *end = text;
    for (; *text != '\0'; ++text)
        if (*text != unwanted) *end++ = *text;
    *end = '\0';
}

int sta_mac_col_sep(const char *src, char *dst) {
    if (!src || !dst) return -1;
    constexpr int mac_length = 17;
    int j = 0;
    for (; *src != '\0' && j < mac_length; ++src) {
        if (is_hex(*src)) dst[j++] = *src;
        if (j == 2 || j == 5 || j == 8 || j == 11 || j == 14) dst[j++] = ':';
    }
    return 0;
}

int sta_mac_strip_sep(const char *src, char *dst) {
    if (!src || !dst) return -1;
    for (; *src != '\0'; ++src)
        if (is_hex(*src)) *dst++ = *src;
    return 0;
}

int sta_hexstr2bytes(char *src, std::uint8_t *dst, int size) {
    if (!src || !dst) return -1;
    const auto digits = static_cast<std::ptrdiff_t>(std::strlen(src));
    if (digits % 2 != 0 || size < digits / 2) return -1;
    sta_tolower(src, src);
    int count = 0;
    for (; *src != '\0'; src += 2) {
        const int high = nibble(src[0]);
        const int low = nibble(src[1]);
        if (high < 0 || low < 0) return -1;
        dst[count++] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return count;
}

int sta_is_valid_ipaddr(const char *text) {
    if (!text || *text == '\0' || !only_digits_and_dots(text)) return 0;
    return std::count(text, text + std::strlen(text), '.') == 3 ? 1 : 0;
}

int sta_str2ip(const char *text, std::uint32_t *out) {
    if (!text || !out || *text == '\0' || std::strlen(text) >= 17 || !only_digits_and_dots(text)) return -1;
    in_addr address{};
    if (inet_aton(text, &address) == 0) return -1;
    *out = address.s_addr;
    return 0;
}

int sta_hexip2ip(const char *text, std::uint32_t *out) {
    if (!text || !out || std::strlen(text) != 14) return -1;
    const char *at = text + 5;
    int octets[4];
    for (int &octet : octets) {
        const int high = nibble(at[0]); // the terminator is not a digit, so the loop ends there
        if (high < 0) return -1;
        const int low = nibble(at[1]);
        if (low < 0) return -1;
        octet = high * 16 + low;
        at += at[2] == '.' ? 3 : 2;
    }
    char dotted[16];
    std::snprintf(dotted, sizeof(dotted), "%d.%d.%d.%d", octets[0], octets[1], octets[2], octets[3]);
    return sta_str2ip(dotted, out);
}

bool sta_mac_is_plain(const char *mac) noexcept {
    if (!mac || !is_hex(*mac)) return false; // a leading '-' would be an option of the command
    for (; *mac != '\0'; ++mac)
        if (!is_hex(*mac) && *mac != ':' && *mac != '-' && *mac != '.') return false;
    return true;
}

bool sta_read_mac(const char *text, std::uint8_t (&mac)[6]) noexcept {
    if (!text) return false;
    for (std::size_t i = 0; i < sizeof(mac); ++i, text += 3) {
        const int high = nibble(text[0]);
        const int low = high < 0 ? -1 : nibble(text[1]); // behind the terminator is no text
        if (low < 0 || text[2] != (i + 1 < sizeof(mac) ? ':' : '\0')) return false;
        mac[i] = static_cast<std::uint8_t>(high * 16 + low);
    }
    return true;
}

void sta_put_mac(char (&text)[18], const std::uint8_t (&mac)[6]) noexcept {
    (void)std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                        mac[4], mac[5]);
}

void sta_expand_format(char *dst, std::size_t size, std::string_view src, std::size_t limit) noexcept {
    constexpr std::string_view flags = "-+ #0'";
    constexpr std::string_view lengths = "hljztLq";
    constexpr std::string_view numbers = "diouxXeEfFgGaAp";
    constexpr std::string_view silent = "scn";
    const std::size_t most = std::min(limit, size - 1);
    std::size_t from = std::min(src.find('%'), src.size()); // nearly every text has no sign
    std::size_t used = std::min(from, most);
    std::memcpy(dst, src.data(), used);
    const auto char_at = [&](std::size_t at) { return at < src.size() ? src[at] : '\0'; };
    const auto is_one_of = [&](std::size_t at, std::string_view set) {
        return at < src.size() && set.find(src[at]) != std::string_view::npos;
    };
    const auto skip = [&](std::size_t at, std::string_view set) {
        while (is_one_of(at, set)) ++at;
        return at;
    };
    const auto skip_count = [&](std::size_t at) { // digits, or the "*" of a count that was not given
        if (char_at(at) == '*') return at + 1;
        while (is_digit(char_at(at))) ++at;
        return at;
    };
    const auto add = [&](char c) {
        if (used < most) dst[used++] = c;
    };
    while (from < src.size()) {
        if (src[from] != '%') {
            add(src[from++]);
            continue;
        }
        if (char_at(from + 1) == '%') {
            add('%');
            from += 2;
            continue;
        }
        std::size_t at = skip_count(skip(from + 1, flags));
        if (char_at(at) == '.') at = skip_count(at + 1);
        at = skip(at, lengths);
        if (is_one_of(at, numbers)) {
            add('0');
            from = at + 1;
        } else if (is_one_of(at, silent)) {
            from = at + 1;
        } else {
            add(src[from++]); // not a conversion: the sign is copied
        }
    }
    std::memset(dst + used, 0, size - used);
}
