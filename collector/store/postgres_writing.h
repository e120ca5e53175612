// postgres_writing.h - writing folded stays into the tables, with a few statements for any number of stations.
#pragma once

#include "collector/store/postgres.h"
#include "collector/store/station_fold.h"

#include <cstdint>
#include <utility>
#include <vector>

class postgres_writing {
public:
    // `replaced`: earlier stays that these replace, by their first reports. A stay with the same first report keeps its number.
    void add(station_fold folded, std::vector<std::pair<report_key, std::int64_t>> replaced);
    // To be called within a transaction.
    void write(postgres &db);

private:
    void number_new_ones(postgres &db);
    std::vector<station_fold> all_;
    std::vector<std::int64_t> replaced_;
};
