// packed_texts.h - the texts of a constant table, one behind the other, each with an offset in place of an address.
//
// The loader places the program anywhere, so each address in a table costs 24 bytes of relocation in the file, and the table becomes
// memory of the process, which the loader writes. Offsets cost two bytes and stay in the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

template <std::size_t Count, std::size_t Size> struct packed_texts {
    std::uint16_t at[Count];
    char text[Size];

    constexpr const char *operator[](std::size_t index) const { return text + at[index]; }
};

// The texts that the member `Text` of the entries of `Table` points to, in their order.
template <const auto &Table, auto Text> constexpr auto pack_texts() {
    constexpr std::size_t size = [] {
        std::size_t sum = 0;
        for (const auto &entry : Table) sum += std::string_view{entry.*Text}.size() + 1;
        return sum;
    }();
    static_assert(size <= UINT16_MAX);
    packed_texts<std::size(Table), size> packed = {};
    std::size_t at = 0;
    for (std::size_t i = 0; i < std::size(Table); ++i) {
        packed.at[i] = static_cast<std::uint16_t>(at);
        for (const char c : std::string_view{Table[i].*Text}) packed.text[at++] = c;
        ++at; // its terminator
    }
    return packed;
}
