// loop.h - the event loop's timers and descriptors as C++ objects, which leave the loop when they are
// destroyed. uloop_init() must be called first. An object may be destroyed inside its own callback.
#pragma once

#include "base/cxx/ubox.h"

#include <functional>
#include <utility>

class timer : uloop_timeout {
public:
    explicit timer(std::function<void()> due) : uloop_timeout{}, due_(std::move(due)) {
        cb = [](uloop_timeout *self) {
            const auto call = static_cast<timer *>(self)->due_; // a copy: the callback may destroy the timer
            call();
        };
    }
    ~timer() { stop(); }
    timer(timer &&) = delete;

    // Fires once after `milliseconds`; a running timer is restarted.
    void start(int milliseconds) { uloop_timeout_set(this, milliseconds); }
    void stop() { uloop_timeout_cancel(this); }
    bool running() const { return pending; }

private:
    std::function<void()> due_;
};

// Watches a descriptor, which stays the caller's. It is switched to non-blocking.
class fd_watch : uloop_fd {
public:
    fd_watch(int descriptor, std::function<void()> ready) : uloop_fd{}, ready_(std::move(ready)) {
        fd = descriptor;
        cb = [](uloop_fd *self, unsigned) {
            const auto call = static_cast<fd_watch *>(self)->ready_;
            call();
        };
    }
    ~fd_watch() { uloop_fd_delete(this); }
    fd_watch(fd_watch &&) = delete;

    // ULOOP_READ, ULOOP_WRITE or both; 0 stops watching.
    bool watch(unsigned events) { return uloop_fd_add(this, events) == 0; }

private:
    std::function<void()> ready_;
};
