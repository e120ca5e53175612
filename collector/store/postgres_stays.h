// postgres_stays.h - makes stays, events and time series out of the table of reports, for any number of collectors.
//
// Result: depends on the reports in the table and on the rules alone, not on who stored them, in which order, or how often
//         they came. A report that is older than what its station's stays were made of has the stays since then made anew.
// Locks:  one for each shard of the stations, until the transaction's end. Whoever does not get one leaves its stations to
//         who has it.
#pragma once

#include "collector/store/postgres.h"
#include "collector/store/station_fold.h"

#include <map>
#include <string>
#include <vector>

class postgres_stays {
public:
    postgres_stays(const session_rules &rules, moment sample_gap) : rules_(rules), gap_(sample_gap) {}

    // Takes up some of the reports that are in no stay yet, and ends what silence and grace have ended by `clock`. Reports
    // from before `horizon` may be gone, so that no stay from before it is made anew. `wait`: for shards that somebody else
    // has, too. Returns how many stations were looked at.
    std::size_t fold(postgres &db, moment clock, moment horizon, bool wait);

private:
    struct station {
        moment since = 0;            // the earliest report that is new; 0: none, only its time has come
        std::vector<kept_stay> last; // none or one
        report_key from;             // reports before it count already
        bool anew = false;           // since `from`
        std::vector<std::pair<report_key, std::int64_t>> ids; // of stays that are made anew
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
