// store_reader.h - queries to a store, while another program may be writing to it.
#pragma once

#include "collector/names.h"
#include "collector/received.h"
#include "collector/store/store_error.h"
#include "collector/store/table.h"

#include <limits>
#include <string>
#include <utility>

struct store_range {
    moment since = 0;
    moment until = 0; // 0: now and later
    std::string mac;  // empty: all
    std::string ap;
    std::int64_t limit = 100;
    std::int64_t step = 300; // seconds of a point in a time series

    moment end() const { return until == 0 ? std::numeric_limits<moment>::max() : until; }
};

enum class store_question {
    sessions,   // stays that overlap the range, the newest first
    departures, // how many stays ended, by reason
    top,        // stations by bytes
    flapping,   // stations that came again and again, most often first
    events,     // the newest first
    addresses,  // of stations, the newest first
    series,     // a station's signal, rates and bytes over time
    radios,     // stations, noise and utilization of radios over time
};

// True for queries whose answer depends on the range's step.
inline bool takes_step(store_question what) {
    return what == store_question::flapping || what == store_question::series ||
           what == store_question::radios;
}

class store_reader {
public:
    virtual ~store_reader() = default;

    // Throws store_error when there is no answer.
    virtual table ask(store_question what, const store_range &range) = 0;
};

// Builds an answer, and adds the station's name after each MAC.
class named_table {
public:
    explicit named_table(const station_names &names) : names_(names) {}

    void column(std::string name) {
        const bool is_mac = name == "mac";
        if (is_mac) mac_ = made.columns.size();
        made.columns.push_back(std::move(name));
        if (is_mac) made.columns.emplace_back("name");
    }
    void row() { made.rows.emplace_back(); }
    void add(cell value) {
        auto &cells = made.rows.back();
        const bool is_mac = cells.size() == mac_;
        cells.push_back(std::move(value));
        if (!is_mac) return;
        const auto *mac = std::get_if<std::string>(&cells.back()); // a damaged file may have anything there
        cells.emplace_back(names_.of(mac ? *mac : std::string()));
    }

    table made;

private:
    const station_names &names_;
    std::size_t mac_ = static_cast<std::size_t>(-1);
};
