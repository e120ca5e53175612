// The event loop, compared with recorded scenarios: the same calls, made in the same callbacks, must have
// the same effects in the same order.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <libubox/uloop.h>
#include <linux/time_types.h>
#include <map>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "golden.h"

namespace {

// A scenario has a clock of its own. It advances only where the scenario waits (in the loop's wait and in a sleep), by exactly
// the time asked for. So what is due first comes first, however slow the machine is.
bool clock_is_ours = false;
timespec ours;
std::int64_t rest_ns = 0; // waited for events, not yet a millisecond
constexpr std::int64_t ns_in_ms = 1'000'000, ns_in_s = 1'000'000'000;

// The kernel's own clock: the library's function of this name is replaced below.
int real_clock(clockid_t clock, timespec *time) {
    __kernel_old_timespec now{};
    if (syscall(SYS_clock_gettime, clock, &now) != 0) return -1;
    time->tv_sec = static_cast<time_t>(now.tv_sec);
    time->tv_nsec = now.tv_nsec;
    return 0;
}

std::int64_t real_ns() {
    timespec now;
    real_clock(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * ns_in_s + now.tv_nsec;
}

// By whole milliseconds, which is what the loop waits in.
void advance_clock(std::int64_t ms) {
    const std::int64_t ns = ours.tv_nsec + ms * ns_in_ms;
    ours.tv_sec += static_cast<time_t>(ns / ns_in_s);
    ours.tv_nsec = static_cast<long>(ns % ns_in_s);
}

} // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec *time) noexcept {
    if (!clock_is_ours || clock != CLOCK_MONOTONIC) return real_clock(clock, time);
    *time = ours;
    return 0;
}

int epoll_wait(int fd, epoll_event *events, int size, int timeout) {
    const std::int64_t before = real_ns();
    const int count = epoll_pwait(fd, events, size, timeout, nullptr);
    if (count == 0) {
        advance_clock(timeout);
        return count;
    }
    const int reason = errno;
    rest_ns += real_ns() - before;
    const std::int64_t ms = rest_ns / ns_in_ms;
    rest_ns %= ns_in_ms;
    advance_clock(timeout < 0 ? ms : std::min<std::int64_t>(ms, timeout));
    errno = reason;
    return count;
}
}

namespace {

// What happens outside the loop (a child's end, a signal, the kernel's timers) still takes real time, so a scenario may fail
// on a busy machine and is then repeated; a wrong loop fails every time.
constexpr int attempts = 10;

timespec duration(int ms) { return {.tv_sec = ms / 1000, .tv_nsec = ms % 1000 * 1000000L}; }

void sleep_ms(int ms) {
    const timespec t = duration(ms);
    clock_nanosleep(CLOCK_MONOTONIC, 0, &t, nullptr);
    advance_clock(ms);
}

// Plays one scenario in this process.
class player {
public:
    explicit player(const golden_case &c) : case_(c) { self = this; }

    std::string play() {
        for (const int signo : {SIGINT, SIGTERM, SIGPIPE, SIGCHLD, SIGHUP, SIGUSR1, SIGUSR2})
            std::signal(signo, SIG_DFL);
        if (case_.has("preset_ignored_signals")) {
            json_object *ignored = case_["preset_ignored_signals"];
            for (std::size_t i = 0; i < items(ignored); ++i) std::signal(number(item(ignored, i)), SIG_IGN);
        }
        calls(case_["ops"]);
        return trace_;
    }

private:
    // The library's objects, under the names of the scenario. A map never moves its values.
    template <class Object> struct named : Object { std::string name; };
    template <class Object> using objects = std::map<std::string, named<Object>>;

    template <class Object> static Object &get(objects<Object> &all, const std::string &name) {
        auto [at, made] = all.try_emplace(name);
        if (made) {
            static_cast<Object &>(at->second) = {};
            at->second.name = name;
        }
        return at->second;
    }
    template <class Object> static const std::string &name_of(Object *o) {
        return static_cast<named<Object> *>(o)->name;
    }

