// store_options.h - the settings of a store.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

struct store_options {
    std::string path{}; // of an SQLite file; empty: none
    std::string url{};  // postgresql://; empty: none. At most one of the two is set
    bool wanted() const { return !path.empty() || !url.empty(); }
    int commit = 1;              // seconds between two batches
    int sample = 60;             // seconds between two samples of a station, and of a radio
    int keep_days = 30;          // 0: for ever
    std::int64_t most_mb = 1024; // of the file; 0: no bound
    std::size_t most_pending = 100'000;
    bool of_files = false; // the input is files, and the reports' times are the only clock
    // Called on the store's thread with T when everything up to received::ticket T survives a power cut, or is not to be
    // stored at all. The sender need not keep those messages any longer.
    std::function<void(std::uint64_t)> committed{};
};
