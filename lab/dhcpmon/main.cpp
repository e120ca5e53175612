// dhcpmon - the lab's DHCP monitor: publishes the clients and addresses of the lease file on the bus.
#include "dhcpmon/service.h"

#include <charconv>
#include <cstdio>
#include <getopt.h>

namespace {

constexpr const char *usage = "usage: dhcpmon [options]\n"
                              "The lab's DHCP monitor on the bus. Runs until SIGINT or SIGTERM.\n\n"
                              "  --leases PATH   the DHCP server's lease file (/tmp/dhcp.leases)\n"
                              "  --bus PATH      the broker's socket (the usual one)\n"
                              "  --delay MS      answer requests so much later\n"
                              "  --silent        never answer requests\n"
                              "  --version\n"
                              "  --help\n\n"
                              "Exit status: 0 stopped by a signal, 1 it could not start, 2 wrong usage.\n";

[[noreturn]] void wrong_usage(const char *what) {
    std::fprintf(stderr, "dhcpmon: %s\n%s", what, usage);
    std::exit(2);
}

service_options parse(int argc, char **argv) {
    enum { leases = 1, bus, delay, silent, version, help };
    constexpr option known[] = {
        {"leases", required_argument, nullptr, leases},
        {"bus", required_argument, nullptr, bus},
        {"delay", required_argument, nullptr, delay},
        {"silent", no_argument, nullptr, silent},
        {"version", no_argument, nullptr, version},
        {"help", no_argument, nullptr, help},
        {nullptr, 0, nullptr, 0},
    };
    service_options chosen;
    for (int which = 0; (which = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (which) {
        case leases: chosen.leases = optarg; break;
        case bus: chosen.bus = optarg; break;
        case delay: {
            const std::string_view text = optarg;
            const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), chosen.delay);
            if (error != std::errc() || end != text.data() + text.size() || chosen.delay < 0)
                wrong_usage("--delay: milliseconds");
            break;
        }
        case silent: chosen.silent = true; break;
        case version: std::puts("dhcpmon " WSMD_VERSION); std::exit(0);
        case help: std::fputs(usage, stdout); std::exit(0);
        default: wrong_usage("unknown option");
        }
    }
    if (optind < argc) wrong_usage("no arguments are expected");
    return chosen;
}

} // namespace

int main(int argc, char **argv) {
    const service_options chosen = parse(argc, argv);
    if (uloop_init() != 0) {
        std::fprintf(stderr, "dhcpmon: no event loop\n");
        return 1;
    }
    service monitor(chosen);
    monitor.start();
    uloop_run();
    return 0;
}
