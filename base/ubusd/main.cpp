// ubusd - the bus broker.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "acl.h"
#include "broker.h"
#include "listener.h"

namespace {

constexpr const char *socket_dir = "/var/run/ubus"; // of the default socket
constexpr const char *default_rule_dir = "/usr/share/acl.d";

ubusd::broker g_bus;

void on_hangup(uloop_signal *) { ubusd::acl_load(g_bus); }
void on_end(uloop_signal *) { uloop_end(); }

// The loop's own handling of SIGINT and SIGTERM forgets signals that arrive before it runs; with this they are kept
// for it.
void watch_signals() {
    static uloop_signal signals[3];
    constexpr struct {
        int number;
        uloop_signal_handler cb;
    } wanted[] = {{SIGHUP, on_hangup}, {SIGINT, on_end}, {SIGTERM, on_end}};
    for (int i = 0; i < 3; ++i) {
        signals[i].signo = wanted[i].number;
        signals[i].cb = wanted[i].cb;
        uloop_signal_add(&signals[i]);
    }
}

int usage(const char *program) {
    std::fprintf(stderr,
                 "Usage: %s [<options>]\n"
                 "Options:\n"
                 "  -A <path>:\t\tSet the path to ACL files\n"
                 "  -s <socket>:\t\tSet the unix domain socket to listen on\n\n",
                 program);
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) return std::puts("ubusd " WSMD_VERSION) < 0;
    const char *socket_path = ubus_wire::default_socket;
    const char *rule_dir = default_rule_dir;
    for (int option; (option = getopt(argc, argv, "A:s:")) != -1;) {
        switch (option) {
        case 'A': rule_dir = optarg; break;
        case 's': socket_path = optarg; break;
        default: return usage(argv[0]);
        }
    }

    openlog("ubusd", LOG_PID, LOG_DAEMON);
    uloop_init();
    mkdir(socket_dir, 0755);

    ubusd::broker_init(g_bus, rule_dir);
    watch_signals();

    ubusd::listener clients;
    if (ubusd::listener_open(clients, g_bus, socket_path)) {
        std::perror("usock");
        return -1;
    }
    ubusd::acl_load(g_bus);
    uloop_run();

    unlink(socket_path);
    ubusd::listener_close(clients);
    ubusd::broker_done(g_bus);
    uloop_done();
    return 0;
}
