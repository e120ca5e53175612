#include "support/house.h"

#include "life/timers.h"
#include "model/table.h"

#include <climits>
#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using timers = House;

// Milliseconds until the timer is due; a slow machine may be a second late.
testing::AssertionResult due_in(uloop_timeout &timer, std::int64_t ms) {
    const std::int64_t left = uloop_timeout_remaining64(&timer);
    if (timer.pending && left <= ms && left > ms - 1000) return testing::AssertionSuccess();
    return testing::AssertionFailure()
           << (timer.pending ? "pending" : "not pending") << ", due in " << left << " ms";
}

TEST_F(timers, each_callback_arms_itself_again) {
    sta_flow_count_timer(&sta_flow_count_timeout);
    EXPECT_TRUE(sta_flow_count_timeout.cb == sta_flow_count_timer);
    EXPECT_TRUE(due_in(sta_flow_count_timeout, 5000));

    sta_sta_log_up_timer(&sta_log_up_timeout);
    EXPECT_TRUE(sta_log_up_timeout.cb == sta_sta_log_up_timer);
    EXPECT_TRUE(due_in(sta_log_up_timeout, 60000));

    sta_single_log_up_timer(&sta_single_log_up_timeout);
    EXPECT_TRUE(sta_single_log_up_timeout.cb == sta_single_log_up_timer);
    EXPECT_TRUE(due_in(sta_single_log_up_timeout, 1000));
}

TEST_F(timers, each_pass_that_the_loop_runs_arms_the_next) {
    put_station("aa:bb:cc:dd:ee:ff");
    struct row {
        uloop_timeout_handler start;
        uloop_timeout &timer;
        int ms;
        std::size_t (*passes)();
    };
    for (const row &one : {row{sta_flow_count_timer, sta_flow_count_timeout, 5000,
                               [] { return driver_requests().size(); }}, // one that is refused in each pass
                           row{sta_single_log_up_timer, sta_single_log_up_timeout, 1000,
                               [] { return std::size_t(stations()[0]->single_log_up_cnt); }},
                           row{sta_sta_log_up_timer, sta_log_up_timeout, 60000,
                               [] { return lines_of("sta_sta_log_up_timer").size(); }}}) {
        forget_driver();
        one.start(&one.timer);
        for (std::size_t passes = 1; passes <= 2; ++passes) {
            EXPECT_EQ(one.passes(), passes);
            EXPECT_TRUE(due_in(one.timer, one.ms));
            uloop_timeout_set(&one.timer, 0);
            EXPECT_TRUE(loop_until([&] { return one.passes() > passes; }));
        }
        uloop_timeout_cancel(&one.timer);
    }
}

TEST_F(timers, a_driver_and_a_collector_that_fail_do_not_stop_them) {
    put_station("aa:bb:cc:dd:ee:ff", sta_status_online);
    sta_flow_count_timer(&sta_flow_count_timeout);
    sta_sta_log_up_timer(&sta_log_up_timeout);
    sta_single_log_up_timer(&sta_single_log_up_timeout);
    for (uloop_timeout *timer : {&sta_flow_count_timeout, &sta_log_up_timeout, &sta_single_log_up_timeout})
        EXPECT_TRUE(timer->pending);
}

TEST_F(timers, work_comes_before_the_log_line) {
    sta_sta_log_up_timer(&sta_log_up_timeout);
    EXPECT_THAT(log_lines(), ElementsAre("sta_mem_dump: sta mem_total_cnt 0\n",
                                         "sta_sta_log_up_timer: update period:60 s\n"));
}

TEST_F(timers, flow_count_puts_a_new_station_on_line) {
    const sta_info_t *sta = put_station("aa:bb:cc:dd:ee:ff");
    sta_flow_count_timer(&sta_flow_count_timeout);
    EXPECT_EQ(sta->status, sta_status_online);
    EXPECT_EQ(g_sta_sta_master.online, 1);
}

TEST_F(timers, single_log_up_counts_the_passes) {
    const sta_info_t *sta = put_station("aa:bb:cc:dd:ee:ff", sta_status_online);
    sta_single_log_up_timer(&sta_single_log_up_timeout);
    EXPECT_EQ(sta->single_log_up_cnt, 1);
}

TEST_F(timers, new_period_runs_a_log_up_at_once_and_counts_from_now) {
    sta_sta_log_up_timer(&sta_log_up_timeout);
    forget_log();
    sta_sta_log_set_uptate_time(10);
    EXPECT_EQ(sta_log_update_period, 10);
    EXPECT_TRUE(due_in(sta_log_up_timeout, 10000));
    EXPECT_THAT(log_lines(), ElementsAre("file: update time=10\n", "sta_mem_dump: sta mem_total_cnt 0\n",
                                         "sta_sta_log_up_timer: update period:10 s\n"));
}

TEST_F(timers, the_same_period_runs_a_log_up_as_well) {
    sta_sta_log_set_uptate_time(60);
    EXPECT_TRUE(logged("sta_sta_log_up_timer", "update period:60 s\n"));
    EXPECT_TRUE(due_in(sta_log_up_timeout, 60000));
}

// Each writes two lines: there can be many thousands.
std::size_t log_ups() { return log_records().size() / 2; }

TEST_F(timers, period_of_0_runs_again_and_again_and_leaves_room_for_others) {
    sta_sta_log_set_uptate_time(0);
    EXPECT_TRUE(loop_until([] { return log_ups() >= 5; }));
    static bool served;
    served = false;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    uloop_fd reader{};
    reader.fd = ends[0];
    reader.cb = [](uloop_fd *, unsigned) { served = true; };
    uloop_fd_add(&reader, ULOOP_READ);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_TRUE(loop_until([] { return served; }));
    uloop_fd_delete(&reader);
    close(ends[0]);
    close(ends[1]);
    sta_sta_log_set_uptate_time(60);
}

// Deliberate: the value is taken as it is.
TEST_F(timers, negative_period_is_overdue_at_once) {
    sta_sta_log_set_uptate_time(-1);
    EXPECT_EQ(sta_log_update_period, -1);
    EXPECT_TRUE(logged("sta_sta_log_up_timer", "update period:-1 s\n"));
    EXPECT_LT(uloop_timeout_remaining64(&sta_log_up_timeout), 0);
    EXPECT_TRUE(loop_until([] { return log_ups() >= 2; }));
}

TEST_F(timers, period_of_a_month_does_not_turn_negative) {
    for (const int seconds : {2147483, 2147484, INT_MAX}) {
        sta_sta_log_set_uptate_time(seconds);
        EXPECT_GT(uloop_timeout_remaining64(&sta_log_up_timeout), 2147482000) << seconds;
        EXPECT_TRUE(logged("sta_sta_log_up_timer", "update period:" + std::to_string(seconds) + " s\n"));
    }
    sta_sta_log_set_uptate_time(INT_MIN);
    EXPECT_LT(uloop_timeout_remaining64(&sta_log_up_timeout), -2147482000);
    uloop_timeout_cancel(&sta_log_up_timeout);
}

} // namespace
