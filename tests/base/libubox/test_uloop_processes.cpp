// Child processes, signals, intervals, and start and stop of the loop, where the recorded scenarios do not reach.
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include "loop.h"

namespace {

class uloop_processes : public loop_test {};
class uloop_signals : public loop_test {};
class uloop_intervals : public loop_test {};

pid_t child_that_exits(int code) {
    const pid_t pid = fork();
    if (pid == 0) _exit(code);
    return pid;
}

TEST_F(uloop_processes, all_watchers_of_a_child_are_called_and_can_delete_others) {
    const pid_t pid = child_that_exits(5);
    child third{pid, [&](int) { seen += "third "; }};
    child first{pid, [&](int status) {
                    seen += "first:" + std::to_string(WEXITSTATUS(status)) + " ";
                    EXPECT_EQ(uloop_process_delete(&third), 0);
                }};
    child second{pid, [&](int) {
                     seen += "second ";
                     uloop_end();
                 }};
    EXPECT_EQ(uloop_process_add(&first), 0);
    EXPECT_EQ(uloop_process_add(&second), 0);
    EXPECT_EQ(uloop_process_add(&third), 0);
    EXPECT_EQ(uloop_process_add(&third), -1);
    run();
    EXPECT_EQ(seen, "first:5 second ");
}

TEST_F(uloop_processes, a_watcher_added_again_waits_for_the_next_child_of_that_id) {
    const pid_t pid = child_that_exits(0);
    child again{pid, [&](int) {
                    seen += "x";
                    uloop_process_add(&again);
                    uloop_end();
                }};
    uloop_process_add(&again);
    run();
    EXPECT_EQ(seen, "x");
    EXPECT_EQ(uloop_process_delete(&again), 0);
}

TEST_F(uloop_processes, watchers_are_listed_by_process_id) {
    uloop_process a{}, b{}, c{}, d{};
    a.pid = 30, b.pid = 10, c.pid = 20, d.pid = 10;
    for (uloop_process *p : {&a, &b, &c, &d}) uloop_process_add(p);
    EXPECT_EQ(b.list.next, &d.list);
    EXPECT_EQ(d.list.next, &c.list);
    EXPECT_EQ(c.list.next, &a.list);
    uloop_done();
    EXPECT_FALSE(a.pending || b.pending || c.pending || d.pending);
    uloop_init();
}

TEST(uloop_children, are_left_alone_when_the_program_handles_them_itself) {
    uloop_handle_sigchld = false;
    ASSERT_EQ(uloop_init(), 0);
    struct sigaction act;
    sigaction(SIGCHLD, nullptr, &act);
    EXPECT_EQ(act.sa_handler, SIG_DFL);

    bool told = false;
    trap s{SIGCHLD, [&] {
               told = true;
               uloop_end();
           }};
    uloop_signal_add(&s);
    const pid_t pid = child_that_exits(3);
    uloop_run();
    EXPECT_TRUE(told);
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid) << "the loop has not reaped it";
    EXPECT_EQ(WEXITSTATUS(status), 3);
    uloop_signal_delete(&s);
    uloop_done();
    uloop_handle_sigchld = true;
}

TEST_F(uloop_signals, a_signal_callback_may_delete_itself_and_others) {
    trap third{SIGUSR1, [&] { seen += "third "; }};
    trap first{SIGUSR1, [&] {
                   seen += "first ";
                   EXPECT_EQ(uloop_signal_delete(&first), 0);
                   EXPECT_EQ(uloop_signal_delete(&third), 0);
               }};
    trap second{SIGUSR1, [&] { seen += "second "; }};
    for (trap *t : {&first, &second, &third}) EXPECT_EQ(uloop_signal_add(t), 0);
    raise(SIGUSR1);
    rounds(3);
    EXPECT_EQ(seen, "first second ");
    EXPECT_EQ(uloop_signal_delete(&second), 0);
}

TEST_F(uloop_signals, an_own_handler_is_put_back) {
    std::signal(SIGUSR2, SIG_IGN);
    trap t{SIGUSR2, [] {}};
    uloop_signal_add(&t);
    struct sigaction act;
    sigaction(SIGUSR2, nullptr, &act);
    EXPECT_NE(act.sa_handler, SIG_IGN);
    uloop_signal_delete(&t);
    sigaction(SIGUSR2, nullptr, &act);
    EXPECT_EQ(act.sa_handler, SIG_IGN);
    std::signal(SIGUSR2, SIG_DFL);
}

