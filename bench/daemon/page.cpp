// 2,048 stations with eight addresses and a name each: the memory of one of them, and a page of them through the broker,
// compared with a bare server that answers with the same bytes.
#include "bench_house.h"
#include "bus_bench.h"

#include "bus/object.h"
#include "model/identity.h"
#include "model/table.h"
#include "tools/log.h"

#include <arpa/inet.h>
#include <malloc.h>

namespace {

constexpr int stations = 2048;
constexpr int on_a_page = 128; // as `wsm` asks: so many, with the members that it shows

// Used bytes of the heap, including the allocator's overhead.
std::size_t in_use() {
    const struct mallinfo2 now = mallinfo2();
    return now.uordblks + now.hblkhd;
}

constexpr const char *name_of_all = "a-client-of-the-benchmark";

// The nth address of a station as text: the first is one of the lease file, the others are neighbours of the kernel.
void write_address(unsigned number, unsigned nth, char (&text)[station_address_text_size]) {
    if (nth == 0)
        std::snprintf(text, sizeof(text), "10.1.%u.%u", number >> 8, number & 255);
    else
        std::snprintf(text, sizeof(text), "2001:db8:1:%x::%x", number + 1, nth);
}

void populate_identities() {
    const sta_info_t *sta = nullptr;
    unsigned number = 0;
    list_for_each_entry (sta, &g_sta_sta_master.list, list) {
        for (unsigned nth = 0; nth < station_addresses_max; ++nth) {
            char text[station_address_text_size];
            write_address(number, nth, text);
            sta_identity_add_address(sta, text, nth == 0 ? station_origin::lease : station_origin::neighbour);
        }
        sta_identity_add_name(sta, name_of_all, station_origin::lease);
        ++number;
    }
}

struct memory_of_stations {
    double record, identity;
};

memory_of_stations populate_and_measure() {
    const std::size_t before = in_use();
    populate(stations);
    const std::size_t records = in_use();
    populate_identities();
    const std::size_t all = in_use();
    return {static_cast<double>(records - before - driver_list_bytes()) / stations,
            static_cast<double>(all - records) / stations};
}

void remember_addresses(benchmark::State &state) {
    static const memory_of_stations of = populate_and_measure();
    for (auto _ : state) {
        state.PauseTiming();
        sta_identity_forget_all();
        state.ResumeTiming();
        populate_identities();
    }
    state.counters["bytes_of_the_record"] = of.record;
    state.counters["bytes_of_the_identity"] = of.identity;
}

// The floor: addresses, times and the name's text, kept in the smallest form and made from the same texts.
void remember_addresses_floor(benchmark::State &state) {
    struct plain {
        station_address addresses[station_addresses_max];
        station_name name;
        char text[sizeof("a-client-of-the-benchmark")];
    };
    std::vector<plain> kept(stations);
    for (auto _ : state) {
        unsigned number = 0;
        for (plain &one : kept) {
            for (unsigned nth = 0; nth < station_addresses_max; ++nth) {
                char text[station_address_text_size];
                write_address(number, nth, text);
                inet_pton(nth == 0 ? AF_INET : AF_INET6, text, one.addresses[nth].bytes);
            }
            std::snprintf(one.text, sizeof(one.text), "%s", name_of_all);
            ++number;
        }
        benchmark::DoNotOptimize(kept.data());
    }
    state.counters["bytes_of_the_identity"] = sizeof(plain);
}

void stations_page(benchmark::State &state) {
    static const pid_t daemon = start_beside([] {
        populate(stations);
        populate_identities();
        sta_ubus_object_init();
        uloop_run();
    });
    static const std::uint32_t id = wait_for_object("wsmd");
    static const bool kept = keep_answer(id, "stations");
    (void)kept;
    call(state, id, "stations", daemon);
    state.counters["cpu_us_per_station"] = state.counters["server_cpu_us"] / on_a_page;
}

// After stations_page: answers with the same bytes.
void stations_page_floor(benchmark::State &state) { call_bare_server(state, "stations"); }

BENCHMARK(remember_addresses)->Unit(benchmark::kMicrosecond);
BENCHMARK(remember_addresses_floor)->Unit(benchmark::kMicrosecond);
BENCHMARK(stations_page)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(stations_page_floor)->Unit(benchmark::kMicrosecond)->UseRealTime();

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    open_bench_house();
    open_bus(
        R"({"limit":128,"fields":["name","ip","addresses","ssid","interface","band","signal","rx_bytes","tx_bytes","connected"]})");
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
