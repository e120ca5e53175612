// postgres_stays.h - makes stays, events and time series out of the table of reports, for any number of collectors.
//
// Result: depends only on the reports in the table and on the rules, not on who stored them, in which order, or how often
//         they came. If a report is older than those that its station's stays were made of, the stays since then are made again.
// Locks:  one for each shard of the stations, until the transaction's end. A collector that does not get a lock leaves those
//         stations to the one that has it.
#pragma once

#include "collector/store/postgres.h"
#include "collector/store/station_fold.h"

#include <map>
#include <string>
#include <vector>

class postgres_stays {
public:
    postgres_stays(const session_rules &rules, moment sample_gap) : rules_(rules), gap_(sample_gap) {}

    // Handles some of the reports that are in no stay yet, and ends stays whose silence or grace is over at `clock`. Reports
    // from before `horizon` may have been deleted, so no stay from before it is made again. `wait`: also waits for shards that
    // another collector has locked. Returns the number of stations handled.
    std::size_t fold(postgres &db, moment clock, moment horizon, bool wait);

private:
    struct station {
        moment since = 0;            // the earliest new report; 0: none, only grace or silence is over
        std::vector<kept_stay> last; // none or one
        report_key from;             // reports before it are in stays already
        bool anew = false;           // the stays since `from` are made again
        std::vector<std::pair<report_key, std::int64_t>> ids; // of stays that are made again
        std::vector<std::pair<report_key, station_report>> reports;
    };
    using stations = std::map<std::string, station>;

    std::vector<std::int64_t> lock_shards(postgres &db, moment clock, bool wait) const;
    stations waiting(postgres &db, const std::vector<std::int64_t> &shards, moment clock) const;
    static void read_last(postgres &db, stations &of);
    static void read_anew(postgres &db, stations &of, moment horizon);
    static void read_reports(postgres &db, stations &of);

    session_rules rules_;
    moment gap_;
};
