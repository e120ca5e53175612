// station_fold.h - the stays of one station out of its reports, bit by bit.
//
// Result: depends on nothing but the reports, in the order of their keys, and the rules. Who takes up what another has
//         left goes on as if there had been no break.
#pragma once

#include "collector/sessions.h"

#include <compare>
#include <string>
#include <vector>

// One report, and its place among those of its station.
struct report_key {
    moment at = 0; // of the receipt
    std::string ap;
    std::string boot;
    std::int64_t seq = 0;
    auto operator<=>(const report_key &) const = default;
};

// A stay as it is kept.
struct kept_stay {
    stay is; // id 0: it has none yet
    moment heard = 0;
    std::int32_t earliest = 0;
    report_key opened;    // its first report
    moment sampled = 0;   // when the last point of its time series was
    moment folded = 0;    // all reports of the station up to then count, and its time has come so far
    bool changed = false; // since it was taken up
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

    // The station's last stay so far. First of all, if there is one.
    void resume(kept_stay last);
    void take(const report_key &key, const station_report &report);
    // Ends what silence and grace have ended by then.
    void pass(moment clock);

    std::vector<kept_stay> stays; // the one that was taken up, and those that began
    std::vector<event> events;
    std::vector<sample> samples;

private:
    void note(change what, const report_key *opened);
    void settle();
    sessions going_;
    moment gap_;
    std::vector<change> changes_;
};
