// life.h - one life of the daemon for each input: an access point with stations before it, a check of what is left after it.
//
// Before: the unit tests' house (support/house.h: files, driver, commands and clean globals of its own), with the
//         configuration of an access point, a collector, a bus, and three stations: `online` (radio 0), `added` (radio 1,
//         before its first pass) and `repeater` (online, radio 0). The driver lists the first two.
// After:  every report has the collector's size, every line of the backup file its fields, and each block of the counting
//         allocator an owner. A violation ends the program, as a crash does.
#pragma once

#include "support/collector.h"
#include "support/house.h"

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

class life : public House {
public:
    life();
    ~life() override;

    static constexpr const char *online = "02:00:00:00:00:0a";
    static constexpr const char *added = "02:00:00:00:00:0b";
    static constexpr const char *repeater = "02:00:00:00:00:0c";

    // What the daemon's timers do: the five-second pass, the early reports, the periodic report.
    void run_timers();

    // Checks the reports that have come, and so empties the queue: with a full queue the daemon waits.
    void take_reports();

private:
    void TestBody() override {}
    collector listener;
};

// The content of a bus message as its receiver gets it: a block of exactly its size.
class bus_message {
public:
    explicit bus_message(std::span<const std::uint8_t> content);
    blob_attr *head() { return reinterpret_cast<blob_attr *>(bytes.data()); }

private:
    std::vector<std::uint8_t> bytes;
};

inline std::string_view as_text(const std::uint8_t *data, std::size_t size) {
    return {reinterpret_cast<const char *>(data), size};
}
