// The daemon's start and stop, each in a process of its own, since both can end the process.
#include "support/house.h"

#include "base/cxx/ubus.h"
#include "core/init.h"
#include "life/address.h"
#include "life/listen.h"
#include "life/timers.h"
#include "model/table.h"
#include "outputs/bus_link.h"
#include "tools/log.h"
#include "wlan/channel.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <linux/netlink.h>
#include <sys/socket.h>

// The linker leads the program's calls here.
extern "C" {
int __real_socket(int domain, int type, int protocol);
int __wrap_socket(int domain, int type, int protocol);
void __real_uloop_done();
void __wrap_uloop_done();
}

int wsmd_main(); // the program's main()

namespace {
bool g_sockets = true;           // netlink ones
bool g_signal_behind_it = false; // a SIGTERM when the loop is closed
} // namespace

int __wrap_socket(int domain, int type, int protocol) {
    if (g_sockets || domain != AF_NETLINK) return __real_socket(domain, type, protocol);
    errno = EMFILE;
    return -1;
}

void __wrap_uloop_done() {
    __real_uloop_done();
    if (g_signal_behind_it) std::raise(SIGTERM);
}

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

const std::vector<std::string> chain_clean_up = {
    "iptables -t mangle -D PREROUTING -j PREROUTING-outgoing -w",
    "iptables -t mangle -F PREROUTING-outgoing -w",
    "iptables -t mangle -X PREROUTING-outgoing -w",
    "iptables -t mangle -D POSTROUTING -j POSTROUTING-incoming -w",
    "iptables -t mangle -F POSTROUTING-incoming -w",
    "iptables -t mangle -X POSTROUTING-incoming -w",
    "iptables -t nat -F prerouting_lan -w",
};

constexpr const char *backup_line =
    "phone aa:bb:cc:dd:ee:ff 10.0.0.5 1700000000 12 0 0 net 0 1 55 36 0M 0M 0 0 0 0 ath1 1 "
    "0 0 0 866M\n";

struct start : House {
    start() {
        sta_max_num = 0;
        write_command("iptables", "true");
        write_file("/tmp/tk_device/tk_device.json",
                   R"({"wireless":{"radiolist":[{"sta_limit_max":64}],"wireless_path":"/etc/config"}})");
        set_next_module(41);
    }
};

// The position of the first such line in the log; past the end when there is none.
std::size_t place_of(const std::string &line) {
    const std::vector<std::string> lines = log_lines();
    return static_cast<std::size_t>(std::find(lines.begin(), lines.end(), line) - lines.begin());
}

// The lines are in the log, in this order.
testing::AssertionResult in_order(const std::vector<std::string> &lines) {
    std::size_t last = 0;
    for (const std::string &line : lines) {
        const std::size_t place = place_of(line);
        if (place >= log_records().size()) return testing::AssertionFailure() << "missing: " << line;
        if (place < last) return testing::AssertionFailure() << "too early: " << line;
        last = place;
    }
    return testing::AssertionSuccess();
}

TEST_F(start, steps_come_in_a_fixed_order) {
    start_bus();
    write_file("/etc/config/wsmd", "config wsmd 'main'\n\toption loglevel 4\n");
    write_file("/tmp/sta_sta.info", backup_line);
    const child_end end = run_in_child(sta_init);
    EXPECT_TRUE(end.exited) << end.output;
    EXPECT_EQ(end.status, 0) << end.output;
    EXPECT_TRUE(in_order({
        "sta_debug_cfg_read: log_console: 0",
        "sta_debug_cfg_read: log_level: 4",
        "sta_init: WSMD starting..\n",
        "file: Run in function sta_ubus_object_connect!\n",
        "file: radio_json len = 1!\n",
        "sta_service_start: Sta-manage service enable\n",
        "sta_netlink_init: sta netlink init\n",
        "sta_mem_dump: sta mem_total_cnt 2\n",
        "sta_sta_log_up_timer: update period:60 s\n",
        "sta_init: WSMD init finish..\n",
    }));
    EXPECT_EQ(place_of("sta_init: WSMD init finish..\n"), log_records().size() - 1);
    for (const log_record &one : log_records()) EXPECT_EQ(one.module, 41) << one.text;
}

TEST_F(start, log_library_is_opened_with_the_program_s_name_file_and_limit) {
    const child_end end = run_in_child([] {
        sta_init();
        const log_start &begun = log_started();
        const bool right = begun.program == "sta" && begun.file == "/tmp/sta.log" && begun.limit == 10 &&
                           begun.modules == std::vector<std::string>{"main"} && g_main_id == 41;
        std::exit(right ? 0 : 2);
    });
    EXPECT_EQ(end.status, 0);
}

