// postgres_writing.h - folded stays on their way into the tables: a few statements for any number of stations.
#pragma once

#include "collector/store/postgres.h"
#include "collector/store/station_fold.h"

#include <cstdint>
#include <utility>
#include <vector>

class postgres_writing {
public:
    // `replaced`: stays that this one's take the place of, by their first reports. A stay that is the same keeps its number.
    void add(station_fold folded, std::vector<std::pair<report_key, std::int64_t>> replaced);
    // Within the caller's transaction.
    void write(postgres &db);

private:
    void number_new_ones(postgres &db);
    std::vector<station_fold> all_;
    std::vector<std::int64_t> replaced_;
};