TEST_F(uloop_signals, deleting_one_of_two_watchers_restores_the_signal) {
    trap first{SIGUSR2, [] {}};
    trap second{SIGUSR2, [] {}};
    uloop_signal_add(&first);
    uloop_signal_add(&second);
    struct sigaction act;
    for (trap *t : {&first, &second}) {
        uloop_signal_delete(t);
        sigaction(SIGUSR2, nullptr, &act);
        EXPECT_EQ(act.sa_handler, SIG_DFL);
    }
}

TEST_F(uloop_signals, signals_that_cannot_be_caught_are_accepted_and_never_come) {
    trap none{SIGKILL, [] {}};
    trap beyond{100000, [] {}};
    for (trap *t : {&none, &beyond}) {
        EXPECT_EQ(uloop_signal_add(t), 0);
        EXPECT_EQ(uloop_signal_delete(t), 0);
        EXPECT_EQ(uloop_signal_delete(t), -1);
    }
}

TEST_F(uloop_signals, a_real_time_signal_tells_its_own_watchers_only) {
    trap rt{SIGRTMIN + 8, [&] { seen += "rt "; }};
    trap usr{SIGUSR1, [&] { seen += "usr "; }};
    uloop_signal_add(&rt);
    uloop_signal_add(&usr);
    raise(SIGRTMIN + 8);
    rounds(2);
    EXPECT_EQ(seen, "rt ");
    uloop_signal_delete(&rt);
    uloop_signal_delete(&usr);
}

TEST_F(uloop_signals, a_blocking_call_is_interrupted_by_the_ending_signal) {
    timer t{[] { raise(SIGTERM); }};
    uloop_timeout_set(&t, 1);
    EXPECT_EQ(uloop_run(), SIGTERM);
    struct sigaction act;
    sigaction(SIGTERM, nullptr, &act);
    EXPECT_EQ(act.sa_flags & SA_RESTART, 0);
}

TEST_F(uloop_intervals, an_interval_set_again_starts_afresh_and_counts_on) {
    struct counted : uloop_interval {
        int calls = 0;
    } i;
    static_cast<uloop_interval &>(i) = {};
    i.cb = [](uloop_interval *v) {
        if (++static_cast<counted *>(v)->calls == 3) uloop_end();
    };
    EXPECT_EQ(uloop_interval_remaining(&i), -1);
    EXPECT_EQ(uloop_interval_cancel(&i), -1);
    EXPECT_EQ(uloop_interval_set(&i, 3600000), 0);
    EXPECT_GT(uloop_interval_remaining(&i), 3500000);
    EXPECT_EQ(uloop_interval_set(&i, 2), 0);
    EXPECT_LE(uloop_interval_remaining(&i), 2);
    run();
    EXPECT_EQ(i.calls, 3);
    EXPECT_GE(i.expirations, 3u);
    EXPECT_EQ(uloop_interval_cancel(&i), 0);
    EXPECT_EQ(uloop_interval_cancel(&i), -1);
}

TEST(uloop_start, fails_without_descriptors_and_works_later) {
    rlimit old;
    getrlimit(RLIMIT_NOFILE, &old);
    for (int free_descriptors = 0; free_descriptors < 3; ++free_descriptors) {
        const int next = dup(0);
        ASSERT_GE(next, 0);
        close(next);
        rlimit tight = old;
        tight.rlim_cur = static_cast<rlim_t>(next + free_descriptors);
        setrlimit(RLIMIT_NOFILE, &tight);
        const int ret = uloop_init();
        const int err = errno;
        setrlimit(RLIMIT_NOFILE, &old);
        EXPECT_EQ(ret, -1) << free_descriptors << " descriptors are too few for epoll and a pipe";
        EXPECT_EQ(err, EMFILE);
        const int after = dup(0);
        EXPECT_EQ(after, next) << "none was left open";
        close(after);
    }
    EXPECT_EQ(uloop_init(), 0);
    uloop_done();
}

TEST(uloop_start, descriptors_of_the_loop_are_not_inherited_by_programs) {
    const int next = dup(0);
    close(next);
    ASSERT_EQ(uloop_init(), 0);
    for (int fd = next; fd < next + 3; ++fd) EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC) << fd;
    uloop_done();
    const int after = dup(0);
    EXPECT_EQ(after, next) << "all are closed";
    close(after);
}

} // namespace
