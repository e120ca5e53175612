#include "collector/pipeline.h"

#include <algorithm>
#include <utility>

void pipeline::add(std::string name, std::unique_ptr<output> out, std::size_t most_waiting) {
    workers_.push_back(std::make_unique<worker>(std::move(name), std::move(out), most_waiting));
}

void pipeline::restore(stay known, moment when) {
    sessions_.restore(std::move(known), when);
    counted_.stations = sessions_.count();
}

void pipeline::take(received in) { pass(std::move(in), false); }
void pipeline::feed(received in) { pass(std::move(in), true); }

void pipeline::pass(received in, bool wait) {
    if (!in.report) {
        ++counted_.wrong_size;
        hand_on({std::move(in), {}}, wait);
        return;
    }
    ++counted_.reports;
    // For reports from a file, their own times are the only clock; it never goes back.
    const moment when = in.at != 0 ? in.at : fed_ = std::max(fed_, made_at(*in.report));
    changes_.clear();
    sessions_.tick(when, changes_);
    const std::size_t by_clock = changes_.size();
    sessions_.take(*in.report, when, changes_);
    counted_.impossible = sessions_.refused;
    counted_.late = sessions_.late;
    counted_.stations = sessions_.count();
    // The report is passed on with the last change, which is its own if it made one.
    const bool counted = changes_.size() > by_clock;
    const std::size_t others = changes_.size() - (counted ? 1 : 0);
    for (std::size_t i = 0; i < others; ++i) hand_on({{}, std::move(changes_[i])}, wait);
    hand_on({std::move(in), counted ? std::optional(std::move(changes_.back())) : std::nullopt}, wait);
}

int pipeline::tick(moment when) {
    changes_.clear();
    sessions_.tick(when, changes_);
    counted_.stations = sessions_.count();
    for (change &one : changes_) hand_on({{}, std::move(one)}, false);
    const auto next = sessions_.next_deadline();
    if (!next) return -1;
    return static_cast<int>(std::clamp<moment>((*next - when) / 1000 + 1, 1, 60'000));
}

void pipeline::hand_on(message one, bool wait) {
    one.counted = counted_;
    const auto entry = std::make_shared<const message>(std::move(one));
    for (const auto &each : workers_) wait ? each->feed(entry) : each->push(entry);
}

worker::ending pipeline::finish(std::chrono::milliseconds patience, std::vector<std::string> &dropped) {
    auto worst = worker::ending::done;
    for (; !workers_.empty(); workers_.pop_back()) {
        worst = std::max(worst, workers_.back()->finish(patience));
        if (const output_figures figures = workers_.back()->figures(); figures.dropped > 0)
            dropped.push_back(figures.name + ": " + std::to_string(figures.dropped) + " messages dropped");
    }
    return worst;
}

std::vector<output_figures> pipeline::figures() const {
    std::vector<output_figures> all;
    for (const auto &each : workers_) all.push_back(each->figures());
    return all;
}
