// One `get` of the whole list through the broker, compared with a bare server that answers with the same bytes, built once.
#include "bench_house.h"
#include "bus_bench.h"

#include "bus/object.h"

namespace {

constexpr int stations = 512;

// Benchmarks are called again and again until their time is long enough: their servers are started once.
void get_online(benchmark::State &state) {
    static const pid_t daemon = start_beside([] {
        populate(stations);
        sta_ubus_object_init();
        uloop_run();
    });
    static const std::uint32_t id = wait_for_object("sta");
    static const bool kept = keep_answer(id, "get");
    (void)kept;
    call(state, id, "get", daemon);
    state.counters["cpu_us_per_station"] = state.counters["server_cpu_us"] / stations;
}

// After get_online: answers with the same bytes.
void get_online_floor(benchmark::State &state) { call_bare_server(state, "get"); }

BENCHMARK(get_online)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(get_online_floor)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    open_bench_house();
    open_bus(R"({"get_all_sta_status":"online"})");
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
