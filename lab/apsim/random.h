// random.h - random numbers that are the same for the same seed on every machine.
#pragma once

#include <cstdint>

class random_numbers {
public:
    explicit random_numbers(std::uint64_t seed) : state_(seed) {}

    // A whole number from low to high, both included.
    int between(int low, int high) {
        const auto span = static_cast<std::uint64_t>(std::int64_t{high} - low + 1);
        return static_cast<int>(low + static_cast<std::int64_t>(next() % span));
    }
    // True once in `n` calls on average.
    bool once_in(int n) { return between(1, n) == 1; }

    // A separate generator for one user, so that its numbers do not depend on other users.
    random_numbers branch() { return random_numbers(next()); }
    void stir(std::uint64_t more) { state_ ^= more; }

private:
    // splitmix64: an even sequence of states, each scrambled
    std::uint64_t next() {
        std::uint64_t z = state_ += 0x9e3779b97f4a7c15;
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9;
        z = (z ^ (z >> 27)) * 0x94d049bb133111eb;
        return z ^ (z >> 31);
    }
    std::uint64_t state_;
};
