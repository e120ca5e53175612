// Timers and descriptors, where the recorded scenarios do not reach: lifetimes, limits, and corners of the order.
#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <sys/socket.h>
#include <vector>

#include "loop.h"

namespace {

class uloop_timers : public loop_test {};
class uloop_descriptors : public loop_test {};

TEST_F(uloop_timers, a_deadline_less_than_a_millisecond_earlier_comes_later) {
    uloop_timeout a{}, b{}, c{}, d{};
    a.time = {.tv_sec = 1000000, .tv_usec = 1500};
    b.time = {.tv_sec = 1000000, .tv_usec = 900};
    c.time = {.tv_sec = 1000000, .tv_usec = 400};
    d.time = {.tv_sec = 1000000, .tv_usec = 501};
    for (uloop_timeout *t : {&a, &b, &c}) EXPECT_EQ(uloop_timeout_add(t), 0);
    EXPECT_EQ(c.list.next, &a.list) << "a is later than c by 1.1 ms";
    EXPECT_EQ(a.list.next, &b.list) << "a is later than b by 0.6 ms only";
    EXPECT_EQ(uloop_timeout_add(&d), 0);
    EXPECT_EQ(b.list.next, &d.list) << "no entry is later than d by 1 ms";
    for (uloop_timeout *t : {&a, &b, &c, &d}) EXPECT_EQ(uloop_timeout_cancel(t), 0);
}

TEST_F(uloop_timers, the_millisecond_is_measured_across_the_second) {
    uloop_timeout a{}, b{};
    a.time = {.tv_sec = 1000001, .tv_usec = 400};
    b.time = {.tv_sec = 1000000, .tv_usec = 999500};
    uloop_timeout_add(&a);
    uloop_timeout_add(&b);
    EXPECT_EQ(a.list.next, &b.list) << "0.9 ms apart";
    uloop_timeout_cancel(&b);
    b.time.tv_usec = 999400;
    uloop_timeout_add(&b);
    EXPECT_EQ(b.list.next, &a.list) << "1 ms apart";
    uloop_timeout_cancel(&a);
    uloop_timeout_cancel(&b);
}

TEST_F(uloop_timers, a_thousand_timers_fire_once_each_in_order) {
    constexpr int count = 1000;
    const auto deadline = [](int i) { return i * 7 % 500 * 2; }; // ms; each one twice
    std::vector<std::unique_ptr<timer>> timers;
    std::vector<int> fired, expected;
    for (int i = 0; i < count; ++i) {
        timers.push_back(std::make_unique<timer>([&fired, i] { fired.push_back(i); }));
        timers.back()->time = {.tv_sec = -1, .tv_usec = deadline(i) * 1000};
        EXPECT_EQ(uloop_timeout_add(timers.back().get()), 0);
        expected.push_back(i);
    }
    std::stable_sort(expected.begin(), expected.end(),
                     [&](int a, int b) { return deadline(a) < deadline(b); });
    rounds(1);
    EXPECT_EQ(fired, expected);
}

TEST_F(uloop_timers, deadlines_of_any_size_are_handled) {
    constexpr auto far = std::numeric_limits<time_t>::max();
    uloop_timeout past{}, future{};
    future.time = {.tv_sec = far, .tv_usec = 999999};
    uloop_timeout_add(&future);
    EXPECT_EQ(uloop_get_next_timeout(), INT_MAX);
    EXPECT_GT(uloop_timeout_remaining64(&future), std::int64_t{INT_MAX});
    past.time = {.tv_sec = std::numeric_limits<time_t>::min(), .tv_usec = -5};
    uloop_timeout_add(&past);
    EXPECT_EQ(past.list.next, &future.list);
    EXPECT_EQ(uloop_get_next_timeout(), 0);
    EXPECT_LT(uloop_timeout_remaining64(&past), 0);
    rounds(1);
    EXPECT_FALSE(past.pending);
    EXPECT_TRUE(future.pending);
    uloop_timeout_cancel(&future);
}

TEST_F(uloop_timers, delays_of_any_size_are_handled) {
    uloop_timeout t{};
    EXPECT_EQ(uloop_timeout_set(&t, INT_MAX), 0);
    EXPECT_GT(uloop_timeout_remaining64(&t), std::int64_t{INT_MAX} - 10000);
    EXPECT_EQ(uloop_timeout_set(&t, INT_MIN), 0);
    EXPECT_LE(uloop_timeout_remaining64(&t), std::int64_t{INT_MIN});
    EXPECT_TRUE(t.time.tv_usec >= 0 && t.time.tv_usec < 1000000);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    EXPECT_EQ(uloop_timeout_remaining(&t), INT_MIN);
#pragma GCC diagnostic pop
    uloop_timeout_cancel(&t);
}

TEST_F(uloop_timers, a_timer_may_free_itself_and_others_of_the_same_pass) {
    auto *victim = new timer{[&] { seen += "victim "; }};
    timer *self = nullptr;
    self = new timer{[&] {
        seen += "self ";
        uloop_timeout_cancel(victim);
        delete victim;
        delete std::exchange(self, nullptr);
    }};
    uloop_timeout_set(self, -5);
    uloop_timeout_set(victim, -3);
    rounds(2);
    EXPECT_EQ(seen, "self ");
}

TEST_F(uloop_timers, a_timer_rearmed_at_once_does_not_starve_descriptors) {
    pipe_pair p;
    timer t{[&] { uloop_timeout_set(&t, 0); }};
    watch u{p.r, [&](unsigned) { uloop_end(); }};
    uloop_timeout_set(&t, 0);
    uloop_fd_add(&u, ULOOP_READ);
    p.put();
    run();
    uloop_timeout_cancel(&t);
    uloop_fd_delete(&u);
}

TEST(uloop_without_init, timers_run_all_the_same) {
    bool fired = false;
    timer t{[&] {
        fired = true;
        uloop_end();
    }};
    uloop_timeout_set(&t, 5);
    uloop_run();
    EXPECT_TRUE(fired);
    uloop_done(); // nothing to close
}

TEST_F(uloop_descriptors, a_callback_may_free_its_object_after_deletion) {
    pipe_pair p;
    watch *u = new watch{p.r, [&](unsigned) {
                             seen += "x";
                             uloop_fd_delete(u);
                             delete u;
                         }};
    uloop_fd_add(u, ULOOP_READ);
    p.put();
    rounds(3);
    EXPECT_EQ(seen, "x");
}

TEST_F(uloop_descriptors, an_edge_callback_may_free_its_object_after_deletion) {
    pipe_pair p;
    watch *u = new watch{p.r, [&](unsigned) {
                             seen += "x";
                             p.put();
                             uloop_run_timeout(0); // keeps an event for it
                             uloop_fd_delete(u);
                             delete u;
                         }};
    uloop_fd_add(u, ULOOP_READ | ULOOP_EDGE_TRIGGER);
    p.put();
    rounds(3);
    EXPECT_EQ(seen, "x");
}

TEST_F(uloop_descriptors, after_a_hangup_the_callback_may_free_its_object_at_once) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    watch *u = new watch{ends[0], [&](unsigned) {
                             EXPECT_TRUE(u->error && u->eof && !u->registered);
                             seen += "x";
                             close(u->fd);
                             delete u;
                         }};
    uloop_fd_add(u, ULOOP_READ);
    close(ends[1]);
    rounds(3);
    EXPECT_EQ(seen, "x");
}