    uloop_timeout &timer(const std::string &name) {
        uloop_timeout &t = get(timers_, name);
        if (!t.cb && !muted_.contains(name))
            t.cb = [](uloop_timeout *o) { self->called("timer", name_of(o), ""); };
        return t;
    }
    uloop_fd &fd(const std::string &name) {
        uloop_fd &f = get(fds_, name);
        f.cb = [](uloop_fd *o, unsigned events) {
            self->called("fd", name_of(o),
                         ",{\"events\":" + std::to_string(events) + "," + self->state(*o) + "}");
        };
        return f;
    }
    uloop_process &process(const std::string &name) {
        uloop_process &p = get(processes_, name);
        p.cb = [](uloop_process *o, int status) {
            self->called("process", name_of(o), "," + std::to_string(status));
        };
        return p;
    }
    uloop_signal &signal(const std::string &name) {
        uloop_signal &s = get(signals_, name);
        s.cb = [](uloop_signal *o) { self->called("signal", name_of(o), ""); };
        return s;
    }
    uloop_interval &interval(const std::string &name) {
        uloop_interval &v = get(intervals_, name);
        v.cb = [](uloop_interval *o) { self->called("interval", name_of(o), ""); };
        return v;
    }

    std::string state(const uloop_fd &f) const {
        return "\"registered\":" + word(f.registered) + ",\"eof\":" + word(f.eof) +
               ",\"error\":" + word(f.error);
    }
    static std::string word(bool b) { return b ? "true" : "false"; }

    void called(const char *kind, const std::string &name, const std::string &more) {
        trace_ += "[\"" + (kind + ("\",\"" + name)) + "\"" + more + "]\n";
        json_object *lists = nullptr;
        const std::size_t turn = turns_[name]++;
        if (!json_object_object_get_ex(case_["callbacks"], name.c_str(), &lists) || turn >= items(lists))
            return;
        calls(item(lists, turn));
    }

    void calls(json_object *ops) {
        for (std::size_t i = 0; i < items(ops); ++i) call(item(ops, i));
    }

    void returned(const std::string &result) {
        trace_ += "[\"ret\",\"" + op_ + "\"" + (object_.empty() ? "" : ",\"" + object_ + "\"") + "," +
                  result + "]\n";
    }

