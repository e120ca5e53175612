// A program with a log, for its tests: debug_program LOG [BUS].
// Registers the modules "main" and "quiet". Without a bus it writes one message per level and module and
// ends. With one it publishes the log's object and then, every few milliseconds, writes a round: a line that
// does not depend on the thresholds, and a message of level 5 from each module.
#include "base/cxx/ubox.h"
#include "debug/dbg.h"

extern "C" {
#include <libubus.h>
}

namespace {

int g_main;
int g_quiet;
int g_round;

void write_round(uloop_timeout *timer) {
    dbg_logfile(g_main, "round %d\n", ++g_round);
    dbg_printf(g_main, 5, "main speaks\n");
    dbg_printf(g_quiet, 5, "quiet speaks\n");
    uloop_timeout_set(timer, 5);
}

} // namespace

int main(int argc, char **argv) {
    if (argc < 2 || dbg_get_ubus_object() || dbg_init("probe", argv[1], 10) != 0) return 1;
    g_main = dbg_module_reg("main");
    g_quiet = dbg_module_reg("quiet");
    if (argc == 2) {
        for (int level = 0; level <= 7; ++level) {
            dbg_printf(g_main, level, "message\n");
            dbg_printf(g_quiet, level, "message\n");
        }
        return 0;
    }
    uloop_init();
    ubus_context *bus = ubus_connect(argv[2]);
    if (!bus || ubus_add_object(bus, dbg_get_ubus_object()) != 0) return 1;
    ubus_add_uloop(bus);
    uloop_timeout timer{};
    timer.cb = write_round;
    write_round(&timer);
    uloop_run();
    ubus_free(bus);
    return 0;
}
