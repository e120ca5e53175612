// wire.h - reading and writing fields of fixed byte layouts: the driver's records and the collector's image.
// All of them are little-endian on every host; buffers need no alignment. Nothing here checks bounds: the
// caller's layout table does, once, at compile time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace wire {

// Signed numbers go through the unsigned ones, so that a build for size has one function for both.
template <class Int> Int get(const std::uint8_t *at) noexcept {
    static_assert(std::is_integral_v<Int>);
    if constexpr (std::is_signed_v<Int>) {
        return static_cast<Int>(get<std::make_unsigned_t<Int>>(at));
    } else {
        Int value = 0;
        for (std::size_t i = sizeof(Int); i-- > 0;)
            value = static_cast<Int>((static_cast<std::uint64_t>(value) << 8) | at[i]);
        return value;
    }
}

template <class Int> void put(std::uint8_t *at, Int value) noexcept {
    static_assert(std::is_integral_v<Int>);
    if constexpr (std::is_signed_v<Int>) {
        put(at, static_cast<std::make_unsigned_t<Int>>(value));
    } else {
        auto rest = static_cast<std::uint64_t>(value);
        for (std::size_t i = 0; i < sizeof(Int); ++i, rest >>= 8) at[i] = static_cast<std::uint8_t>(rest);
    }
}

// A text field: N bytes, the text ends at the first NUL or at the end of the field. The copy is always
// terminated.
template <std::size_t N> void get_text(char (&dst)[N], const std::uint8_t *at) noexcept {
    static_assert(N > 1);
    std::memcpy(dst, at, N - 1);
    dst[N - 1] = '\0';
    const std::size_t used = strnlen(dst, N);
    std::memset(dst + used, 0, N - used);
}

// Writes a text into a field of `size` zeros; a text that fills the field has no terminator there.
inline void put_text(std::uint8_t *at, const char *text, std::size_t size) noexcept {
    std::memcpy(at, text, strnlen(text, size));
}

} // namespace wire
