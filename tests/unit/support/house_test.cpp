// Tests of the support itself, so that a failure of another test is a fault of the daemon.
#include "support/house.h"

#include "base/cxx/ubus.h"
#include "inputs/dhcpmon_list.h"
#include "model/table.h"
#include "support/places.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "was/was.h"

#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <memory>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

using house = House;
using testing::ElementsAre;

TEST_F(house, what_a_test_writes_is_gone_when_the_next_one_starts) {
    for (const char *path : {"/tmp/a/b", "/run/a", "/etc/config/a", "/proc/tk_sys/sys_mac"}) {
        EXPECT_FALSE(file_exists(path)) << path;
        write_file(path, "x");
        EXPECT_EQ(read_file(path), "x");
    }
    empty_places();
    for (const char *path : {"/tmp/a", "/run/a", "/etc/config/a", "/proc/tk_sys/sys_mac"})
        EXPECT_FALSE(file_exists(path)) << path;
}

TEST_F(house, system_files_stay_readable_behind_the_covered_folders) {
    EXPECT_NE(read_file("/etc/passwd"), "");
    EXPECT_NE(read_file("/proc/self/status"), "");
    EXPECT_NE(read_file("/proc/" + std::to_string(getpid()) + "/status"), "");
}

TEST_F(house, a_forked_process_finds_itself_among_the_processes_whatever_its_number) {
    const child_end end =
        run_in_child([] { std::exit(file_exists("/proc/" + std::to_string(getpid()) + "/task") ? 7 : 8); });
    EXPECT_EQ(end.status, 7);
}

TEST_F(house, log_lines_lose_their_line_number_and_keep_their_order) {
    STA_LOG("a %d\n", 1);
    STA_ERROR("sta_tools", "b\n");
    STA_LOGFILE("c\n");
    EXPECT_THAT(log_lines(), ElementsAre("TestBody: a 1\n", "ERROR in sta_tools: b\n", "file: c\n"));
    EXPECT_TRUE(logged("TestBody", "a 1\n"));
    EXPECT_FALSE(logged("TestBody", "a 1"));
    EXPECT_FALSE(logged_error("sta_sta", "b\n"));
    EXPECT_TRUE(filed("c\n"));
}

TEST_F(house, driver_refuses_until_the_test_answers_for_it) {
    unsigned char bytes[2] = {1, 2};
    EXPECT_EQ(was_ext_ioctl_msg(bytes, 2, "ath0", 4, 0), -1);
    set_driver([](const driver_request &request, std::span<std::uint8_t> answer) {
        answer[0] = static_cast<std::uint8_t>(request.cmd);
        return 0;
    });
    EXPECT_EQ(was_ext_ioctl_msg(bytes, 2, "ath1", 5, 0), 0);
    EXPECT_EQ(bytes[0], 5);
    ASSERT_EQ(driver_requests().size(), 2U);
    EXPECT_EQ(driver_requests()[1].ifname, "ath1");
    EXPECT_THAT(driver_requests()[1].bytes, ElementsAre(1, 2));
}

TEST_F(house, only_the_allocation_asked_for_fails) {
    fail_allocation(2);
    void *first = sta_malloc(4);
    void *second = sta_malloc(4);
    void *third = sta_malloc(4);
    EXPECT_TRUE(first);
    EXPECT_FALSE(second);
    EXPECT_TRUE(third);
    EXPECT_TRUE(allocation_failed());
    sta_free(first);
    sta_free(third);
}

TEST_F(house, commands_are_recorded_and_print_what_the_test_says) {
    write_command("iptables", "echo hello; exit 3");
    EXPECT_EQ(WEXITSTATUS(std::system("iptables -t nat 'a b' > /tmp/out")), 3);
    EXPECT_EQ(read_file("/tmp/out"), "hello\n");
    EXPECT_THAT(calls(), ElementsAre("iptables -t nat a b"));
}

TEST_F(house, a_child_gives_back_its_status_its_log_and_its_output) {
    const child_end end = run_in_child([] {
        STA_LOG("in the child\n");
        std::puts("out");
        std::exit(7);
    });
    EXPECT_TRUE(end.exited);
    EXPECT_EQ(end.status, 7);
    EXPECT_EQ(end.output, "out\n");
    ASSERT_EQ(log_records().size(), 1U);
    EXPECT_NE(log_records()[0].text.find("in the child\n"), std::string::npos);
    EXPECT_FALSE(run_in_child([] { raise(SIGKILL); }).exited);
}

TEST_F(house, broker_accepts_a_connection_and_is_gone_afterwards) {
    start_bus();
    ubus_context *bus = ubus_connect(nullptr);
    ASSERT_TRUE(bus);
    ubus_free(bus);
    stop_bus();
    EXPECT_FALSE(ubus_connect(nullptr));
}

TEST_F(house, loop_runs_until_the_condition_holds_or_the_bound_is_reached) {
    static bool fired;
    fired = false;
    uloop_timeout timer{};
    timer.cb = [](uloop_timeout *) { fired = true; };
    uloop_timeout_set(&timer, 1);
    EXPECT_TRUE(loop_until([] { return fired; }));
    EXPECT_FALSE(loop_until([] { return false; }, 1));
}

// A fixture that a test sets up and tears down by hand.
struct leaky : House {
    void TestBody() override {}
};

TEST(house_end, stations_and_leases_left_behind_are_no_leak) {
    auto one = std::make_unique<leaky>();
    put_station("aa:bb:cc:dd:ee:ff")->name = sta_strdup("phone");
    sta_sta_get_dhcpmon_list_by_ubus("10.0.0.7", "tv", "aa:bb:cc:dd:ee:ff");
    EXPECT_EQ(mem_total_cnt, 3U);
    one.reset();
    EXPECT_EQ(mem_total_cnt, 0U);
}

void *g_block = nullptr;
void leave_a_block() {
    const leaky one;
    g_block = sta_malloc(1);
}

TEST(house_end, a_block_left_behind_at_a_child_s_end_fails_the_test) {
    const leaky one;
    EXPECT_NONFATAL_FAILURE(run_in_child([] {
                                put_station("aa:bb:cc:dd:ee:ff");
                                g_block = sta_malloc(1);
                                std::exit(1);
                            }),
                            "nobody owns");
}

TEST(house_end, a_block_left_behind_fails_the_test) {
    EXPECT_NONFATAL_FAILURE(leave_a_block(), "blocks of the counting allocator");
    sta_free(g_block);
}

} // namespace