    void call(json_object *op) {
        const auto what = text_of(item(op, 0));
        json_object *first = items(op) > 1 ? item(op, 1) : nullptr;
        const std::string name = json_object_is_type(first, json_type_string) ? text_of(first) : "";
        const auto num = [op](std::size_t i) { return number(item(op, i)); };
        const auto ret = [&](const std::string &result) {
            op_ = what;
            object_ = name;
            returned(result);
        };
        const auto ret_int = [&](int result) { ret(std::to_string(result)); };
        const auto in_range = [&](std::int64_t value, std::size_t at) {
            ret(word(value >= num(at) && value <= num(at + 1)));
        };

        // clang-format off
        if (what == "init") ret_int(uloop_init());
        else if (what == "done") uloop_done();
        else if (what == "run") ret_int(uloop_run());
        else if (what == "run_timeout") ret_int(uloop_run_timeout(num(1)));
        else if (what == "end") uloop_end();
        else if (what == "cancelled") ret(word(uloop_cancelled));
        else if (what == "cancelling") ret(word(uloop_cancelling()));
        else if (what == "reset_cancelled") uloop_cancelled = false;
        else if (what == "sleep") sleep_ms(num(1));

        else if (what == "timeout_set") ret_int(uloop_timeout_set(&timer(name), num(2)));
        else if (what == "timeout_cancel") ret_int(uloop_timeout_cancel(&timer(name)));
        else if (what == "timeout_add_rel") ret_int(add_relative(timer(name), num(2)));
        else if (what == "timeout_no_callback") { muted_[name] = true; timer(name).cb = nullptr; }
        else if (what == "pending") ret(word(timer(name).pending));
        else if (what == "remaining_in") in_range(uloop_timeout_remaining64(&timer(name)), 2);
        else if (what == "next_timeout_in") in_range(uloop_get_next_timeout(), 1);

        else if (what == "pipe" || what == "socketpair") {
            int ends[2];
            ASSERT_EQ(what == "pipe" ? pipe(ends) : socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
            fd(name).fd = ends[0];
            fd(text_of(item(op, 2))).fd = ends[1];
        }
        else if (what == "same_fd") fd(name).fd = fd(text_of(item(op, 2))).fd;
        else if (what == "fd_add") ret_int(uloop_fd_add(&fd(name), static_cast<unsigned>(num(2))));
        else if (what == "fd_delete") ret_int(uloop_fd_delete(&fd(name)));
        else if (what == "fd_state") ret("{" + state(fd(name)) + ",\"flags\":" + std::to_string(fd(name).flags) + "}");
        else if (what == "nonblock") ret(word(fcntl(fd(name).fd, F_GETFL) & O_NONBLOCK));
        else if (what == "write") {
            const std::string bytes = text_of(item(op, 2));
            ASSERT_EQ(write(fd(name).fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
        }
        else if (what == "read") {
            char bytes[256];
            const ssize_t n = read(fd(name).fd, bytes, sizeof(bytes));
            ret(n < 0 && errno == EAGAIN ? "\"EAGAIN\"" : std::to_string(n));
        }
        else if (what == "close") close(fd(name).fd);
        else if (what == "shutdown_wr") shutdown(fd(name).fd, SHUT_WR);

        else if (what == "signal_add") { signal(name).signo = num(2); ret_int(uloop_signal_add(&signal(name))); }
        else if (what == "signal_delete") ret_int(uloop_signal_delete(&signal(name)));
        else if (what == "raise") kill(getpid(), num(1));
        else if (what == "disposition") ret(disposition(num(1)));

        else if (what == "spawn_exit") ret_int(spawn(name, num(3), num(2), 0));
        else if (what == "spawn_killed") ret_int(spawn(name, num(3), 0, num(2)));
        else if (what == "process_delete") ret_int(uloop_process_delete(&process(name)));
        else if (what == "process_pending") ret(word(process(name).pending));

        else if (what == "interval_set") ret_int(uloop_interval_set(&interval(name), static_cast<unsigned>(num(2))));
        else if (what == "interval_cancel") ret_int(uloop_interval_cancel(&interval(name)));
        else if (what == "interval_expirations") ret(std::to_string(interval(name).expirations));
        else if (what == "interval_remaining_in") in_range(uloop_interval_remaining(&interval(name)), 2);
        else trace_ += "unknown call " + what + "\n";
        // clang-format on
    }

    static int add_relative(uloop_timeout &t, int ms) {
        timespec now{};
        clock_gettime(CLOCK_MONOTONIC, &now);
        const std::int64_t us = now.tv_nsec / 1000 + std::int64_t{ms} * 1000;
        t.time = {.tv_sec = now.tv_sec + static_cast<std::time_t>(us / 1000000),
                  .tv_usec = static_cast<suseconds_t>(us % 1000000)};
        return uloop_timeout_add(&t);
    }

    static std::string disposition(int signo) {
        struct sigaction act;
        sigaction(signo, nullptr, &act);
        return act.sa_handler == SIG_DFL   ? "\"default\""
               : act.sa_handler == SIG_IGN ? "\"ignore\""
                                           : "\"handler\"";
    }

    int spawn(const std::string &name, int after_ms, int code, int signo) {
        const pid_t pid = fork();
        if (pid == 0) {
            sleep_ms(after_ms);
            if (signo) kill(getpid(), signo);
            _exit(code);
        }
        process(name).pid = pid;
        return uloop_process_add(&process(name));
    }

    static inline player *self = nullptr; // callbacks get no other pointer

    const golden_case &case_;
    std::string trace_;
    std::string op_, object_;
    std::map<std::string, std::size_t> turns_;
    std::map<std::string, bool> muted_;
    objects<uloop_timeout> timers_;
    objects<uloop_fd> fds_;
    objects<uloop_process> processes_;
    objects<uloop_signal> signals_;
    objects<uloop_interval> intervals_;
};

// Plays a scenario in a process of its own; returns its trace.
std::string play(const golden_case &c) {
    int ends[2];
    if (pipe(ends) < 0) return "no pipe";
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(20); // a loop that never ends shows as a short trace
        real_clock(CLOCK_MONOTONIC, &ours);
        clock_is_ours = true;
        const std::string trace = player{c}.play();
        _exit(write(ends[1], trace.data(), trace.size()) == static_cast<ssize_t>(trace.size()) ? 0 : 1);
    }
    close(ends[1]);
    std::string trace;
    char bytes[4096];
    for (ssize_t n; (n = read(ends[0], bytes, sizeof(bytes))) > 0;)
        trace.append(bytes, static_cast<std::size_t>(n));
    close(ends[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    if (status != 0) trace += "process ended with status " + std::to_string(status) + "\n";
    return trace;
}

class uloop : public testing::TestWithParam<golden_case> {};
INSTANTIATE_TEST_SUITE_P(golden, uloop, testing::ValuesIn(golden_cases("blobmsg/uloop.jsonl")),
                         golden_name<testing::TestParamInfo<golden_case>>);

TEST_P(uloop, calls_make_this_happen_in_this_order) {
    const golden_case &c = GetParam();
#ifdef __mips__
    if (c.name == "dispositions") GTEST_SKIP() << "this processor's signals have other numbers";
#endif
    std::string expected;
    for (std::size_t i = 0; i < items(c["trace"]); ++i) expected += plain(item(c["trace"], i)) + "\n";

    std::string trace;
    for (int i = 0; i < attempts && trace != expected; ++i) trace = play(c);
    EXPECT_EQ(trace, expected);
}

} // namespace
