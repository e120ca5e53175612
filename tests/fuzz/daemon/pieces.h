// pieces.h - an input that is several things, one after the other.
//
// Each begins with a little-endian word: 12 bits of length, and above them a tag of 4 bits whose meaning the target
// defines. The last piece may be shorter than its word says.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

struct piece {
    unsigned tag = 0;
    std::span<const std::uint8_t> bytes;
};

class pieces {
public:
    pieces(const std::uint8_t *data, std::size_t size) : left(data, size) {}

    // False when there is none left; `one` is then unchanged.
    bool next(piece &one) {
        if (left.size() < 2) return false;
        const unsigned word = left[0] | static_cast<unsigned>(left[1]) << 8;
        left = left.subspan(2);
        const std::size_t length = std::min<std::size_t>(word & 0xfff, left.size());
        one = {word >> 12, left.first(length)};
        left = left.subspan(length);
        return true;
    }

private:
    std::span<const std::uint8_t> left;
};
