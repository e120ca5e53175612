// feed_store URL [--grace S] [--sample S] [--keep D] [--clock T] - a collector whose input is a stream of messages as a broker would hand
// them over. T: what its clock shows when they come, in seconds since 1970.
//
// Input:  records of 8 bytes time of receipt (microseconds, 0: not told), 8 bytes ticket, 8 bytes number of the report, 20 bytes access
//         point, 20 bytes run, 696 bytes image; numbers little-endian, texts up to the first zero.
// feed_store URL --next STATEMENTS - brings the tables up to a made-up next version of the schema, which these statements make.
//
// Output: a line with the ticket each time that one is committed. Ends with its input.
#include "collector/pipeline.h"
#include "collector/store/postgres_schema.h"
#include "collector/store/postgres_store.h"
#include "collector/times.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iterator>
#include <string_view>
#include <vector>

namespace {

struct record {
    std::int64_t at;
    std::uint64_t ticket;
    std::uint64_t seq;
    char access_point[20];
    char boot[20];
    char image[station_report_size];
};

received message_of(const record &one, moment clock) {
    received in = take_message(std::string(one.image, sizeof(one.image)), one.at);
    in.from = origin{std::string(one.access_point, strnlen(one.access_point, sizeof(one.access_point))),
                     std::string(one.boot, strnlen(one.boot, sizeof(one.boot))), one.seq,
                     one.at != 0 ? one.at : made_at(*in.report)};
    in.at = sound_time(in.from->told, clock);
    in.ticket = one.ticket;
    return in;
}

int feed(const std::string &url, const store_options &chosen, const session_rules &rules, moment clock) {
    pipeline road(rules);
    store_options with = chosen;
    with.url = url;
    with.committed = [](std::uint64_t ticket) {
        std::printf("%llu\n", static_cast<unsigned long long>(ticket));
        std::fflush(stdout);
    };
    road.add("store", std::make_unique<postgres_store>(with, rules), 10000);
    record one;
    while (std::fread(&one, offsetof(record, image) + sizeof(one.image), 1, stdin) == 1)
        road.feed(message_of(one, clock != 0 ? clock : now()));
    std::vector<std::string> dropped;
    const auto ending = road.finish(std::chrono::seconds(120), dropped);
    for (const std::string &line : dropped) std::fprintf(stderr, "%s\n", line.c_str());
    if (ending == worker::ending::stuck) std::_Exit(1);
    return ending == worker::ending::done && dropped.empty() ? 0 : 1;
}

int migrate(const std::string &url, const char *statements) {
    std::vector<const char *> versions(std::begin(postgres_schema), std::end(postgres_schema));
    versions.push_back(statements);
    postgres db(url);
    bring_up_to_date(db, versions);
    return 0;
}

} // namespace

int main(int argc, char **argv) {
    store_options chosen;
    chosen.commit = 0;
    session_rules rules;
    moment clock = 0; // 0: the real one
    for (int i = 2; i + 1 < argc; i += 2) {
        const std::string_view name = argv[i];
        const int value = std::atoi(argv[i + 1]);
        if (name == "--grace") rules.grace = value * second;
        if (name == "--sample") chosen.sample = value;
        if (name == "--keep") chosen.keep_days = value;
        if (name == "--clock") clock = value * second;
    }
    try {
        if (argc == 4 && std::string_view(argv[2]) == "--next") return migrate(argv[1], argv[3]);
        return feed(argv[1], chosen, rules, clock);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "feed_store: %s\n", error.what());
        return 1;
    }
}
