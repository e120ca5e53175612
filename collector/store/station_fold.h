// station_fold.h - makes the stays of one station from its reports, in any number of steps.
//
// Result: depends only on the reports, in the order of their keys, and on the rules. Resuming what another collector has
//         stored gives the same result as one run.
#pragma once

#include "collector/sessions.h"

#include <compare>
#include <string>
#include <vector>

// Identifies a report and orders the reports of a station.
struct report_key {
    moment at = 0; // of the receipt
    std::string ap;
    std::string boot;
    std::int64_t seq = 0;
    auto operator<=>(const report_key &) const = default;
};

// A stay as it is stored.
struct kept_stay {
    stay is; // id 0: no number yet
    moment heard = 0;
    std::int32_t earliest = 0;
    report_key opened;    // its first report
    moment sampled = 0;   // time of the last point of its series
    moment folded = 0;    // all reports and deadlines of the station up to this time are included
    bool changed = false; // since it was resumed
};

class station_fold {
public:
    struct event {
        std::size_t of; // index in `stays`
        change what;
    };
    struct sample {
        std::size_t of;
        moment at;
        stay now; // figures of that time
    };

    // `sample_gap`: least time between two points of a stay's series.
    station_fold(const session_rules &rules, moment sample_gap) : going_(rules), gap_(sample_gap) {}

    // Resumes the station's last stay, if there is one. To be called first.
    void resume(kept_stay last);
    void take(const report_key &key, const station_report &report);
    // Ends stays whose silence or grace is over at `clock`.
    void pass(moment clock);

    std::vector<kept_stay> stays; // the resumed one and the new ones
    std::vector<event> events;
    std::vector<sample> samples;

private:
    void note(change what, const report_key *opened);
    void settle();
    sessions going_;
    moment gap_;
    std::vector<change> changes_;
};
