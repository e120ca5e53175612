// live.h - who is here now, and the counts since the start. An output of its own keeps it, so that a
// question never makes the input wait.
#pragma once

#include "collector/output.h"

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct departure_count {
    std::string reason;
    std::string ended_by;
    std::uint64_t count = 0;
};

class live_view {
public:
    // Counted for each access point since the start.
    struct totals {
        std::uint64_t reports = 0, joined = 0, roamed = 0, returned = 0, left = 0;
        std::uint64_t up = 0, down = 0;            // bytes
        std::map<int, departure_count> departures; // by reason code
    };

    // Everything as it was after the same message, so that the parts are consistent.
    struct snapshot {
        input_counters counted;
        std::vector<stay> stations; // in order of their MACs
        std::map<std::string, totals> counts;
    };

    void begin_with(std::vector<stay> here);
    void take(const message &one);

    snapshot all() const;
    input_counters counters() const;
    bool find(const std::string &mac, stay &out) const;

    // A stream of changes, as event texts. A reader that falls too far behind is disconnected; it never misses single events.
    class subscription {
    public:
        // Waits at most `milliseconds` for a text. Empty: nothing came. `over`: it fell behind, or the view is closed.
        std::string next(int milliseconds, bool &over);

    private:
        friend class live_view;
        std::mutex lock_;
        std::condition_variable filled_;
        std::deque<std::string> waiting_;
        std::size_t bytes_ = 0;
        bool over_ = false;
    };
    std::shared_ptr<subscription> subscribe();
    // Ends all subscriptions.
    void close();

    // Writes a change for subscribers. To be set before the first message.
    std::function<std::string(const change &)> write;

private:
    mutable std::mutex lock_;
    input_counters counted_;
    std::map<std::string, stay> here_;
    std::map<std::string, totals> counts_;
    std::vector<std::weak_ptr<subscription>> subscribers_;
    bool closed_ = false;
};

class live_output : public output {
public:
    explicit live_output(std::shared_ptr<live_view> view) : view_(std::move(view)) {}
    void take(const message &one) override { view_->take(one); }

private:
    std::shared_ptr<live_view> view_;
};
