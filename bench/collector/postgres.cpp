// A minute's reports of 2,048 stations into PostgreSQL, beside a COPY of the same rows alone. WSM_BENCH_POSTGRES is the URL of an
// empty database; without it nothing is measured (bench/collector/database.py gives it one).
#include "collector/store/postgres.h"
#include "bench/collector/traffic.h"
#include "collector/store/packed_image.h"
#include "collector/store/postgres_store.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

namespace {

constexpr std::size_t most_rows = 2000; // of a COPY, as of the store's batch

double seconds_since(std::chrono::steady_clock::time_point begin) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

void tell(const char *what, std::int64_t reports, double seconds) {
    std::printf("%s: %.0f reports a second, %.1f us each\n", what, static_cast<double>(reports) / seconds,
                1e6 * seconds / static_cast<double>(reports));
}

// The same rows of `report` into a table with the same key, nothing else.
void floor_of(const std::string &url, int minutes) {
    postgres db(url);
    db.script("CREATE TABLE bench_floor(day date NOT NULL, ap text COLLATE \"C\" NOT NULL, boot text COLLATE "
              "\"C\" NOT NULL,"
              " seq bigint NOT NULL, at bigint NOT NULL, mac text COLLATE \"C\" NOT NULL, kind integer NOT "
              "NULL, image bytea NOT NULL,"
              " PRIMARY KEY(day, ap, boot, seq)); CREATE INDEX ON bench_floor(mac, at)");
    std::vector<std::vector<std::string>> images;
    for (int minute = 0; minute < minutes; ++minute) images.push_back(images_of_minute(minute));
    std::int64_t seq = 0;
    const auto begin = std::chrono::steady_clock::now();
    for (int minute = 0; minute < minutes; ++minute) {
        const auto &all = images[static_cast<std::size_t>(minute)];
        for (std::size_t first = 0; first < all.size(); first += most_rows) {
            copy_rows out;
            for (std::size_t i = first; i < std::min(all.size(), first + most_rows); ++i) {
                const received in = take_message(all[i], time_of_minute(minute));
                out.row(8).day(in.at / one_day).add("02:54:4b:00:00:01").add("0123456789abcdef").add(++seq);
                out.add(in.at)
                    .add(in.report->mac)
                    .add(std::int32_t{in.report->log_type})
                    .add(pack_image(in.bytes));
            }
            db.copy("COPY bench_floor FROM STDIN (FORMAT binary)", out);
        }
    }
    tell("collector_postgres_floor", seq, seconds_since(begin));
}

// `share` of `shares` collectors: every so many station is its own.
void store_of(const std::string &url, int minutes, int share, int shares) {
    store_options chosen;
    chosen.url = url;
    chosen.keep_days = 0;
    const session_rules rules;
    postgres_store store(chosen, rules);
    std::vector<std::vector<std::string>> images;
    for (int minute = 0; minute < minutes; ++minute) images.push_back(images_of_minute(minute));
    std::uint64_t seq = 0;
    const std::string boot = "0123456789abcde" + std::to_string(share);
    const auto begin = std::chrono::steady_clock::now();
    double committed = 0;
    for (int minute = 0; minute < minutes; ++minute) {
        const auto &all = images[static_cast<std::size_t>(minute)];
        for (std::size_t i = static_cast<std::size_t>(share); i < all.size();
             i += static_cast<std::size_t>(shares)) {
            message one{take_message(all[i], time_of_minute(minute)), {}};
            one.in->from = origin{"02:54:4b:00:00:01", boot, ++seq};
            store.take(one);
            if (seq % 256 == 0) store.settle(); // as a worker does
        }
    }
    store.settle();
    committed = seconds_since(begin);
    store.finish();
    tell("collector_postgres", static_cast<std::int64_t>(seq), seconds_since(begin));
    std::printf("of which after the last report: %.2f s\n", seconds_since(begin) - committed);
}

} // namespace

int main(int argc, char **argv) {
    const char *url = std::getenv("WSM_BENCH_POSTGRES");
    if (!url || argc < 3) {
        std::fprintf(stderr, "usage: WSM_BENCH_POSTGRES=postgresql://... collector_postgres floor|store "
                             "MINUTES [SHARE SHARES]\n");
        return 2;
    }
    try {
        const int minutes = std::atoi(argv[2]);
        if (std::string(argv[1]) == "floor")
            floor_of(url, minutes);
        else
            store_of(url, minutes, argc > 4 ? std::atoi(argv[3]) : 0, argc > 4 ? std::atoi(argv[4]) : 1);
        return 0;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
