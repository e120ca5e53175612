// store_reader.h - questions to a store, while somebody else may be writing to it.
#pragma once

#include "collector/names.h"
#include "collector/received.h"
#include "collector/store/store_error.h"
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
    virtual ~store_reader() = default;

    // store_error when there is no answer.
    virtual table sessions(const store_range &range) = 0;   // stays that overlap the range, the newest first
    virtual table departures(const store_range &range) = 0; // how many stays ended, by reason
    virtual table top(const store_range &range) = 0;        // stations by bytes
    virtual table
    flapping(const store_range &range) = 0; // stations that came again and again, most often first
    virtual table events(const store_range &range) = 0;    // the newest first
    virtual table addresses(const store_range &range) = 0; // of stations, the newest first
    virtual table series(const store_range &range) = 0;    // a station's signal, rates and bytes over time
    virtual table radios(const store_range &range) = 0; // stations, noise and utilization of radios over time
};
