// sessions.h - stays of stations out of their reports. docs/collector.md has the rules as a table; each has a test.
//
// Owns:   the stays that go on, one per MAC, at most `rules.most_stays`.
// Clock:  the caller's: every call says what time it is, so that reports out of a file make the same stays.
// Result: a change for every report that counted; for others none, and a number in `refused` or `late`.
#pragma once

#include "collector/stay.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

struct session_rules {
    moment grace = 30 * second; // who comes back within it has not left
    moment silence =
        900 * second; // who is not reported for so long has left; the daemon reports every minute
    std::size_t most_stays = 65536;
};

// The MAC in lower case; empty when it is none.
std::string normal_mac(std::string_view text);

// Why a report is none that can be true; null when it can. `mac` is set to the station's, in lower case.
const char *impossible(const station_report &report, std::string &mac);

class sessions {
public:
    explicit sessions(session_rules rules = {}, std::int64_t next_id = 1)
        : rules_(rules), next_id_(next_id) {}

    // Adds what the report changes to `done`. `when`: the time of the receipt.
    void take(const station_report &report, moment when, std::vector<change> &done);

    // Ends those whose grace time is over and those of whom nothing was heard, oldest first.
    void tick(moment when, std::vector<change> &done);

    // When tick() has something to do; nothing: never.
    std::optional<moment> next_deadline() const;

    // A stay that went on when the collector ended. Its times of grace and silence begin at `when`.
    void restore(stay known, moment when);

    // A stay that goes on, with all that the rules know of it: taken up elsewhere, it goes on as if it had never stopped.
    struct entry {
        stay is;
        moment heard; // when its time of grace or silence began
        // Reports tell of an association of this time or a later one: a daemon goes on with the first one's when the station
        // has moved to another of its radios, or has associated again without leaving; only the "on line" tells the new time.
        std::int32_t earliest;
    };
    std::optional<entry> known(const std::string &mac) const;
    void resume(entry known);

    // The number of the next stay, at least.
    void begin_with(std::int64_t next_id) { next_id_ = std::max(next_id_, next_id); }

    void set_rules(session_rules rules);

    std::size_t count() const { return stays_.size(); }
    std::int64_t next_id() const { return next_id_; }
    std::uint64_t refused = 0; // impossible values, or more stations than may be
    std::uint64_t late = 0;    // reports of an association that is over, or of a place that was left

private:
    using table = std::unordered_map<std::string, entry>;
    change open(const station_report &report, const std::string &mac, moment when);
    std::optional<change_kind> depart(entry &of, const station_report &report, moment when) const;
    std::optional<change_kind> proceed(entry &of, const station_report &report, moment when) const;
    change end(table::iterator at, moment when);
    moment deadline(const entry &known) const;

    session_rules rules_;
    std::int64_t next_id_ = 1;
    table stays_;
    std::set<std::pair<moment, std::string>> deadlines_; // of every stay, with its MAC
};
