// wsm-bridge - the wireless driver for wsmd on an access point with mac80211 radios: reports arriving and departing
// stations to it and answers its requests, from the kernel's wireless configuration and hostapd's control sockets.
#include "nl80211/bridge.h"
#include "nl80211/log.h"
#include "nl80211/supervisor.h"
#include "protocol/was_wire.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <getopt.h>

namespace {

constexpr const char *usage =
    "usage: wsm-bridge [options]\n"
    "The wireless driver of an access point with mac80211 radios and hostapd, for wsmd.\n"
    "Runs until SIGINT or SIGTERM; needs CAP_NET_ADMIN.\n\n"
    "  --control FOLDER  hostapd's control sockets (/var/run/hostapd)\n"
    "  --global PATH     hostapd's global control socket, for networks without one\n"
    "                    (/var/run/hostapd/global)\n"
    "  --socket PATH     where driver requests are answered (/var/run/was.sock)\n"
    "  --radio IF=N      interface IF, which may end with '*', is of radio 0 or 1;\n"
    "                    others: 0 at 2.4 GHz, else 1. May be repeated\n"
    "  --daemon NAME     process that is told (wsmd)\n"
    "  --memory FILE     what a restarted bridge must know\n"
    "                    (/var/run/wsm-bridge/stations)\n"
    "  --version\n"
    "  --help\n\n"
    "Exit status: 0 stopped by a signal, 1 it could not start, 2 wrong usage.\n";

[[noreturn]] void wrong_usage(const char *what) {
    std::fprintf(stderr, "wsm-bridge: %s\n%s", what, usage);
    std::exit(2);
}

// "wlan2=1": the '=' is replaced by the name's terminator.
void take_choice(char *text, bridge::settings &settings) {
    char *number = std::strrchr(text, '=');
    if (!number || number == text || (std::strcmp(number, "=0") != 0 && std::strcmp(number, "=1") != 0))
        wrong_usage("--radio: an interface, '=', and 0 or 1");
    if (settings.choice_count == networks::choices_max) wrong_usage("--radio: given too often");
    *number = '\0';
    settings.choices[settings.choice_count++] = {text, number[1] - '0'};
}

} // namespace

int main(int argc, char **argv) {
    enum { control = 1, global, path, radio, daemon_name, memory, version, help };
    constexpr option known[] = {
        {"control", required_argument, nullptr, control},
        {"global", required_argument, nullptr, global},
        {"socket", required_argument, nullptr, path},
        {"radio", required_argument, nullptr, radio},
        {"daemon", required_argument, nullptr, daemon_name},
        {"memory", required_argument, nullptr, memory},
        {"version", no_argument, nullptr, version},
        {"help", no_argument, nullptr, help},
        {nullptr, 0, nullptr, 0},
    };
    bridge::settings settings{
        "/var/run/hostapd", "/var/run/hostapd/global", "wsmd", "/var/run/wsm-bridge/stations", {}, 0};
    const char *socket_path = was_socket_path;
    for (int which = 0; (which = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (which) {
        case control: settings.control_folder = optarg; break;
        case global: settings.control_global = optarg; break;
        case path: socket_path = optarg; break;
        case radio: take_choice(optarg, settings); break;
        case daemon_name: settings.daemon = optarg; break;
        case memory: settings.memory = optarg; break;
        case version: std::puts("wsm-bridge " WSMD_VERSION); return 0;
        case help: std::fputs(usage, stdout); return 0;
        default: wrong_usage("unknown option");
        }
    }
    if (optind < argc) wrong_usage("no arguments are expected");
    log_open();
    if (uloop_init() != 0) {
        log_line("no event loop");
        return 1;
    }
    static bridge whole(settings);
    if (const char *what = whole.start(socket_path)) {
        log_line("%s: %s", what, std::strerror(errno));
        return 1;
    }
    // Sent from within the loop, since the loop forgets a signal that arrives before it runs.
    uloop_timeout started{};
    started.cb = [](uloop_timeout *) { supervisor_started(); };
    uloop_timeout_set(&started, 0);
    if (!uloop_cancelled) uloop_run();
    whole.stop();
    return 0;
}
