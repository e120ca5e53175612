#include "collector/live.h"

#include <algorithm>
#include <chrono>

namespace {

constexpr std::size_t most_behind = 1 << 20; // bytes that a subscriber has not fetched
constexpr std::size_t most_access_points = 4096;
constexpr std::size_t most_reasons = 256; // of an access point

} // namespace

void live_view::begin_with(std::vector<stay> here) {
    const std::lock_guard hold(lock_);
    for (stay &one : here) here_.insert_or_assign(one.mac, std::move(one));
    counted_.stations = here_.size();
}

void live_view::take(const message &one) {
    if (!one.what) {
        const std::lock_guard hold(lock_);
        counted_ = one.counted;
        counted_.stations = here_.size();
        return;
    }
    const change &what = *one.what;
    const std::string text = write ? write(what) : std::string();
    const std::lock_guard hold(lock_);
    const auto known = here_.find(what.now.mac);
    if (counts_.contains(what.now.ap) || counts_.size() < most_access_points) {
        totals &of = counts_[what.now.ap];
        if (one.in) ++of.reports;
        const bool same = known != here_.end() && known->second.id == what.now.id;
        const std::uint64_t up = same ? known->second.up.total : 0,
                            down = same ? known->second.down.total : 0;
        of.up += what.now.up.total - std::min(up, what.now.up.total);
        of.down += what.now.down.total - std::min(down, what.now.down.total);
        switch (what.kind) {
        case change_kind::joined: ++of.joined; break;
        case change_kind::roamed: ++of.roamed; break;
        case change_kind::returned: ++of.returned; break;
        case change_kind::left:
            ++of.left;
            if (of.departures.contains(what.now.reason_code) || of.departures.size() < most_reasons) {
                departure_count &reason = of.departures[what.now.reason_code];
                reason.reason = what.now.reason;
                reason.ended_by = what.now.ended_by;
                ++reason.count;
            }
            break;
        case change_kind::updated:
        case change_kind::leaving: break;
        }
    }
    if (what.kind == change_kind::left)
        here_.erase(what.now.mac);
    else
        here_.insert_or_assign(what.now.mac, what.now);
    counted_ = one.counted;
    counted_.stations = here_.size();
    std::erase_if(subscribers_, [&text](const std::weak_ptr<subscription> &weak) {
        const auto one_of = weak.lock();
        if (!one_of) return true;
        const std::lock_guard hold_one(one_of->lock_);
        one_of->bytes_ += text.size();
        if (one_of->bytes_ > most_behind) {
            one_of->over_ = true;
            one_of->waiting_.clear();
        } else {
            one_of->waiting_.push_back(text);
        }
        one_of->filled_.notify_one();
        return one_of->over_;
    });
}

live_view::snapshot live_view::all() const {
    const std::lock_guard hold(lock_);
    snapshot taken{counted_, {}, counts_};
    taken.stations.reserve(here_.size());
    for (const auto &[mac, one] : here_) taken.stations.push_back(one);
    return taken;
}

input_counters live_view::counters() const {
    const std::lock_guard hold(lock_);
    return counted_;
}

bool live_view::find(const std::string &mac, stay &out) const {
    const std::lock_guard hold(lock_);
    const auto at = here_.find(mac);
    if (at == here_.end()) return false;
    out = at->second;
    return true;
}

std::shared_ptr<live_view::subscription> live_view::subscribe() {
    auto made = std::make_shared<subscription>();
    const std::lock_guard hold(lock_);
    made->over_ = closed_;
    subscribers_.push_back(made);
    return made;
}

void live_view::close() {
    const std::lock_guard hold(lock_);
    closed_ = true;
    for (const auto &weak : subscribers_)
        if (const auto one = weak.lock()) {
            const std::lock_guard hold_one(one->lock_);
            one->over_ = true;
            one->filled_.notify_one();
        }
}

std::string live_view::subscription::next(int milliseconds, bool &over) {
    std::unique_lock hold(lock_);
    filled_.wait_for(hold, std::chrono::milliseconds(milliseconds),
                     [this] { return over_ || !waiting_.empty(); });
    over = over_ && waiting_.empty();
    std::string all;
    while (!waiting_.empty() && all.size() < 65536) {
        all += waiting_.front();
        waiting_.pop_front();
    }
    bytes_ -= std::min(bytes_, all.size());
    return all;
}
