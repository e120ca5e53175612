// loop.h - objects of the event loop whose callbacks are any function, and a test with a loop.
#ifndef TESTS_BASE_LIBUBOX_LOOP_H
#define TESTS_BASE_LIBUBOX_LOOP_H

#include <gtest/gtest.h>
#include <libubox/uloop.h>

#include <functional>
#include <string>
#include <unistd.h>
#include <utility>

// Objects of the loop whose callback is any function. Their destructors do not remove them from the loop: the
// test does that.
struct timer : uloop_timeout {
    std::function<void()> then;
    explicit timer(std::function<void()> f) : uloop_timeout{}, then(std::move(f)) {
        cb = [](uloop_timeout *t) { static_cast<timer *>(t)->then(); };
    }
};

struct watch : uloop_fd {
    std::function<void(unsigned)> then;
    watch(int descriptor, std::function<void(unsigned)> f) : uloop_fd{}, then(std::move(f)) {
        fd = descriptor;
        cb = [](uloop_fd *u, unsigned events) { static_cast<watch *>(u)->then(events); };
    }
};

struct child : uloop_process {
    std::function<void(int)> then;
    child(pid_t id, std::function<void(int)> f) : uloop_process{}, then(std::move(f)) {
        pid = id;
        cb = [](uloop_process *p, int status) { static_cast<child *>(p)->then(status); };
    }
};

struct trap : uloop_signal {
    std::function<void()> then;
    trap(int number, std::function<void()> f) : uloop_signal{}, then(std::move(f)) {
        signo = number;
        cb = [](uloop_signal *s) { static_cast<trap *>(s)->then(); };
    }
};

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
    void put() const { ASSERT_EQ(write(w, "x", 1), 1); }
    void take() const {
        char c;
        ASSERT_EQ(read(r, &c, 1), 1);
    }
};

class loop_test : public testing::Test {
protected:
    loop_test() { EXPECT_EQ(uloop_init(), 0); }
    ~loop_test() override { uloop_done(); }

    // Runs until something ends it, but not for ever.
    static void run() {
        timer late{[] {
            ADD_FAILURE() << "nothing ended the run";
            uloop_end();
        }};
        uloop_timeout_set(&late, 10000);
        uloop_run();
        uloop_timeout_cancel(&late);
    }
    // As many single rounds without waiting.
    static void rounds(int n) {
        while (n-- > 0) uloop_run_timeout(0);
    }

    std::string seen;
};

#endif