TEST_F(start, role_is_read_once_and_the_chains_are_made_after_cleaning_up) {
    write_command("uci", "case \"$3\" in *.mod_type) echo cpe ;; esac");
    const child_end end = run_in_child([] {
        sta_init();
        std::exit(sta_mode == 0 ? 0 : 2);
    });
    EXPECT_EQ(end.status, 0);
    std::vector<std::string> expected = {"uci -q get system.@system[0].mod_type"};
    expected.insert(expected.end(), chain_clean_up.begin(), chain_clean_up.end());
    for (const char *made : {"iptables -t mangle -N PREROUTING-outgoing -w",
                             "iptables -t mangle -A PREROUTING -j PREROUTING-outgoing -w",
                             "iptables -t mangle -N POSTROUTING-incoming -w",
                             "iptables -t mangle -A POSTROUTING -j POSTROUTING-incoming -w"})
        expected.emplace_back(made);
    EXPECT_THAT(calls(), ElementsAreArray(expected));
}

TEST_F(start, timers_and_channel_are_ready_when_it_returns) {
    const child_end end = run_in_child([] {
        sta_init();
        const bool ready = sta_flow_count_timeout.pending && sta_log_up_timeout.pending &&
                           sta_single_log_up_timeout.pending && sta_netlink_watcher.registered &&
                           sta_netlink_watcher.fd == sta_nl.socket && sta_max_num == 64;
        std::exit(ready ? 0 : 2);
    });
    EXPECT_EQ(end.status, 0);
}

// Each timer's first run happens before the loop: a restored station is online and reported when the start is over.
TEST_F(start, restored_station_goes_on_line_and_is_reported) {
    collector listening;
    write_file("/tmp/sta_sta.info", backup_line);
    const child_end end = run_in_child([] {
        sta_init();
        const std::vector<sta_info_t *> all = stations();
        const bool right = all.size() == 1 && all[0]->status == sta_status_online &&
                           all[0]->single_log_up_cnt == 1 && g_sta_sta_master.online == 1;
        std::exit(right ? 0 : 2);
    });
    EXPECT_EQ(end.status, 0) << end.output;
    EXPECT_THAT(listening.kinds(), ElementsAre(3));
}

// The lease watcher's first poll comes last, so names are fresh when the start is over.
TEST_F(start, leases_are_read_at_its_end) {
    write_file("/tmp/dhcp.leases", "1 aa:bb:cc:dd:ee:ff 10.0.0.6 tablet *\n");
    write_file("/tmp/sta_sta.info", backup_line);
    const child_end end = run_in_child([] {
        sta_init();
        const std::vector<sta_info_t *> all = stations();
        std::exit(all.size() == 1 && std::string_view(all[0]->name) == "tablet" ? 0 : 2);
    });
    EXPECT_EQ(end.status, 0) << end.output;
}

TEST_F(start, without_a_configuration_file_nothing_comes_before_the_first_line) {
    const child_end end = run_in_child(sta_init);
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(log_lines().at(0), "sta_init: WSMD starting..\n");
}

TEST_F(start, missing_capability_table_ends_it_after_the_object_was_published) {
    start_bus();
    ASSERT_EQ(std::remove("/tmp/tk_device/tk_device.json"), 0);
    const child_end end = run_in_child(sta_init);
    EXPECT_TRUE(end.exited);
    EXPECT_EQ(end.status, 1) << end.output;
    EXPECT_TRUE(filed("wifi_services cap table init failed, exit now!\n"));
    EXPECT_TRUE(logged("sta_ubus_object_connect", "success!\n"));
    EXPECT_THAT(calls(), IsEmpty()) << "no chain was touched";
}

TEST_F(start, chain_that_cannot_be_made_ends_it_and_leaves_the_others) {
    write_command("iptables", "case \"$*\" in *'-N PREROUTING'*) exit 2 ;; esac");
    const child_end end = run_in_child(sta_init);
    EXPECT_EQ(end.status, 1);
    EXPECT_TRUE(logged("sta_service_start", "Sta-manage FW init fail\n"));
    EXPECT_EQ(calls().size(), 8U) << "clean-up and one attempt, no clean-up afterwards";
}

