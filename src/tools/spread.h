// spread.h - the hash of the daemon's tables: spreads the bits of a number, so that similar MACs get different places.
#pragma once

#include <cstddef>
#include <cstdint>

// The low bits of the result are the best ones; a table of 2^n places takes n of them.
inline std::size_t sta_spread(std::uint64_t number) noexcept {
    // A multiplication mixes bits upwards only, so the upper half is folded down and multiplied again.
    constexpr std::uint64_t odd = 0x9e3779b97f4a7c15U;
    number *= odd;
    return static_cast<std::size_t>((number ^ (number >> 32)) * odd >> 32);
}