TEST_F(uloop_descriptors, a_hangup_during_an_edge_callback_comes_after_it) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    int depth = 0;
    watch u{ends[0], [&](unsigned events) {
                EXPECT_EQ(++depth, 1) << "delivered recursively";
                seen += u.error ? "hangup" : "data ";
                EXPECT_EQ(events, unsigned{ULOOP_READ});
                if (!u.error) {
                    close(ends[1]);
                    uloop_run_timeout(0);
                    EXPECT_FALSE(u.registered);
                }
                --depth;
            }};
    uloop_fd_add(&u, ULOOP_READ | ULOOP_EDGE_TRIGGER);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    rounds(3);
    EXPECT_EQ(seen, "data hangup");
    close(ends[0]);
}

TEST_F(uloop_descriptors, more_descriptors_than_one_wait_reports_are_all_served) {
    constexpr int count = 25;
    std::vector<pipe_pair> pipes(count);
    std::vector<std::unique_ptr<watch>> watches;
    std::vector<int> calls(count);
    for (std::size_t i = 0; i < count; ++i) {
        watches.push_back(std::make_unique<watch>(pipes[i].r, [&, i](unsigned) {
            pipes[i].take();
            ++calls[i];
        }));
        ASSERT_EQ(uloop_fd_add(watches.back().get(), ULOOP_READ), 0);
        pipes[i].put();
    }
    rounds(count);
    EXPECT_EQ(calls, std::vector<int>(count, 1));
    for (auto &u : watches) uloop_fd_delete(u.get());
}

TEST_F(uloop_descriptors, events_without_a_callback_are_dropped_and_cost_no_turn) {
    pipe_pair p, q;
    uloop_fd mute{};
    mute.fd = p.r;
    watch u{q.r, [&](unsigned) { seen += "x"; }};
    uloop_fd_add(&mute, ULOOP_READ);
    uloop_fd_add(&u, ULOOP_READ);
    p.put();
    q.put();
    rounds(1);
    EXPECT_EQ(seen, "x");
    uloop_fd_delete(&mute);
    uloop_fd_delete(&u);
}

TEST_F(uloop_descriptors, adding_refuses_what_epoll_refuses_and_keeps_errno) {
    uloop_fd u{};
    u.fd = -1;
    EXPECT_EQ(uloop_fd_add(&u, ULOOP_READ), -1);
    EXPECT_EQ(errno, EBADF);
    u.fd = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(uloop_fd_add(&u, ULOOP_READ), -1);
    EXPECT_EQ(errno, EPERM);
    EXPECT_FALSE(u.registered);
    close(u.fd);
}

std::string hook_calls;
TEST_F(uloop_descriptors, the_hook_is_called_before_changes_of_registrations) {
    uloop_fd_set_cb = [](uloop_fd *u, unsigned flags) {
        hook_calls += std::to_string(flags) + (u->registered ? "r" : "u") + std::to_string(u->flags) + " ";
    };
    pipe_pair p;
    watch u{p.r, [](unsigned) {}};
    uloop_fd_add(&u, ULOOP_READ);
    uloop_fd_add(&u, ULOOP_READ | ULOOP_EDGE_TRIGGER);
    uloop_fd_delete(&u);
    uloop_fd_delete(&u);
    uloop_fd_set_cb = nullptr;
    EXPECT_EQ(hook_calls, "1u0 5r1 0r5 ");
}

} // namespace
