// Calling the start operation again polls at once, as the watcher's timer does.
#include "support/house.h"

#include "base/cxx/ubox.h"
#include "core/watch.h"

#include <filesystem>
#include <gmock/gmock.h>

// The linker leads the program's calls here.
extern "C" {
int __real_uloop_timeout_set(uloop_timeout *timer, int ms);
int __wrap_uloop_timeout_set(uloop_timeout *timer, int ms);
}

namespace {
uloop_timeout *g_armed = nullptr; // the last one
}

int __wrap_uloop_timeout_set(uloop_timeout *timer, int ms) {
    g_armed = timer;
    return __real_uloop_timeout_set(timer, ms);
}

namespace {

int g_runs = 0;
std::string g_copied; // what the copy of the snooping table held when the callback ran
void count_run() {
    ++g_runs;
    g_copied = read_file("/tmp/snoop_ip_bak");
}

struct watched_file {
    const char *path;
    void (*start)(void (*callback)(void));
};

// A watcher remembers its file's last time for the life of the process, so every test uses other times.
long g_time = 1700000000;
bool g_polled = false; // by any test of this process

class watch : public House, public testing::WithParamInterface<watched_file> {
protected:
    watch() {
        g_runs = 0;
        g_time += 1000;
    }
    ~watch() override { GetParam().start(nullptr); }
    void write(long offset) {
        write_file(GetParam().path, "x");
        set_file_time(GetParam().path, g_time + offset);
    }
    static void poll() {
        g_polled = true;
        GetParam().start(count_run);
    }
};

TEST_P(watch, first_poll_runs_the_callback_when_the_file_is_there) {
    write(0);
    poll();
    EXPECT_EQ(g_runs, 1);
}

TEST_P(watch, unchanged_file_runs_it_once) {
    write(0);
    poll();
    write_file(GetParam().path, "changed within the second");
    set_file_time(GetParam().path, g_time);
    poll();
    EXPECT_EQ(g_runs, 1);
}

TEST_P(watch, any_other_time_is_a_change) {
    write(0);
    poll();
    write(5);
    poll();
    EXPECT_EQ(g_runs, 2);
    write(-5);
    poll();
    EXPECT_EQ(g_runs, 3);
}

TEST_P(watch, missing_file_is_no_change_and_its_return_with_another_time_is_one) {
    poll();
    EXPECT_EQ(g_runs, 0);
    write(0);
    poll();
    EXPECT_EQ(g_runs, 1);
    std::filesystem::remove(GetParam().path);
    poll();
    EXPECT_EQ(g_runs, 1);
    write(0);
    poll();
    EXPECT_EQ(g_runs, 1) << "the same time as before";
    std::filesystem::remove(GetParam().path);
    write(1);
    poll();
    EXPECT_EQ(g_runs, 2);
}

// Without a callback nothing is remembered.
TEST_P(watch, without_a_callback_nothing_is_looked_at) {
    write(0);
    GetParam().start(nullptr);
    EXPECT_FALSE(file_exists("/tmp/snoop_ip_bak"));
    poll();
    EXPECT_EQ(g_runs, 1);
}

// A device whose clock was never set.
TEST_P(watch, file_of_time_0_is_not_seen_at_start) {
    if (g_polled) GTEST_SKIP() << "needs a watcher that has not polled yet: run it by itself";
    write_file(GetParam().path, "x");
    set_file_time(GetParam().path, 0);
    poll();
    EXPECT_EQ(g_runs, 0);
    write(0);
    poll();
    EXPECT_EQ(g_runs, 1);
}

TEST_P(watch, change_that_the_callback_makes_is_seen_by_the_next_poll) {
    write(0);
    g_polled = true;
    GetParam().start([] {
        count_run();
        set_file_time(GetParam().path, g_time + g_runs);
    });
    EXPECT_EQ(g_runs, 1);
    poll();
    EXPECT_EQ(g_runs, 2);
    poll();
    EXPECT_EQ(g_runs, 2);
}

TEST_P(watch, starting_again_leaves_one_timer) {
    const auto next = [] { return uloop_get_next_timeout(); };
    EXPECT_EQ(next(), -1);
    poll();
    poll();
    EXPECT_GT(next(), 9000);
    EXPECT_LE(next(), 10000);
}

TEST_P(watch, its_timer_polls_and_is_armed_again_whether_the_file_is_there_or_not) {
    write(0);
    poll();
    uloop_timeout &timer = *g_armed;
    const auto due_at_once = [&] {
        uloop_timeout_set(&timer, 0);
        return loop_until([&] { return uloop_timeout_remaining64(&timer) > 5000; });
    };
    write(5);
    EXPECT_TRUE(due_at_once());
    EXPECT_EQ(g_runs, 2);
    std::filesystem::remove(GetParam().path);
    EXPECT_TRUE(due_at_once());
    EXPECT_EQ(g_runs, 2);
    write(9);
    EXPECT_TRUE(due_at_once());
    EXPECT_EQ(g_runs, 3);
}

INSTANTIATE_TEST_SUITE_P(files, watch,
                         testing::Values(watched_file{"/etc/config/wsmd", sta_control_wsmd_init},
                                         watched_file{"/tmp/dhcp.leases", sta_control_dhcp_init},
                                         watched_file{"/tmp/snoop_ip", sta_control_snoop_init}),
                         [](const testing::TestParamInfo<watched_file> &one) {
                             const std::string path = one.param.path;
                             const std::size_t name = path.find_last_of('/') + 1;
                             return path.substr(name, path.find('.', name) - name);
                         });

using snoop_watch = House;

TEST_F(snoop_watch, table_is_copied_before_the_callback) {
    g_time += 1000;
    write_file("/tmp/snoop_ip", "1 aa:bb:cc:dd:ee:ff 10.0.0.9 br-lan\n");
    set_file_time("/tmp/snoop_ip", g_time);
    g_copied.clear();
    g_polled = true;
    sta_control_snoop_init(count_run);
    EXPECT_EQ(g_copied, "1 aa:bb:cc:dd:ee:ff 10.0.0.9 br-lan\n");
    EXPECT_EQ(std::filesystem::last_write_time("/tmp/snoop_ip_bak"),
              std::filesystem::last_write_time("/tmp/snoop_ip"));
    sta_control_snoop_init(nullptr);
}

TEST_F(snoop_watch, others_copy_nothing) {
    g_time += 1000;
    write_file("/tmp/snoop_ip", "x");
    write_file("/tmp/dhcp.leases", "x");
    set_file_time("/tmp/dhcp.leases", g_time);
    g_polled = true;
    sta_control_dhcp_init(count_run);
    EXPECT_FALSE(file_exists("/tmp/snoop_ip_bak"));
    sta_control_dhcp_init(nullptr);
}

} // namespace
