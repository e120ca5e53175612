#include "core/init.h"

#include "bus/object.h"
#include "core/capability.h"
#include "core/log_settings.h"
#include "core/watch.h"
#include "fw/iptables.h"
#include "inputs/dhcpmon_list.h"
#include "inputs/network.h"
#include "inputs/uci_shell.h"
#include "life/address.h"
#include "life/listen.h"
#include "life/neighbours.h"
#include "life/restore.h"
#include "life/timers.h"
#include "model/departures.h"
#include "model/table.h"
#include "tools/health.h"
#include "tools/log.h"
#include "tools/text.h"

#include <csignal>
#include <cstdlib>

std::int32_t sta_mode = 1;

namespace {

constexpr const char *tag = "WSMD";

// How many departures are kept; a value that is not a number keeps none.
void read_departed() {
    char text[65] = "";
    sta_uci_get_param("wsmd.main.departed", text, sizeof(text) - 1);
    const std::int32_t entries =
        text[0] != '\0' ? sta_number(text) : static_cast<std::int32_t>(departures_default);
    sta_departures_keep(entries > 0 ? static_cast<std::uint32_t>(entries) : 0);
}

void read_settings() {
    sta_debug_cfg_read();
    read_departed();
}

// The log names the line of the step that failed.
[[noreturn]] void fail(const char *why, int line = __builtin_LINE()) {
    dbg_printf(g_main_id, 7, "Function %s:%d %s\n", STA_NAME_OF(sta_service_start), line, why);
    std::exit(EXIT_FAILURE);
}

} // namespace

void sta_init() {
    pthread_mutex_init(&g_sta_server_mutex, nullptr);
    dbg_init("sta", "/tmp/sta.log", 10);
    g_main_id = dbg_module_reg("main");
    sta_mode = sta_get_mod_type();
    sta_health.is_client = sta_mode == 0;
    sta_health.started = sta_monotonic_seconds();
    sta_control_wsmd_init(read_settings);
    STA_LOG("%s starting..\n", tag);
    if (sta_sta_dhcpmon_list_init() != 0) {
        STA_LOG("Dhcpmon list init fail\n");
        std::exit(EXIT_FAILURE);
    }
    sta_ubus_object_init(); // on failure it keeps trying
    sta_ubus_add_dbg_object(dbg_get_ubus_object());
    if (dev_cap_table_init() != 0) {
        STA_LOGFILE("wifi_services cap table init failed, exit now!\n");
        std::exit(EXIT_FAILURE);
    }
    sta_service_start();
    // Called, not only armed: restored stations are online and reported before the loop starts.
    sta_flow_count_timer(&sta_flow_count_timeout);
    sta_sta_log_up_timer(&sta_log_up_timeout);
    sta_single_log_up_timer(&sta_single_log_up_timeout);
    sta_neighbours_init();
    sta_control_dhcp_init(sta_sta_update_name_by_dhcp);
    STA_LOG("%s init finish..\n", tag);
}

int sta_service_start() {
    STA_LOG("Sta-manage service enable\n");
    if (sta_sta_init() != 0) fail("Sta-manage STA init fail");
    if (sta_fw_init() != 0) fail("Sta-manage FW init fail");
    if (sta_netlink_init() != 0) fail("Sta-manage connect server fail");
    return 0;
}

void sta_deinit() {
    // Deliberate: the two values after the line number are passed and not printed.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-extra-args"
    dbg_printf(g_main_id, 7, "Function %s:%d MAIN", __func__, __LINE__, 5, "Sta-manage terminating..");
#pragma GCC diagnostic pop
    sta_terminate(EXIT_FAILURE);
}

void sta_terminate(int status) {
    // A second signal must not stop the clean-up half-way. Commands run with the default handling (tools/command).
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGTERM, SIG_IGN);
    sta_fw_clean_all();
    std::exit(status);
}
