// The daemon's repeating work at growing numbers of stations, each compared with a floor: a program that asks
// the driver the same and writes the same ready bytes to the same files and sockets.

#include "bench_house.h"

#include "life/address.h"
#include "life/log_up.h"
#include "life/pass.h"
#include "model/table.h"
#include "protocol/station_report.h"
#include "tools/log.h"

#include <benchmark/benchmark.h>
#include <cstdio>
#include <sys/sysinfo.h>
#include <vector>

namespace {

int stations(const benchmark::State &state) { return static_cast<int>(state.range(0)); }

// What a sleep of five seconds does to the caches, in which others run.
void forget_caches() {
    static std::vector<char> other(std::size_t{64} << 20);
    for (std::size_t at = 0; at < other.size(); at += 64) ++other[at];
    benchmark::ClobberMemory();
}

void five_second_pass_cold(benchmark::State &state) {
    populate(stations(state));
    sta_sta_flow_count_proc();
    for (auto _ : state) {
        state.PauseTiming();
        forget_caches();
        state.ResumeTiming();
        sta_sta_flow_count_proc();
    }
    report_per_station(state);
}

void five_second_pass(benchmark::State &state) {
    populate(stations(state));
    sta_sta_flow_count_proc();
    for (auto _ : state) sta_sta_flow_count_proc();
    report_per_station(state);
}

// With `reading`, a program that reads its file back, as one must that keeps no lines of it.
void pass_floor(benchmark::State &state, bool reading, bool cold) {
    populate(stations(state));
    sta_sta_flow_count_proc();
    const std::string backup = read_whole("/tmp/sta_sta.info");
    const std::string counters = read_whole("/tmp/sta_devc.info");
    for (auto _ : state) {
        if (cold) {
            state.PauseTiming();
            forget_caches();
            state.ResumeTiming();
        }
        ask_driver();
        if (reading) benchmark::DoNotOptimize(read_whole("/tmp/sta_sta.info"));
        write_whole("/tmp/sta_sta_tmp.info", backup);
        if (std::rename("/tmp/sta_sta_tmp.info", "/tmp/sta_sta.info") != 0) state.SkipWithError("rename");
        write_whole("/tmp/sta_devc.info", counters);
    }
    report_per_station(state);
}

void five_second_pass_floor(benchmark::State &state) { pass_floor(state, true, false); }
void five_second_pass_bare_floor(benchmark::State &state) { pass_floor(state, false, false); }
void five_second_pass_cold_floor(benchmark::State &state) { pass_floor(state, true, true); }

void log_up(benchmark::State &state) {
    populate(stations(state));
    for (auto _ : state) sta_sta_log_byioctl_update();
    report_per_station(state);
}

void log_up_floor(benchmark::State &state) {
    populate(stations(state));
    const std::uint8_t image[station_report_size] = {};
    for (auto _ : state) {
        ask_driver();
        for (int i = 0; i < stations(state); ++i) send_ready_report(image);
    }
    report_per_station(state);
}

// All stations have had their early report, so none is due.
void early_reports(benchmark::State &state) {
    populate(stations(state));
    for (int pass = 0; pass < 4; ++pass) sta_sta_log_single_byioctl_update();
    for (auto _ : state) sta_sta_log_single_byioctl_update();
    report_per_station(state);
}

void early_reports_floor(benchmark::State &state) {
    struct sysinfo system {};
    for (auto _ : state) sysinfo(&system);
}

void write_leases(int count, const char *name) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        char line[128];
        std::snprintf(line, sizeof(line),
                      "1700000000 02:00:00:00:%02x:%02x 192.168.1.20 %s 01:02:00:00:00:%02x:%02x\n",
                      static_cast<unsigned>(i) >> 8, static_cast<unsigned>(i) & 255, name,
                      static_cast<unsigned>(i) >> 8, static_cast<unsigned>(i) & 255);
        text += line;
    }
    write_whole("/tmp/dhcp.leases", text);
}

// The file has changed, but no lease of a station.
void lease_refresh(benchmark::State &state) {
    populate(stations(state));
    write_leases(stations(state), "a-client-of-the-benchmark");
    for (auto _ : state) sta_sta_update_name_by_dhcp();
    report_per_station(state);
}

void lease_refresh_floor(benchmark::State &state) {
    write_leases(stations(state), "a-client-of-the-benchmark");
    for (auto _ : state) benchmark::DoNotOptimize(read_whole("/tmp/dhcp.leases"));
    report_per_station(state);
}

// All stations have another name.
void lease_refresh_of_names(benchmark::State &state) {
    populate(stations(state));
    sta_sta_flow_count_proc();
    bool other = false;
    for (auto _ : state) {
        state.PauseTiming();
        write_leases(stations(state),
                     (other = !other) ? "another-of-the-benchmark" : "a-client-of-the-benchmark");
        state.ResumeTiming();
        sta_sta_update_name_by_dhcp();
    }
    report_per_station(state);
}

void lease_refresh_of_names_floor(benchmark::State &state) {
    populate(stations(state));
    sta_sta_flow_count_proc();
    write_leases(stations(state), "a-client-of-the-benchmark");
    const std::string backup = read_whole("/tmp/sta_sta.info");
    for (auto _ : state) {
        benchmark::DoNotOptimize(read_whole("/tmp/dhcp.leases"));
        write_whole("/tmp/sta_sta.info", backup);
    }
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

BENCHMARK(five_second_pass)->Apply(growing_sizes);
BENCHMARK(five_second_pass_floor)->Apply(growing_sizes);
BENCHMARK(five_second_pass_bare_floor)->Apply(growing_sizes);
BENCHMARK(five_second_pass_cold)->Arg(128)->Arg(512)->Arg(2048)->Unit(benchmark::kMicrosecond);
BENCHMARK(five_second_pass_cold_floor)->Arg(128)->Arg(512)->Arg(2048)->Unit(benchmark::kMicrosecond);
BENCHMARK(log_up)->Apply(growing_sizes);
BENCHMARK(log_up_floor)->Apply(growing_sizes);
BENCHMARK(early_reports)->Apply(growing_sizes);
BENCHMARK(early_reports_floor)->Apply(growing_sizes);
BENCHMARK(lease_refresh)->Apply(growing_sizes);
BENCHMARK(lease_refresh_floor)->Apply(growing_sizes);
BENCHMARK(lease_refresh_of_names)->Apply(growing_sizes);
BENCHMARK(lease_refresh_of_names_floor)->Apply(growing_sizes);
BENCHMARK(silenced_log_call);
BENCHMARK(silenced_log_call_floor);

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    open_bench_house();
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
