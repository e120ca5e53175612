#include "collector/store/station_fold.h"

#include <algorithm>
#include <utility>

void station_fold::resume(kept_stay last) {
    if (last.is.state != presence::gone) going_.resume({last.is, last.heard, last.earliest});
    stays.push_back(std::move(last));
}

void station_fold::take(const report_key &key, const station_report &report) {
    pass(key.at);
    changes_.clear();
    going_.take(report, key.at, changes_);
    for (change &one : changes_) note(std::move(one), &key);
    if (stays.empty()) return;
    stays.back().folded = std::max(stays.back().folded, key.at);
    stays.back().changed = true;
    settle();
}

void station_fold::pass(moment clock) {
    // Each stay ends at its own deadline, however late this is called.
    while (const auto due = going_.next_deadline()) {
        if (*due > clock) return;
        changes_.clear();
        going_.tick(*due, changes_);
        for (change &one : changes_) note(std::move(one), nullptr);
        stays.back().folded = std::max(stays.back().folded, *due);
    }
}

void station_fold::note(change what, const report_key *opened) {
    if (what.kind == change_kind::joined) {
        kept_stay &begun = stays.emplace_back();
        begun.opened = *opened;
    }
    kept_stay &of = stays.back();
    what.now.id = what.kind == change_kind::joined ? 0 : of.is.id;
    of.is = what.now;
    of.changed = true;
    const std::size_t index = stays.size() - 1;
    const bool reported = what.kind != change_kind::left;
    if (reported && (of.sampled == 0 || what.at >= of.sampled + gap_ || what.kind != change_kind::updated)) {
        of.sampled = what.at;
        samples.push_back({index, what.at, what.now});
    }
    if (what.kind != change_kind::updated) events.push_back({index, std::move(what)});
}

// Copies the state of the rules into the stays.
void station_fold::settle() {
    if (stays.empty()) return;
    if (const auto known = going_.known(stays.back().is.mac)) {
        stays.back().heard = known->heard;
        stays.back().earliest = known->earliest;
    }
}
