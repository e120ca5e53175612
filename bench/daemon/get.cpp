// A `get` of the whole list through the broker, and of one station out of more than a list can hold; each beside a bare server
// that answers with the same bytes, built once.
#include "bench_house.h"
#include "bus_bench.h"

#include "bus/object.h"

namespace {

constexpr const char *everybody = R"({"get_all_sta_status":"online"})";
constexpr const char *one_of_them = R"({"get_all_sta_status":"online","get_sta_mac":"02:00:00:00:00:07"})";

// Benchmarks are called again and again until their time is long enough: a daemon of one size is started once.
void get(benchmark::State &state, const char *question) {
    static pid_t daemon = 0;
    static int stations = 0;
    static const char *asked = nullptr;
    const auto wanted = static_cast<int>(state.range(0));
    if (stations != wanted) {
        if (daemon != 0) end_beside(daemon, "sta");
        daemon = start_beside([=] {
            populate(wanted);
            sta_ubus_object_init();
            uloop_run();
        });
    }
    const std::uint32_t id = wait_for_object("sta");
    if (stations != wanted || asked != question) {
        ask(question);
        keep_answer(id, "get");
    }
    stations = wanted;
    asked = question;
    call(state, id, "get", daemon);
    state.counters["cpu_us_per_station"] = state.counters["server_cpu_us"] / wanted;
}

void get_online(benchmark::State &state) { get(state, everybody); }
void get_of_one(benchmark::State &state) { get(state, one_of_them); }

// Behind each of the others: it answers with what that answered.
void floor_of_get(benchmark::State &state) { call_bare_server(state, "get"); }

void add(const char *name, void (*function)(benchmark::State &), int size) {
    for (const auto &[its_name, its_function] :
         {std::pair{std::string(name), function}, std::pair{std::string(name) + "_floor", &floor_of_get}})
        benchmark::RegisterBenchmark(its_name.c_str(), its_function)
            ->Arg(size)
            ->Unit(benchmark::kMicrosecond)
            ->UseRealTime();
}

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    open_bench_house();
    open_bus(everybody);
    for (const int size : {64, 128, 256, 512, 768})
        add("get_online", get_online, size); // no message holds more
    for (const int size : {64, 128, 256, 512, 1024, 2048, 4096}) add("get_of_one", get_of_one, size);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
