// A `get` of the whole list through the broker, and of one station out of more than a list can hold. Each has two floors: a bare
// server that answers with the same bytes, built once; and one that must ask the driver first, as its answer has the figures of this
// moment, and puts the ready bytes of each station into a new message. The list alone is measured as well, without a bus.
#include "bench_house.h"
#include "bus_bench.h"

#include "bus/object.h"
#include "bus/station_list.h"

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

void asking_floor_of_get(benchmark::State &state) {
    call_working_server(
        state, "get", [&] { populate(static_cast<int>(state.range(0))); }, ask_driver);
}

// One of the kind after the other, in the same memory.
template <class Put> void list(benchmark::State &state, Put put) {
    populate(static_cast<int>(state.range(0)));
    struct blob_buf answer = {}, kept = {};
    blob_buf_init(&kept, 0);
    sta_encode_json_sta_array_info(&kept, "online", nullptr, nullptr);
    for (auto _ : state) {
        blob_buf_init(&answer, 0);
        put(answer, kept);
        benchmark::DoNotOptimize(answer.head);
    }
    if (blob_pad_len(answer.head) != blob_pad_len(kept.head)) state.SkipWithError("another answer");
    blob_buf_free(&answer);
    blob_buf_free(&kept);
}

void online_list(benchmark::State &state) {
    list(state, [](struct blob_buf &answer, const struct blob_buf & /*kept*/) {
        sta_encode_json_sta_array_info(&answer, "online", nullptr, nullptr);
    });
}

void online_list_floor(benchmark::State &state) {
    list(state, [](struct blob_buf &answer, const struct blob_buf &kept) {
        ask_driver();
        put_together(answer, kept.head);
    });
}

BENCHMARK(online_list)->Arg(512)->Unit(benchmark::kMicrosecond);
BENCHMARK(online_list_floor)->Arg(512)->Unit(benchmark::kMicrosecond);

void add(const char *name, void (*function)(benchmark::State &), int size) {
    for (const auto &[its_name, its_function] :
         {std::pair{std::string(name), function}, std::pair{std::string(name) + "_floor", &floor_of_get},
          std::pair{std::string(name) + "_asking_floor", &asking_floor_of_get}})
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
