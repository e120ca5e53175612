// The run of the event loop: the order of its work, its end, its start and stop.
#include "uloop_internal.h"

#include <csignal>

bool uloop_cancelled = false;
bool uloop_handle_sigchld = true;
uloop_fd_handler uloop_fd_set_cb = nullptr;

namespace {

int run_depth = 0;
volatile std::sig_atomic_t run_signal = 0; // the signal that cancelled the run

// The shorter of two waiting times, of which a negative one has no end.
int shorter(int a, int b) {
    if (a < 0) return b;
    return b >= 0 && b < a ? b : a;
}

} // namespace

void uloop_run_cancel(int signo) {
    run_signal = signo;
    uloop_cancelled = true;
}

int uloop_init() {
    if (uloop_poll_open() < 0) return -1;
    if (uloop_signals_open() == 0) return 0;
    uloop_poll_close();
    return -1;
}

bool uloop_cancelling() { return run_depth > 0 && uloop_cancelled; }

int uloop_run_timeout(int timeout) {
    ++run_depth;
    run_signal = 0;
    uloop_cancelled = false;
    do {
        uloop_timeouts_run();
        if (uloop_signals_child_died()) uloop_processes_reap();
        if (uloop_cancelled) break;
        uloop_poll_once(shorter(timeout, uloop_get_next_timeout()));
    } while (!uloop_cancelled && timeout < 0);
    --run_depth;
    return run_signal;
}

void uloop_done() {
    uloop_signals_close();
    uloop_poll_close();
    uloop_timeouts_clear();
    uloop_processes_clear();
}
