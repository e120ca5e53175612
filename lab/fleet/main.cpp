// wsm-fleet-sim - simulates a whole fleet of access points with their stations for a broker: publishes their reports as a
// collector does.
#include "collector/mqtt_publisher.h"
#include "fleet/access_point.h"
#include "fleet/ledger.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <getopt.h>
#include <memory>
#include <thread>
#include <vector>

namespace {

constexpr const char *usage =
    "usage: wsm-fleet-sim --to URL [options]\n"
    "Publishes what the access points of a fleet report of their stations, and ends when the broker has it "
    "all.\n\n"
    "  --to URL           broker: mqtt[s]://[user[:password]@]host[:port][/prefix]\n"
    "  --ca FILE          certificates that the broker's is checked against\n"
    "  --access-points N  how many (10)\n"
    "  --first N          the number of the first one (1); the MAC is made of it\n"
    "  --stations M       clients about at each (20)\n"
    "  --seed K           of all random numbers (1)\n"
    "  --seconds S        how long the fleet lives, by its own clock, which ends now (60)\n"
    "  --speed X          seconds of the fleet in one of ours, 0: as fast as the broker takes them (1)\n"
    "  --period P         seconds between two reports of a station (60)\n"
    "  --connections C    to the broker (1)\n"
    "  --ledger FILE      what was meant: lines \"report AP BOOT SEQ\" and \"stay MAC AP BEGAN ENDED "
    "REPORTS\"\n"
    "  --version\n"
    "  --help\n\n"
    "Exit status: 0 the broker has all of it, 1 not, 2 wrong usage.\n";

struct options {
    mqtt_options to;
    int access_points = 10, first = 1, stations = 20, seconds = 60, period = 60, connections = 1, speed = 1;
    std::int64_t seed = 1;
    std::string ledger;
};

[[noreturn]] void wrong_usage(const std::string &what) {
    std::fprintf(stderr, "wsm-fleet-sim: %s\n%s", what.c_str(), usage);
    std::exit(2);
}

options parse(int argc, char **argv) {
    enum {
        to = 1,
        ca,
        access_points,
        first,
        stations,
        seed,
        seconds,
        speed,
        period,
        connections,
        ledger,
        version,
        help
    };
    constexpr option known[] = {{"to", 1, nullptr, to},
                                {"ca", 1, nullptr, ca},
                                {"access-points", 1, nullptr, access_points},
                                {"first", 1, nullptr, first},
                                {"stations", 1, nullptr, stations},
                                {"seed", 1, nullptr, seed},
                                {"seconds", 1, nullptr, seconds},
                                {"speed", 1, nullptr, speed},
                                {"period", 1, nullptr, period},
                                {"connections", 1, nullptr, connections},
                                {"ledger", 1, nullptr, ledger},
                                {"version", 0, nullptr, version},
                                {"help", 0, nullptr, help},
                                {}};
    options chosen;
    int which = 0;
    const auto number = [&](int low, int high) {
        const std::optional<std::int64_t> value = parse_number(optarg, low, high);
        if (!value)
            wrong_usage(std::string("--") + known[which].name + ": a number from " + std::to_string(low) +
                        " to " + std::to_string(high));
        return static_cast<int>(*value);
    };
    constexpr int most = 60'000; // two bytes of a MAC
    for (int key; (key = getopt_long(argc, argv, "", known, &which)) != -1;) {
        switch (key) {
        case to:
            if (const std::string why = parse_mqtt_url(optarg, chosen.to); !why.empty()) wrong_usage(why);
            break;
        case ca: chosen.to.ca = optarg; break;
        case access_points: chosen.access_points = number(1, most); break;
        case first: chosen.first = number(1, most); break;
        case stations: chosen.stations = number(1, 1000); break;
        case seed: chosen.seed = number(0, 1 << 30); break;
        case seconds: chosen.seconds = number(1, 1 << 20); break;
        case speed: chosen.speed = number(0, 1000); break;
        case period: chosen.period = number(1, 3600); break;
        case connections: chosen.connections = number(1, 64); break;
        case ledger: chosen.ledger = optarg; break;
        case version: std::puts("wsm-fleet-sim " WSMD_VERSION); std::exit(0);
        case help: std::fputs(usage, stdout); std::exit(0);
        default: wrong_usage("unknown option");
        }
    }
    if (optind < argc || chosen.to.host.empty()) wrong_usage("--to is a must, and there are only options");
    if (chosen.first + chosen.access_points > most) wrong_usage("too many access points");
    return chosen;
}

using clock_of_ours = std::chrono::steady_clock;

struct fleet {
    explicit fleet(const options &from) : chosen(from), book(from.ledger) {
        const auto names = std::make_shared<const station_names>();
        chosen.to.spool.most_in_memory = 100'000'000; // none is dropped: the program waits below
        for (int i = 0; i < chosen.connections; ++i)
            links.push_back(std::make_unique<mqtt_publisher>(chosen.to, names));
        for (int i = 0; i < chosen.access_points; ++i) {
            mqtt_publisher &link = *links[static_cast<std::size_t>(i % chosen.connections)];
            const access_point_plan plan{chosen.first + i, chosen.stations,
                                         static_cast<std::uint64_t>(chosen.seed), chosen.period};
            places.push_back(
                std::make_unique<access_point>(plan, [this, &link](received &&in, bool departed) {
                    const station_report &report = *in.report;
                    book.report(in.from->access_point, in.from->boot, in.from->seq);
                    book.station(report.mac, in.from->access_point, report.online_ts.sec,
                                 departed ? report.offline_ts.sec : 0);
                    link.take({std::move(in), {}});
                }));
        }
    }

    std::uint64_t waiting() const {
        std::uint64_t all = 0;
        for (const auto &link : links) all += link->kept()->waiting;
        return all;
    }

    void settle() {
        for (const auto &link : links) link->settle();
    }

    // Until at most so many reports wait.
    void wait(std::uint64_t most) {
        while (waiting() > most) {
            settle();
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }

    bool live() {
        constexpr std::uint64_t enough = 20'000; // to keep the broker busy
        const std::int64_t end = std::time(nullptr), begin = end - (chosen.speed == 1 ? 0 : chosen.seconds);
        const auto started = clock_of_ours::now();
        for (int second_of_life = 1; second_of_life <= chosen.seconds; ++second_of_life) {
            if (chosen.speed > 0)
                std::this_thread::sleep_until(
                    started + std::chrono::milliseconds(1000LL * second_of_life / chosen.speed));
            for (const auto &place : places) {
                place->advance(begin + second_of_life);
                if (chosen.speed == 0) wait(enough);
            }
            settle();
            book.flush();
        }
        wait(0);
        bool good = true;
        for (const auto &link : links) good = link->finish() && good;
        const double took = std::chrono::duration<double>(clock_of_ours::now() - started).count();
        std::printf("%llu reports in %.2f s: %.0f per second\n",
                    static_cast<unsigned long long>(book.reports()), took,
                    static_cast<double>(book.reports()) / took);
        return book.finish() && good;
    }

    options chosen;
    fleet_ledger book;
    std::vector<std::unique_ptr<mqtt_publisher>> links;
    std::vector<std::unique_ptr<access_point>> places;
};

} // namespace

int main(int argc, char **argv) {
    std::signal(SIGPIPE, SIG_IGN);
    const options chosen = parse(argc, argv);
    try {
        return fleet(chosen).live() ? 0 : 1;
    } catch (const std::exception &error) {
        std::fprintf(stderr, "wsm-fleet-sim: %s\n", error.what());
        return 1;
    }
}
