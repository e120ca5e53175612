// A thousand timers, set and expired; one descriptor event. Each compared with the necessary system
// calls.
#include <benchmark/benchmark.h>
#include <libubox/uloop.h>

#include <ctime>
#include <sys/epoll.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr int timers = 1000;

// Floor of setting timers: reads the clock once for each.
void read_clock_1000_times(benchmark::State &state) {
    for (auto _ : state) {
        for (int i = 0; i < timers; ++i) {
            timespec now;
            clock_gettime(CLOCK_MONOTONIC, &now);
            benchmark::DoNotOptimize(now);
        }
    }
    state.SetItemsProcessed(timers * state.iterations());
}
BENCHMARK(read_clock_1000_times);

// `delay(i)` in ms; all in the past, so that one round runs them.
template <class Delay> void set_and_expire(benchmark::State &state, Delay delay) {
    static int fired;
    std::vector<uloop_timeout> t(timers);
    for (uloop_timeout &each : t) each.cb = [](uloop_timeout *) { ++fired; };
    fired = 0;
    for (auto _ : state) {
        for (int i = 0; i < timers; ++i) uloop_timeout_set(&t[static_cast<std::size_t>(i)], delay(i));
        uloop_run_timeout(0);
    }
    if (fired != timers * state.iterations()) state.SkipWithError("timers were lost");
    state.SetItemsProcessed(timers * state.iterations());
}

void set_and_expire_1000_equal_timers(benchmark::State &state) {
    set_and_expire(state, [](int) { return -10000; });
}
BENCHMARK(set_and_expire_1000_equal_timers);

void set_and_expire_1000_ascending_timers(benchmark::State &state) {
    set_and_expire(state, [](int i) { return i - 10000; });
}
BENCHMARK(set_and_expire_1000_ascending_timers);

void set_and_expire_1000_scattered_timers(benchmark::State &state) {
    set_and_expire(state, [](int i) { return i * 7919 % 5000 - 10000; });
}
BENCHMARK(set_and_expire_1000_scattered_timers);

struct pipe_pair {
    int r = -1, w = -1;
    pipe_pair() {
        int ends[2];
        if (pipe(ends) == 0) r = ends[0], w = ends[1];
    }
    ~pipe_pair() {
        close(r);
        close(w);
    }
};

void touch(int r, int w) {
    char c = 0;
    if (w >= 0 && write(w, &c, 1) != 1) std::abort();
    if (r >= 0 && read(r, &c, 1) != 1) std::abort();
}

// Floor of an event: write, wait, read.
void bare_epoll_event(benchmark::State &state) {
    const pipe_pair p;
    const int fd = epoll_create1(EPOLL_CLOEXEC);
    epoll_event event = {};
    event.events = EPOLLIN;
    epoll_ctl(fd, EPOLL_CTL_ADD, p.r, &event);
    for (auto _ : state) {
        touch(-1, p.w);
        epoll_event ready[10];
        if (epoll_wait(fd, ready, 10, 0) != 1) state.SkipWithError("no event");
        touch(p.r, -1);
    }
    close(fd);
}
BENCHMARK(bare_epoll_event);

void loop_event(benchmark::State &state) {
    const pipe_pair p;
    uloop_init();
    uloop_fd u = {};
    u.fd = p.r;
    u.cb = [](uloop_fd *f, unsigned) { touch(f->fd, -1); };
    uloop_fd_add(&u, ULOOP_READ);
    for (auto _ : state) {
        touch(-1, p.w);
        uloop_run_timeout(0);
    }
    uloop_fd_delete(&u);
    uloop_done();
}
BENCHMARK(loop_event);

} // namespace
