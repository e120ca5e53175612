// postgres_days.h - the tables that are partitioned by days: a part is made before the first row of its day, and dropped
// when the day is too old. Any number of collectors may do this at the same time.
#pragma once

#include "collector/received.h"
#include "collector/store/postgres.h"

#include <set>

inline constexpr moment one_day = 86400 * second;

class postgres_days {
public:
    // Makes the parts for `days` (since 1970) that have none. Days before 2015 and days more than two ahead of `clock` get
    // none: their rows go to a part for the rest.
    void prepare(postgres &db, const std::set<std::int64_t> &days, moment clock);

    // Removes everything from before this day. False: the tables are locked, or another collector is doing it.
    bool prune(postgres &db, std::int64_t first_kept);

    // To be called after reconnecting: parts may have been dropped meanwhile.
    void forget() { ready_.clear(); }

private:
    static void make(postgres &db, std::int64_t day);
    std::set<std::int64_t> ready_;
};
