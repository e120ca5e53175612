// The daemon's repeating work at growing numbers of stations, each beside a floor: the same bytes written to
// the same files and sockets by a program that has them ready.

#include "bench_house.h"

#include "life/log_up.h"
#include "life/pass.h"
#include "model/table.h"
#include "protocol/station_report.h"
#include "tools/log.h"

#include <benchmark/benchmark.h>
#include <cstdio>

namespace {

int stations(const benchmark::State &state) { return static_cast<int>(state.range(0)); }

void report_per_station(benchmark::State &state) {
    state.counters["per_station"] =
        benchmark::Counter(static_cast<double>(state.range(0)),
                           benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    state.SetComplexityN(state.range(0));
}

void five_second_pass(benchmark::State &state) {
    populate(stations(state));
    sta_sta_flow_count_proc();
    for (auto _ : state) sta_sta_flow_count_proc();
    report_per_station(state);
}

void five_second_pass_floor(benchmark::State &state) {
    populate(stations(state));
    sta_sta_flow_count_proc();
    const std::string backup = read_whole("/tmp/sta_sta.info");
    const std::string counters = read_whole("/tmp/sta_devc.info");
    for (auto _ : state) {
        benchmark::DoNotOptimize(read_whole("/tmp/sta_sta.info"));
        write_whole("/tmp/sta_sta_tmp.info", backup);
        if (std::rename("/tmp/sta_sta_tmp.info", "/tmp/sta_sta.info") != 0) state.SkipWithError("rename");
        write_whole("/tmp/sta_devc.info", counters);
    }
    report_per_station(state);
}

void log_up(benchmark::State &state) {
    populate(stations(state));
    for (auto _ : state) sta_sta_log_byioctl_update();
    report_per_station(state);
}

void log_up_floor(benchmark::State &state) {
    populate(stations(state));
    const std::uint8_t image[station_report_size] = {};
    for (auto _ : state)
        for (int i = 0; i < stations(state); ++i) send_ready_report(image);
    report_per_station(state);
}

[[gnu::noinline]] void empty_call(int module, int level, const char *format, int value) {
    asm volatile("" : : "r"(module), "r"(level), "r"(format), "r"(value) : "memory");
}

void silenced_log_call(benchmark::State &state) {
    int value = 0;
    for (auto _ : state) STA_LOG("value %d\n", ++value);
}

void silenced_log_call_floor(benchmark::State &state) {
    int value = 0;
    for (auto _ : state) empty_call(g_main_id, 7, "Function %s:%d value %d\n", ++value);
}

void sizes(benchmark::internal::Benchmark *benchmark) {
    for (const int count : {64, 256, 1024, 2048}) benchmark->Arg(count);
    benchmark->Unit(benchmark::kMicrosecond);
}

BENCHMARK(five_second_pass)->Apply(sizes);
BENCHMARK(five_second_pass_floor)->Apply(sizes);
BENCHMARK(log_up)->Apply(sizes);
BENCHMARK(log_up_floor)->Apply(sizes);
BENCHMARK(silenced_log_call);
BENCHMARK(silenced_log_call_floor);

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    open_bench_house();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
