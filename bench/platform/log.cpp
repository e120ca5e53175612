// The cost of a message: silenced, compared with a call that only compares; written, compared with a write of as many bytes.
#include "debug/dbg.h"

#include <benchmark/benchmark.h>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

int g_threshold = 3;
[[gnu::noinline]] void only_compare(int level) {
    benchmark::DoNotOptimize(g_threshold); // it may change at any time
    if (level > g_threshold) return;
    benchmark::ClobberMemory();
}

void floor_of_silence(benchmark::State &state) {
    for (auto _ : state) only_compare(7);
}
BENCHMARK(floor_of_silence);

void silenced(benchmark::State &state) {
    const int module = dbg_module_reg("bench");
    for (auto _ : state) dbg_printf(module, 7, "Function %s:%d station %s\n", "f", 12, "02:00:00:00:00:01");
}
BENCHMARK(silenced);

std::string new_file() {
    std::string name = "/tmp/bench-log-XXXXXX";
    close(mkstemp(name.data()));
    return name;
}

void floor_of_writing(benchmark::State &state) {
    const std::string name = new_file();
    const int fd = open(name.c_str(), O_WRONLY | O_APPEND);
    const std::string line(88, 'x');
    for (auto _ : state) benchmark::DoNotOptimize(write(fd, line.data(), line.size()));
    close(fd);
    unlink(name.c_str());
}
BENCHMARK(floor_of_writing);

void written(benchmark::State &state) {
    const std::string name = new_file();
    dbg_init("bench", name.c_str(), 160); // 10 MiB
    const int module = dbg_module_reg("bench");
    for (auto _ : state) dbg_printf(module, 3, "Function %s:%d station %s\n", "f", 12, "02:00:00:00:00:01");
    unlink(name.c_str());
    unlink((name + ".0").c_str());
}
BENCHMARK(written);

} // namespace

BENCHMARK_MAIN();
