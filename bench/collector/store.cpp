// A minute's reports of 2,048 stations into the store, beside the same rows by prepared statements alone. A commit ends each.
#include "bench/collector/traffic.h"
#include "collector/store/schema.h"
#include "collector/store/sqlite_store.h"

#include <benchmark/benchmark.h>
#include <filesystem>

namespace {

std::string fresh_file() {
    const std::string path = std::filesystem::temp_directory_path() / "wsm-collector-bench.db";
    for (const char *part : {"", "-wal", "-shm"}) std::filesystem::remove(path + part);
    return path;
}

void collector_store(benchmark::State &state) {
    traffic from;
    sqlite_store store({.path = fresh_file(), .commit = 0});
    for (auto _ : state) {
        state.PauseTiming();
        const std::vector<message> all = from.next_minute();
        state.ResumeTiming();
        for (const message &one : all) store.take(one);
        store.settle();
    }
    store.finish();
    fresh_file();
}

void collector_store_floor(benchmark::State &state) {
    database db(fresh_file(), database::access::write);
    db.run("PRAGMA auto_vacuum = INCREMENTAL; PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL;"
           "PRAGMA cache_size = -2048; PRAGMA wal_autocheckpoint = 500;");
    for (const char *version : schema_versions) db.run(version);
    traffic from;
    const std::vector<message> all = from.next_minute();
    statement stay(db, "INSERT OR REPLACE INTO stay VALUES"
                       "(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)"),
        address(
            db,
            "INSERT INTO address VALUES(?,?,?,?) ON CONFLICT(stay, ip) DO UPDATE SET last = excluded.last"),
        sample(db,
               "INSERT INTO sample(at, stay, signal, up, down, rate_up, rate_down) VALUES(?,?,?,?,?,?,?)");
    std::int64_t at = time_of_minute(0);
    for (auto _ : state) {
        db.run("BEGIN IMMEDIATE");
        for (const message &one : all) {
            const auto &known = one.what->now;
            stay.bind(known.id).bind(known.mac).bind(0).bind(known.ap).bind(0).bind(6).bind(known.ssid);
            stay.bind(known.ifname).bind(at).bind(known.began).bind(at).bind_null();
            stay.bind(0).bind(known.reason).bind(known.ended_by).bind(0).bind(0).bind(1);
            for (int column = 18; column < 30; ++column) stay.bind(at + column);
            stay.bind(known.version).bind(0).run();
            address.bind(known.id).bind(known.addresses[0].ip).bind(known.began).bind(at).run();
            sample.bind(at).bind(known.id).bind(-50).bind(at).bind(at).bind(1).bind(1).run();
        }
        db.run("COMMIT");
        at += 60 * second;
    }
    fresh_file();
}

BENCHMARK(collector_store)->Iterations(40)->Unit(benchmark::kMillisecond);
BENCHMARK(collector_store_floor)->Iterations(40)->Unit(benchmark::kMillisecond);

} // namespace
