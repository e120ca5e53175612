// text.h - text, MAC and IPv4 helpers. Pure: no log, no globals, no allocation.
//
// All work on NUL-terminated bytes, in place or into the caller's buffer.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

extern "C" {

// Removes trailing spaces, tabs, carriage returns and line feeds; leading ones only when the first character
// is a space (Deliberate: a text that begins with a tab keeps it). Null and empty texts are left alone.
void sta_str_trim(char *text);

// The decimal number at the beginning of the text, after white space; 0 if there is none. A number that does not fit becomes
// the largest or smallest one.
std::int32_t sta_number(const char *text);

// Replaces every space by "-" in place. Null is left alone.
void sta_space_to_middleline(char *text);

// Copies `src` to `dst` with A-Z as a-z. Writes no terminator, so that dst may be src. 0, or -1 when one is
// null.
int sta_tolower(const char *src, char *dst);

// Removes every `unwanted` from `text` in place. Null is left alone.
void sta_str_del_char(char *text, char unwanted);

// Twelve hexadecimal digits in any grouping become "aa:bb:cc:dd:ee:ff", case kept. `dst` is 18 zeroed bytes;
// at most 17 are written. Fewer digits leave a trailing colon after a complete group. 0, or -1 when one is
// null.
int sta_mac_col_sep(const char *src, char *dst);

// Copies only the hexadecimal digits. Writes no terminator. 0, or -1 when one is null.
int sta_mac_strip_sep(const char *src, char *dst);

// Decodes hexadecimal text into `dst` of `size` bytes; lower-cases `src` in place on the way. The number of
// bytes, or -1: null, odd length, too small a buffer, or a character that is not a digit (bytes before it stay written).
int sta_hexstr2bytes(char *src, std::uint8_t *dst, int size);

// The quick check before an address is stored or put into a command: 1 when the text consists of digits and
// exactly three dots, else 0 (deliberately, values and empty octets are not checked).
int sta_is_valid_ipaddr(const char *text);

// Strict text to IPv4, in network byte order: digits and dots, at most 16 characters, and what inet_aton
// takes. 0 or -1.
int sta_str2ip(const char *text, std::uint32_t *out);

// Exactly 14 characters; from the sixth on four groups of two hexadecimal digits, one "." skipped after each.
// 0 or -1.
int sta_hexip2ip(const char *text, std::uint32_t *out);
}

// Means "no address is known".
inline constexpr const char *sta_no_address = "0.0.0.0";

// True when `mac` begins with a hexadecimal digit and consists of these, ':', '-' and '.': the check for every
// MAC before it becomes part of a shell command. Restored lines and leases can hold anything.
bool sta_mac_is_plain(const char *mac) noexcept;

// Reads "aa:bb:cc:dd:ee:ff", in either case. False for anything else, and for null; `mac` then has
// the octets read so far.
bool sta_read_mac(const char *text, std::uint8_t (&mac)[6]) noexcept;

// Writes "aa:bb:cc:dd:ee:ff", in lower case and terminated.
void sta_put_mac(char (&text)[18], const std::uint8_t (&mac)[6]) noexcept;

// Fills the field `dst` with `src`, cut to the field (or to `limit` characters if that is less), terminated,
// the rest zeroed, so that no older text is sent. `src` may be `dst` itself; null
// counts as empty.
template <std::size_t N>
void sta_put_text(char (&dst)[N], const char *src, std::size_t limit = N - 1) noexcept {
    const std::size_t most = std::min(limit, N - 1);
    const std::size_t used = src ? std::min(std::strlen(src), most) : 0;
    if (used > 0) std::memmove(dst, src, used);
    std::memset(dst + used, 0, N - used);
}

// Fills the field with a decimal number, the rest zeroed likewise.
template <std::size_t N> void sta_put_number(char (&dst)[N], int number) noexcept {
    std::memset(dst, 0, N);
    (void)std::to_chars(dst, dst + N - 1, number);
}

// Fills `dst` (of `size` bytes, always terminated, the rest zeroed) with `src` taken as a format text without
// arguments, at most `limit` characters: "%%" becomes "%", a conversion that prints a number becomes "0", one
// that prints a text (or nothing) vanishes, anything else is copied. Never reads or writes outside
// the given bytes. Deliberate: the driver means its texts as format texts, so that "100%%" has one per cent sign.
void sta_expand_format(char *dst, std::size_t size, std::string_view src, std::size_t limit) noexcept;

template <std::size_t N>
void sta_put_expanded(char (&dst)[N], std::string_view src, std::size_t limit = N - 1) noexcept {
    sta_expand_format(dst, N, src, limit);
}

// For "%s" with a text that may be missing.
inline const char *sta_or_null(const char *text) noexcept { return text ? text : "NULL"; }
