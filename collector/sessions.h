// sessions.h - makes stays of stations from their reports. docs/collector.md has the rules as a table; each has a test.
//
// Owns:   the open stays, one per MAC, at most `rules.most_stays`.
// Clock:  the caller's: every call gets the time, so that reports from a file make the same stays.
// Result: a change for every report that counts; other reports are counted in `refused` or `late`.
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
    moment grace = 30 * second; // a station that comes back within it has not left
    moment silence =
        900 * second; // a station without a report for so long has left; the daemon reports every minute
    std::size_t most_stays = 65536;
};

// The MAC in lower case; empty if it is not one.
std::string normal_mac(std::string_view text);

// Why a report cannot be true; null if it can. `mac` is set to the station's, in lower case.
const char *impossible(const station_report &report, std::string &mac);

class sessions {
public:
    explicit sessions(session_rules rules = {}, std::int64_t next_id = 1)
        : rules_(rules), next_id_(next_id) {}

    // Adds the report's changes to `done`. `when`: the time of receipt.
    void take(const station_report &report, moment when, std::vector<change> &done);

    // Ends stays whose grace time is over and stays without reports, oldest first.
    void tick(moment when, std::vector<change> &done);

    // When tick() has something to do next; nothing: never.
    std::optional<moment> next_deadline() const;

    // Takes over a stay that was open when the collector ended. Its grace and silence begin at `when`.
    void restore(stay known, moment when);

    // An open stay with the whole state of the rules: resumed in another object, it continues as if nothing had happened.
    struct entry {
        stay is;
        moment heard; // when its grace or silence began
        // Its reports have this association time or a later one: a daemon keeps the first time when the station has moved to
        // another of its radios, or has associated again without leaving; only the report of the arrival has the new time.
        std::int32_t earliest;
    };
    std::optional<entry> known(const std::string &mac) const;
    void resume(entry known);

    // Sets the least number of the next stay.
    void begin_with(std::int64_t next_id) { next_id_ = std::max(next_id_, next_id); }

    void set_rules(session_rules rules);

    std::size_t count() const { return stays_.size(); }
    std::int64_t next_id() const { return next_id_; }
    std::uint64_t refused = 0; // impossible values, or too many stations
    std::uint64_t late = 0;    // reports of an earlier association, or of a radio that the station has left

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
    std::set<std::pair<moment, std::string>> deadlines_; // of every stay, with the MAC
};
