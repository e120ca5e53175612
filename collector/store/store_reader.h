// store_reader.h - questions to a store, while somebody else may be writing to it.
#pragma once

#include "collector/names.h"
#include "collector/received.h"
#include "collector/store/sqlite.h"
#include "collector/store/table.h"

#include <string>

struct store_range {
    moment since = 0;
    moment until = 0; // 0: now and later
    std::string mac;  // empty: all
    std::string ap;
    std::int64_t limit = 100;
    std::int64_t step = 300; // seconds of a point in a time series
};

class store_reader {
public:
    // sqlite_error when the file cannot be opened.
    store_reader(const std::string &path, const station_names &names);

    table sessions(const store_range &range);   // stays that overlap the range, the newest first
    table departures(const store_range &range); // how many stays ended, by reason
    table top(const store_range &range);        // stations by bytes
    table flapping(const store_range &range);   // stations that came again and again, most often first
    table events(const store_range &range);     // the newest first
    table addresses(const store_range &range);  // of stations, the newest first
    table series(const store_range &range);     // a station's signal, rates and bytes over time
    table radios(const store_range &range);     // stations, noise and utilization of radios over time

private:
    table ask(const std::string &sql, const store_range &range, bool with_step = false);
    database db_;
    const station_names &names_;
};
