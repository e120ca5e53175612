// population.h - simulated people with their clients: they arrive, move, stream, idle, roam between the radios and
// leave, and others arrive in their place. The same seed gives the same events in the same
// order.
#pragma once

#include "apsim/simulator.h"

#include <set>
#include <string>
#include <vector>

class population {
public:
    explicit population(simulator &air) : air_(air), random_(0) {}

    // Keeps `count` clients present from now on; another seed makes other people. With 0 all of them leave at
    // once. One in `guests` is in the guest network; 0: nobody is.
    void start(int count, std::uint64_t seed, int guests = 0);

    // One second passes.
    void advance();

    std::size_t present() const { return people_.size(); }

private:
    struct person {
        std::string mac;
        int number; // determines name and address
        int radio;
        bool guest;
        std::string ifname() const; // of its current network and radio
    };
    void arrive();
    void live(person &one);
    void leave(const person &one);

    simulator &air_;
    random_numbers random_;
    int wanted_ = 0;
    int guests_ = 0;
    std::set<int> free_numbers_; // of people who have left
    int next_number_ = 1;
    std::vector<person> people_;
};
