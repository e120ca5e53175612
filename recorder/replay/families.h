// families.h - translating numbers of netlink families from the recorded device to the lab.
#pragma once

#include "record/recording.h"

#include <map>
#include <optional>
#include <vector>

class replayed_families {
public:
    // `first`: number of the first family in the lab; further ones count up.
    explicit replayed_families(std::uint16_t first) : next_(first) {}

    // The message with the family's number in the lab, for the lab's driver to send. Nothing if it is not the driver's
    // message but the kernel's answer to the daemon: in the lab the kernel sends its own.
    std::optional<std::vector<std::uint8_t>> translate(recorded::bytes message);

private:
    std::uint16_t number_of(std::uint16_t recorded);

    std::uint16_t next_;
    std::map<std::uint16_t, std::uint16_t> numbers_;
};
