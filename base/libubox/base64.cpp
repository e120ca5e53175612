// Base64 (RFC 4648, standard alphabet, padded). Decoding is strict but for white space, so that each run of
// bytes has one text only.
#include <libubox/assert.h>
#include <libubox/utils.h>

#include <array>
#include <cstdint>

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::int8_t foreign = -1;
constexpr std::int8_t blank = -2;

constexpr auto digit_of = [] {
    std::array<std::int8_t, 256> table{};
    table.fill(foreign);
    for (std::int8_t i = 0; i < 64; ++i) table[static_cast<unsigned char>(alphabet[i])] = i;
    for (const char c : {' ', '\t', '\n', '\v', '\f', '\r'}) table[static_cast<unsigned char>(c)] = blank;
    return table;
}();

} // namespace

int b64_encode(const void *src, std::size_t len, void *dest, std::size_t dest_len) {
    assert(dest_len > 0);
    const std::size_t quads = len / 3 + (len % 3 != 0);
    if (quads > INT32_MAX / 4 || quads * 4 >= dest_len) return -1;

    const auto *in = static_cast<const unsigned char *>(src);
    auto *out = static_cast<char *>(dest);
    for (; len >= 3; len -= 3, in += 3) {
        *out++ = alphabet[in[0] >> 2];
        *out++ = alphabet[(in[0] & 3) << 4 | in[1] >> 4];
        *out++ = alphabet[(in[1] & 15) << 2 | in[2] >> 6];
        *out++ = alphabet[in[2] & 63];
    }
    if (len) {
        const unsigned char second = len > 1 ? in[1] : 0;
        *out++ = alphabet[in[0] >> 2];
        *out++ = alphabet[(in[0] & 3) << 4 | second >> 4];
        *out++ = len > 1 ? alphabet[(second & 15) << 2] : '=';
        *out++ = '=';
    }
    *out = 0;
    return static_cast<int>(quads * 4);
}

int b64_decode(const void *src, void *dest, std::size_t dest_len) {
    const auto *in = static_cast<const unsigned char *>(src);
    auto *out = static_cast<unsigned char *>(dest);
    std::size_t written = 0;
    std::uint32_t bits = 0; // of the current group of four digits
    int digits = 0;         // in that group

    for (; *in; ++in) {
        const std::int8_t digit = digit_of[*in];
        if (digit == blank) continue;
        if (digit == foreign) break;
        bits = bits << 6 | static_cast<std::uint32_t>(digit);
        if (++digits < 4) continue;
        if (dest_len - written < 3) return -1;
        out[written++] = static_cast<unsigned char>(bits >> 16);
        out[written++] = static_cast<unsigned char>(bits >> 8);
        out[written++] = static_cast<unsigned char>(bits);
        bits = 0;
        digits = 0;
    }

    // The rest is the padding of the last group; only white space may be in it.
    int padding = 0;
    for (; *in; ++in) {
        if (*in == '=')
            ++padding;
        else if (digit_of[*in] != blank)
            return -1;
    }
    if (digits == 0 && padding == 0) {
        // the text ended with a full group
    } else if (digits == 3 && padding == 1 && (bits & 3) == 0) {
        if (dest_len - written < 2) return -1;
        out[written++] = static_cast<unsigned char>(bits >> 10);
        out[written++] = static_cast<unsigned char>(bits >> 2);
    } else if (digits == 2 && padding == 2 && (bits & 15) == 0) {
        if (dest_len - written < 1) return -1;
        out[written++] = static_cast<unsigned char>(bits >> 4);
    } else {
        return -1;
    }
    if (written > INT32_MAX) return -1;
    if (written < dest_len) out[written] = 0;
    return static_cast<int>(written);
}