TEST_F(start, channel_that_cannot_be_opened_ends_it_and_leaves_the_chains) {
    const child_end end = run_in_child([] {
        g_sockets = false;
        sta_init();
    });
    EXPECT_EQ(end.status, 1);
    EXPECT_TRUE(logged("sta_netlink_init", "create socket failed.\n"));
    EXPECT_TRUE(logged("sta_service_start", "Sta-manage connect server fail\n"));
    EXPECT_EQ(calls().size(), 11U);
}

// The source line number that the log gives for a failed step.
int line_of(const std::string &text) {
    for (const log_record &one : log_records()) {
        int line = 0, length = 0;
        if (std::sscanf(one.text.c_str(), "Function sta_service_start:%d %n", &line, &length) == 1 &&
            one.text.substr(static_cast<std::size_t>(length)) == text)
            return line;
    }
    return -1;
}

TEST_F(start, step_that_fails_is_logged_with_its_own_line) {
    write_command("iptables", "case \"$*\" in *'-N PREROUTING'*) exit 2 ;; esac");
    run_in_child(sta_init);
    const int chains = line_of("Sta-manage FW init fail\n");
    forget_log();
    write_command("iptables", "true");
    run_in_child([] {
        g_sockets = false;
        sta_init();
    });
    const int channel = line_of("Sta-manage connect server fail\n");
    EXPECT_GT(chains, 0);
    EXPECT_EQ(channel, chains + 1) << "the steps stand below one another";
}

TEST_F(start, service_start_gives_0) {
    EXPECT_EQ(sta_service_start(), 0);
    EXPECT_EQ(log_lines().at(0), "sta_service_start: Sta-manage service enable\n");
}

using stop = start;

TEST_F(stop, chains_are_removed_and_the_status_is_1) {
    const child_end end = run_in_child([] { sta_deinit(); });
    EXPECT_TRUE(end.exited);
    EXPECT_EQ(end.status, 1);
    EXPECT_EQ(end.output, "");
    EXPECT_THAT(calls(), ElementsAreArray(chain_clean_up));
    EXPECT_THAT(log_lines(), ElementsAre("sta_deinit: MAIN"));
    EXPECT_EQ(log_records()[0].level, 7);
}

TEST_F(stop, status_is_the_caller_s_and_nothing_is_logged) {
    const child_end end = run_in_child([] { sta_terminate(7); });
    EXPECT_EQ(end.status, 7);
    EXPECT_THAT(calls(), ElementsAreArray(chain_clean_up));
    EXPECT_THAT(log_records(), IsEmpty());
}

TEST_F(stop, failing_commands_do_not_stop_the_clean_up) {
    write_command("iptables", "exit 1");
    EXPECT_EQ(run_in_child([] { sta_terminate(1); }).status, 1);
    EXPECT_EQ(calls().size(), 7U);
}

TEST_F(stop, further_signals_do_not_cut_the_clean_up_short) {
    write_command("iptables", "kill -TERM $(cat /tmp/pid); kill -INT $(cat /tmp/pid)");
    const child_end end = run_in_child([] {
        write_file("/tmp/pid", std::to_string(getpid()));
        uloop_done(); // restores the signals' default actions, which end the process, as before every stop
        sta_deinit();
    });
    EXPECT_TRUE(end.exited);
    EXPECT_EQ(end.status, 1);
    EXPECT_THAT(calls(), ElementsAreArray(chain_clean_up));
}

// The loop has restored the signals' default actions by then.
TEST_F(stop, second_signal_between_the_loop_and_the_clean_up_does_not_prevent_it) {
    const child_end end = run_in_child([] {
        uloop_done(); // main() opens its own
        g_signal_behind_it = true;
        sigset_t held;
        sigemptyset(&held);
        sigaddset(&held, SIGTERM);
        sigprocmask(SIG_BLOCK, &held, nullptr);
        std::raise(SIGTERM); // the first, which main() takes when the loop runs
        wsmd_main();
    });
    EXPECT_TRUE(end.exited) << "killed by signal " << end.status;
    EXPECT_EQ(end.status, 1) << end.output;
    EXPECT_TRUE(in_order({"sta_init: WSMD init finish..\n", "sta_deinit: MAIN"}));
    std::vector<std::string> last = calls();
    ASSERT_GE(last.size(), chain_clean_up.size());
    last.erase(last.begin(), last.end() - static_cast<long>(chain_clean_up.size()));
    EXPECT_THAT(last, ElementsAreArray(chain_clean_up));
}

} // namespace
