// wsm-replay - plays a recording of wsm-record to a daemon in the lab, in place of the driver and of all other programs
// that the recorded daemon received from.
#include "channel/messages.h"
#include "protocol/was_wire.h"
#include "record/show.h"
#include "replay/player.h"

#include <cstdio>
#include <cstdlib>
#include <getopt.h>

namespace {

constexpr const char *usage =
    "usage: wsm-replay [options] FILE\n"
    "Plays what wsm-record wrote, - for the standard input, to the daemon that starts next.\n"
    "Runs until SIGINT or SIGTERM; needs CAP_NET_ADMIN.\n\n"
    "  --files          put the recorded files in their places, over those that are there:\n"
    "                   for a lab, never for a device\n"
    "  --socket PATH    where driver requests are answered (/var/run/was.sock)\n"
    "  --version\n"
    "  --help\n\n"
    "Exit status: 0 stopped by a signal, 1 it could not start, 2 wrong usage.\n";

[[noreturn]] void wrong_usage(const char *what) {
    std::fprintf(stderr, "wsm-replay: %s\n%s", what, usage);
    std::exit(2);
}

int failed(const std::string &why) {
    std::fprintf(stderr, "wsm-replay: %s\n", why.c_str());
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    enum { files = 1, sock, version, help };
    constexpr option known[] = {
        {"files", no_argument, nullptr, files},
        {"socket", required_argument, nullptr, sock},
        {"version", no_argument, nullptr, version},
        {"help", no_argument, nullptr, help},
        {nullptr, 0, nullptr, 0},
    };
    bool places_files = false;
    std::string path = was_socket_path;
    for (int which = 0; (which = getopt_long(argc, argv, "", known, nullptr)) != -1;) {
        switch (which) {
        case files: places_files = true; break;
        case sock: path = optarg; break;
        case version: std::puts("wsm-replay " WSMD_VERSION); return 0;
        case help: std::fputs(usage, stdout); return 0;
        default: wrong_usage("unknown option");
        }
    }
    if (argc - optind != 1) wrong_usage("one recording, please");

    std::vector<std::uint8_t> content;
    if (const std::string why = recording_load(argv[optind], content); !why.empty()) return failed(why);
    recording whole;
    if (const std::string why = recording_read(content, whole); !why.empty())
        return failed(std::string(argv[optind]) + ": " + why);
    std::puts(recording_line(whole).c_str());
    if (!whole.notice.empty()) std::puts(whole.notice.c_str());
    std::fflush(stdout);

    if (uloop_init() != 0) return failed("no event loop");
    player plays(whole, driver_family);
    if (const std::string why = plays.open(path, places_files); !why.empty()) return failed(why);
    uloop_run();
    return 0;
}
