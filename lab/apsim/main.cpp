// apsim - the wireless driver of the lab: announces its netlink family, sends station events, answers driver
// requests about stations that it simulates, and takes commands on a control socket.
#include "apsim/commands.h"
#include "apsim/population.h"
#include "apsim/simulator.h"
#include "channel/messages.h"
#include "common/stream_server.h"
#include "protocol/was_wire.h"

#include <cstdio>
#include <getopt.h>
#include <limits>

namespace {

constexpr int look_interval = 100;        // ms: how soon a new listener gets its announcement
constexpr std::size_t line_max = 1 << 20; // bytes of a control line

constexpr const char *usage =
    "usage: apsim [options]\n"
    "The lab's wireless driver. Runs until SIGINT or SIGTERM; needs CAP_NET_ADMIN.\n\n"
    "  --population N   make up N clients that come, walk, stream, idle, roam and leave\n"
    "  --seed K         seed of all random numbers (1)\n"
    "  --family ID      number of the netlink family (2000)\n"
    "  --tick MS        length of the simulated second; 0: time stands still (1000)\n"
    "  --socket PATH    where driver requests are answered (/var/run/was.sock)\n"
    "  --control PATH   where commands are taken (/var/run/apsim.sock)\n"
    "  --leases PATH    the DHCP server's lease file (/tmp/dhcp.leases)\n"
    "  --version\n"
    "  --help\n\n"
    "Exit status: 0 stopped by a signal, 1 it could not start, 2 wrong usage.\n";

struct options {
    int population = 0;
    std::uint64_t seed = 1;
    std::uint16_t family = driver_family;
    int tick = 1000;
    std::string socket = was_socket_path;
    std::string control = "/var/run/apsim.sock";
    std::string leases = "/tmp/dhcp.leases";
};

[[noreturn]] void wrong_usage(const char *what) {
    std::fprintf(stderr, "apsim: %s\n%s", what, usage);
    std::exit(2);
}

std::int64_t number(const char *text, std::int64_t high, const char *what) {
    const std::optional<std::int64_t> value = parse_number(text, 0, high);
    if (!value) wrong_usage(what);
    return *value;
}

options parse(int argc, char **argv) {
    enum { population = 1, seed, family, tick, sock, control, leases, version, help };
    constexpr option known[] = {
        {"population", required_argument, nullptr, population},
        {"seed", required_argument, nullptr, seed},
        {"family", required_argument, nullptr, family},
        {"tick", required_argument, nullptr, tick},
        {"socket", required_argument, nullptr, sock},
        {"control", required_argument, nullptr, control},
        {"leases", required_argument, nullptr, leases},
        {"version", no_argument, nullptr, version},
        {"help", no_argument, nullptr, help},
        {nullptr, 0, nullptr, 0},
    };
    options chosen;
    for (int which = 0; (which = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (which) {
        case population:
            chosen.population = static_cast<int>(number(optarg, 10'000, "--population: 0 to 10000"));
            break;
        case seed:
            chosen.seed = static_cast<std::uint64_t>(
                number(optarg, std::numeric_limits<std::int64_t>::max(), "--seed: not a whole number"));
            break;
        case family:
            chosen.family = static_cast<std::uint16_t>(number(optarg, 65535, "--family: 1024 to 65535"));
            break;
        case tick:
            chosen.tick = static_cast<int>(number(optarg, 3'600'000, "--tick: milliseconds, up to an hour"));
            break;
        case sock: chosen.socket = optarg; break;
        case control: chosen.control = optarg; break;
        case leases: chosen.leases = optarg; break;
        case version: std::puts("apsim " WSMD_VERSION); std::exit(0);
        case help: std::fputs(usage, stdout); std::exit(0);
        default: wrong_usage("unknown option");
        }
    }
    if (optind < argc) wrong_usage("no arguments are expected");
    if (chosen.family < lowest_family) wrong_usage("--family: 1024 to 65535");
    return chosen;
}

int failed(const std::string &why) {
    std::fprintf(stderr, "apsim: %s\n", why.c_str());
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    const options chosen = parse(argc, argv);
    if (uloop_init() != 0) return failed("no event loop");

    simulator air(chosen.family, chosen.seed, chosen.leases);
    population people(air);
    commands orders(air, people);
    stream_server control([&orders](stream_server::peer &from) {
        for (std::size_t end = 0; (end = from.in.find('\n')) != std::string::npos;) {
            from.out += orders.run(std::string_view(from.in).substr(0, end)) + '\n';
            from.in.erase(0, end + 1);
        }
        if (from.in.size() > line_max) {
            from.out += "error the line is too long\n";
            from.close = true;
        }
    });

    if (const std::string why = air.channel.open(); !why.empty()) return failed(why);
    if (const std::string why = air.requests.listen(chosen.socket); !why.empty()) return failed(why);
    if (const std::string why = control.listen(chosen.control); !why.empty()) return failed(why);

    if (chosen.population > 0) people.start(chosen.population, chosen.seed);
    timer look([&] {
        air.channel.look();
        look.start(look_interval);
    });
    look.start(0);
    timer second([&] {
        people.advance();
        air.stations.advance();
        second.start(chosen.tick);
    });
    if (chosen.tick > 0) second.start(chosen.tick);
    uloop_run();
    return 0;
}
