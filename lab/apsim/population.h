// population.h - people with their clients: they come, walk about, stream, idle, roam between the radios and
// leave, and others come in their place. The same seed gives the same people doing the same in the same
// order.
#pragma once

#include "apsim/simulator.h"

#include <set>
#include <string>
#include <vector>

class population {
public:
    explicit population(simulator &air) : air_(air), random_(0) {}

    // Keeps `count` clients about from now on; another seed makes other people. With 0 all of them leave at
    // once.
    void start(int count, std::uint64_t seed);

    // One second goes by.
    void advance();

    std::size_t present() const { return people_.size(); }

private:
    struct person {
        std::string mac;
        int number; // tells name and address
        int radio;
    };
    void arrive();
    void live(person &one);
    void leave(const person &one);

    simulator &air_;
    random_numbers random_;
    int wanted_ = 0;
    std::set<int> free_numbers_; // of people who have left
    int next_number_ = 1;
    std::vector<person> people_;
};
