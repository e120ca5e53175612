// driver_tables.h - a driver that lists stations: the bytes of its station tables, put there one by one.
#pragma once

#include "support/driver.h"

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

// One station of the driver's table; little-endian, offsets as the driver counts them.
struct table_entry {
    std::array<std::uint8_t, 160> basic{};
    std::array<std::uint8_t, 224> extended{};

    explicit table_entry(std::string_view mac); // six octets of colon text

    table_entry &basic8(std::size_t offset, int value);
    table_entry &basic32(std::size_t offset, std::int64_t value);
    table_entry &basic64(std::size_t offset, std::uint64_t value);
    table_entry &basic_text(std::size_t offset, std::string_view text);
    table_entry &extended8(std::size_t offset, int value);
    table_entry &extended32(std::size_t offset, std::int64_t value);
    table_entry &extended_text(std::size_t offset, std::string_view text);
};

using interface_tables = std::map<std::string, std::vector<table_entry>>;

// Sets the driver: it answers the count and the table of these interfaces with the sections asked for, accepts
// roam deletions, and refuses everything else.
void driver_lists(interface_tables tables);

// Numbers of the requests that came, in order: 5 count, 1 table, 4 roam deletion.
std::vector<int> driver_commands();
