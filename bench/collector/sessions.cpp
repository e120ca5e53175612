// A report from its image to the change of a stay, beside the decoding alone; and to a line of JSON.
#include "collector/sessions.h"
#include "bench/collector/traffic.h"
#include "collector/report_writer.h"

#include <algorithm>
#include <benchmark/benchmark.h>

namespace {

// A report of each minute in turn, with the time it comes at.
class minutes {
public:
    minutes() {
        for (int minute = 0; minute < 4; ++minute) kept_.push_back(images_of_minute(minute));
    }
    const std::string &next(moment &at) {
        if (++station_ == stations) {
            station_ = 0;
            ++minute_;
        }
        at = time_of_minute(minute_);
        return kept_[minute_ == 0 ? 0 : 1 + static_cast<std::size_t>(minute_) % 3]
                    [static_cast<std::size_t>(station_)];
    }

private:
    std::vector<std::vector<std::string>> kept_;
    int station_ = -1;
    int minute_ = 0;
};

void collector_sessions(benchmark::State &state) {
    minutes from;
    sessions stays;
    std::vector<change> done;
    moment at = 0;
    for (auto _ : state) {
        const received in = take_message(from.next(at), at);
        done.clear();
        stays.tick(at, done);
        stays.take(*in.report, at, done);
        benchmark::DoNotOptimize(done);
    }
    if (stays.count() != std::min<std::size_t>(stations, static_cast<std::size_t>(state.iterations())))
        state.SkipWithError("not all stations are there");
}

void collector_sessions_floor(benchmark::State &state) {
    minutes from;
    moment at = 0;
    for (auto _ : state) benchmark::DoNotOptimize(take_message(from.next(at), at));
}

void collector_json(benchmark::State &state) {
    minutes from;
    moment at = 0;
    for (auto _ : state) {
        const received in = take_message(from.next(at), at);
        benchmark::DoNotOptimize(report_json(*in.report, in.at));
    }
}

void collector_json_floor(benchmark::State &state) { collector_sessions_floor(state); }

BENCHMARK(collector_sessions);
BENCHMARK(collector_sessions_floor);
BENCHMARK(collector_json);
BENCHMARK(collector_json_floor);

} // namespace
