// wire.h - reading and writing fields of fixed byte layouts: the driver's records and the collector's image.
// All of them are little-endian on every host; buffers need no alignment. Nothing here checks bounds: the
// caller's layout table does, once, at compile time.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace wire {

// From the host's byte order to the layout's, and back.
template <class Int> constexpr Int ordered(Int value) noexcept {
    static_assert(std::is_integral_v<Int>);
    if constexpr (std::endian::native == std::endian::little || sizeof(Int) == 1)
        return value;
    else if constexpr (sizeof(Int) == 2)
        return static_cast<Int>(__builtin_bswap16(static_cast<std::uint16_t>(value)));
    else if constexpr (sizeof(Int) == 4)
        return static_cast<Int>(__builtin_bswap32(static_cast<std::uint32_t>(value)));
    else
        return static_cast<Int>(__builtin_bswap64(static_cast<std::uint64_t>(value)));
}

// A number at any address. When optimising for size GCC calls memcpy for it on MIPS, which has instructions for it.
template <class Int> struct [[gnu::packed, gnu::may_alias]] unaligned { Int value; };

template <class Int> Int get(const std::uint8_t *at) noexcept {
    return ordered(reinterpret_cast<const unaligned<Int> *>(at)->value);
}

template <class Int> void put(std::uint8_t *at, Int value) noexcept {
    reinterpret_cast<unaligned<Int> *>(at)->value = ordered(value);
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
