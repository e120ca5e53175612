#include "support/driver_tables.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace {

void put(std::span<std::uint8_t> bytes, std::size_t offset, std::uint64_t value, std::size_t size) {
    for (std::size_t i = 0; i < size; ++i) bytes[offset + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

void put_text(std::span<std::uint8_t> bytes, std::size_t offset, std::string_view text) {
    std::copy(text.begin(), text.end(), bytes.begin() + static_cast<std::ptrdiff_t>(offset));
}

int answer(const interface_tables &tables, const driver_request &request, std::span<std::uint8_t> bytes) {
    if (request.cmd == 4) return 0;
    const auto found = tables.find(request.ifname);
    if (found == tables.end()) return -1;
    const std::vector<table_entry> &entries = found->second;
    if (request.cmd == 5) {
        put_text(bytes, 0, std::to_string(entries.size()));
        return 0;
    }
    if (request.cmd != 1) return -1;
    std::size_t at = 16;
    for (const table_entry &one : entries) {
        std::copy(one.basic.begin(), one.basic.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
        at += one.basic.size();
    }
    if (!(request.bytes[4] & 2)) return 0;
    for (const table_entry &one : entries) {
        std::copy(one.extended.begin(), one.extended.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
        at += one.extended.size();
    }
    return 0;
}

} // namespace

table_entry::table_entry(std::string_view mac) {
    unsigned octet[6];
    if (std::sscanf(std::string(mac).c_str(), "%2x:%2x:%2x:%2x:%2x:%2x", &octet[0], &octet[1], &octet[2],
                    &octet[3], &octet[4], &octet[5]) != 6)
        throw std::invalid_argument("no MAC: " + std::string(mac));
    for (std::size_t i = 0; i < 6; ++i) basic[4 + i] = static_cast<std::uint8_t>(octet[i]);
}

table_entry &table_entry::basic8(std::size_t offset, int value) {
    put(basic, offset, static_cast<std::uint64_t>(value), 1);
    return *this;
}
table_entry &table_entry::basic32(std::size_t offset, std::int64_t value) {
    put(basic, offset, static_cast<std::uint64_t>(value), 4);
    return *this;
}
table_entry &table_entry::basic64(std::size_t offset, std::uint64_t value) {
    put(basic, offset, value, 8);
    return *this;
}
table_entry &table_entry::basic_text(std::size_t offset, std::string_view text) {
    put_text(basic, offset, text);
    return *this;
}
table_entry &table_entry::extended8(std::size_t offset, int value) {
    put(extended, offset, static_cast<std::uint64_t>(value), 1);
    return *this;
}
table_entry &table_entry::extended32(std::size_t offset, std::int64_t value) {
    put(extended, offset, static_cast<std::uint64_t>(value), 4);
    return *this;
}
table_entry &table_entry::extended_text(std::size_t offset, std::string_view text) {
    put_text(extended, offset, text);
    return *this;
}

void driver_lists(interface_tables tables) {
    set_driver([tables = std::move(tables)](const driver_request &request, std::span<std::uint8_t> bytes) {
        return answer(tables, request, bytes);
    });
}

std::vector<int> driver_commands() {
    std::vector<int> commands;
    for (const driver_request &one : driver_requests()) commands.push_back(one.cmd);
    return commands;
}
