// postgres_days.h - the tables that are parted by days: a part is there before the first row of its day, and dropped whole
// when the day is too old. Any number of collectors may do either at once.
#pragma once

#include "collector/received.h"
#include "collector/store/postgres.h"

#include <set>

inline constexpr moment one_day = 86400 * second;

class postgres_days {
public:
    // Makes the parts for `days` (since 1970) that have none. Days before 2015 and days more than two ahead of `clock` get
    // none: what is of them goes to a part for the rest.
    void prepare(postgres &db, const std::set<std::int64_t> &days, moment clock);

    // Removes what is from before this day, everywhere. False: somebody is busy with the tables, or does it already.
    bool prune(postgres &db, std::int64_t first_kept);

    // After another connection was made: somebody may have dropped anything meanwhile.
    void forget() { ready_.clear(); }

private:
    static void make(postgres &db, std::int64_t day);
    std::set<std::int64_t> ready_;
};
