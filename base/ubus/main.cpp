// ubus - using the bus from the command line.
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <unistd.h>

#include "commands.h"

namespace {

using namespace ubus_cli;

constexpr struct {
    const char *name;
    command run;
} commands[] = {
    {"list", list},           {"call", call},         {"listen", listen},   {"send", send},
    {"subscribe", subscribe}, {"wait_for", wait_for}, {"monitor", monitor},
};

int usage(const char *program) {
    std::fprintf(stderr,
                 "Usage: %s [<options>] <command> [arguments...]\n"
                 "Options:\n"
                 " -s <socket>:\t\tSet the unix domain socket to connect to\n"
                 " -t <timeout>:\t\tSet the timeout (in seconds) for a command to complete\n"
                 " -S:\t\t\tUse simplified output (for scripts)\n"
                 " -v:\t\t\tMore verbose output\n"
                 " -m <type>:\t\t(for monitor): include a specific message type\n"
                 "\t\t\t(can be used more than once)\n"
                 " -M <r|t>\t\t(for monitor): only capture received or transmitted traffic\n"
                 "\n"
                 "Commands:\n"
                 " - list [<path>]\t\t\tList objects\n"
                 " - call <path> <method> [<message>]\tCall an object method\n"
                 " - subscribe <path> [<path>...]\tSubscribe to object(s) notifications\n"
                 " - listen [<path>...]\t\t\tListen for events\n"
                 " - send <type> [<message>]\t\tSend an event\n"
                 " - wait_for <object> [<object>...]\tWait for multiple objects to appear on ubus\n"
                 " - monitor\t\t\t\tMonitor ubus traffic\n"
                 "\n",
                 program);
    return 1;
}

// Limited so that the milliseconds fit; negative = none given.
int seconds(const char *text) {
    return static_cast<int>(std::clamp<long>(std::strtol(text, nullptr, 10), -1, INT_MAX / 1000));
}

// False if an option is wrong.
bool read_options(int argc, char **argv, options &opt, const char *&socket_path) {
    for (int option; (option = getopt(argc, argv, "m:M:vs:t:S")) != -1;) {
        switch (option) {
        case 's': socket_path = optarg; break;
        case 't': opt.timeout = seconds(optarg); break;
        case 'S': opt.simple = true; break;
        case 'v': opt.verbose = true; break;
        case 'm':
            if (!message_type(optarg)) return false;
            opt.types |= message_type(optarg);
            break;
        case 'M':
            if (std::strcmp(optarg, "r") != 0 && std::strcmp(optarg, "t") != 0) return false;
            opt.direction = *optarg;
            break;
        default: return false;
        }
    }
    return true;
}

int run(ubus_context *ctx, const options &opt, const char *name, arguments args) {
    for (const auto &c : commands)
        if (!std::strcmp(c.name, name)) return c.run(ctx, opt, args);
    return bad_usage;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) return std::puts("ubus " WSMD_VERSION) < 0;
    options opt{};
    opt.timeout = -1;
    const char *socket_path = nullptr;
    if (!read_options(argc, argv, opt, socket_path) || optind >= argc) return usage(argv[0]);

    ubus_context *ctx = ubus_connect(socket_path);
    if (!ctx) {
        if (!opt.simple) std::fputs("Failed to connect to ubus\n", stderr);
        return failed;
    }
    const char *name = argv[optind];
    const int status =
        run(ctx, opt, name, arguments(argv + optind + 1, static_cast<std::size_t>(argc - optind - 1)));
    if (status > 0 && !opt.simple) std::fprintf(stderr, "Command failed: %s\n", ubus_strerror(status));
    if (status == bad_usage) usage(argv[0]);

    ubus_free(ctx);
    uloop_done();
    return status;
}
