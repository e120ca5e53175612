// families.h - the numbers of netlink families, as they were on the recorded device and as they are in the lab.
#pragma once

#include "record/recording.h"

#include <map>
#include <optional>
#include <vector>

class replayed_families {
public:
    // `first`: number of the first family in the lab; those that follow count on.
    explicit replayed_families(std::uint16_t first) : next_(first) {}

    // The message as the lab's driver has to send it: of the family's number in the lab, and announcing that one.
    // Nothing when it is not the driver's but the kernel's word on what the daemon sent: in the lab it has its own.
    std::optional<std::vector<std::uint8_t>> translate(recorded::bytes message);

private:
    std::uint16_t number_of(std::uint16_t recorded);

    std::uint16_t next_;
    std::map<std::uint16_t, std::uint16_t> numbers_;
};
