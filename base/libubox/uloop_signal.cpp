// Signals: handlers only leave a mark and wake the loop through a pipe; callbacks run from the loop.
#include "uloop_internal.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

LIST_HEAD(watched); // in the order of their numbers

// Marks set by the handlers, by signal number.
volatile std::sig_atomic_t seen[NSIG];
volatile std::sig_atomic_t child_died;
volatile std::sig_atomic_t wake_fd = -1; // the pipe's end for writing

void wake() {
    const int err = errno; // the interrupted code must not see a change
    const char byte = 0;
    // A full pipe wakes the loop as well, and without a loop there is nothing to wake.
    if (write(wake_fd, &byte, 1) < 0) errno = err;
}

void mark(int signo) {
    seen[signo] = 1;
    if (signo == SIGCHLD) child_died = 1;
    wake();
}

void cancel(int signo) {
    uloop_run_cancel(signo);
    wake();
}

void link(uloop_signal *s) {
    list_head *place = &watched;
    uloop_signal *other;
    list_for_each_entry_reverse(other, &watched, list) {
        if (other->signo <= s->signo) break;
        place = &other->list;
    }
    list_add_tail(&s->list, place);
}

void report(int signo) {
    // On a list of their own, from which a callback can still delete them; each is back in its place when it
    // is called.
    LIST_HEAD(called);
    uloop_signal *s;
    uloop_signal *next;
    list_for_each_entry_safe (s, next, &watched, list) {
        if (s->signo == signo) list_move_tail(&s->list, &called);
    }
    while (!list_empty(&called)) {
        s = list_first_entry(&called, uloop_signal, list);
        list_del(&s->list);
        link(s);
        if (s->cb) s->cb(s);
    }
}

void report_all(uloop_fd *pipe_end, unsigned int) {
    char bytes[64];
    while (read(pipe_end->fd, bytes, sizeof(bytes)) > 0) {
    }
    for (int signo = 1; signo < NSIG; ++signo) {
        if (!seen[signo]) continue;
        seen[signo] = 0;
        report(signo);
    }
}

uloop_fd wake_end = {
    .cb = report_all, .fd = -1, .eof = false, .error = false, .registered = false, .flags = 0};

using handler = void (*)(int);

handler disposition(int signo) {
    struct sigaction act;
    if (sigaction(signo, nullptr, &act) < 0 || (act.sa_flags & SA_SIGINFO)) return SIG_ERR;
    return act.sa_handler;
}

void install(int signo, handler h) {
    struct sigaction act = {};
    act.sa_handler = h;
    sigaction(signo, &act, nullptr);
}

void change(int signo, handler from, handler to) {
    if (disposition(signo) == from) install(signo, to);
}

} // namespace

int uloop_signals_open() {
    if (wake_fd >= 0) return 0;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) < 0) return -1;
    wake_end.fd = ends[0];
    if (uloop_fd_add(&wake_end, ULOOP_READ) < 0) {
        close(ends[0]);
        close(ends[1]);
        return -1;
    }
    wake_fd = ends[1];

    change(SIGINT, SIG_DFL, cancel);
    change(SIGTERM, SIG_DFL, cancel);
    if (uloop_handle_sigchld) change(SIGCHLD, SIG_DFL, mark);
    change(SIGPIPE, SIG_DFL, SIG_IGN);
    return 0;
}

void uloop_signals_close() {
    if (wake_fd < 0) return;
    change(SIGINT, cancel, SIG_DFL);
    change(SIGTERM, cancel, SIG_DFL);
    if (uloop_handle_sigchld) change(SIGCHLD, mark, SIG_DFL);

    const int fd = wake_fd;
    wake_fd = -1;
    close(fd);
    uloop_fd_delete(&wake_end);
    close(wake_end.fd);
    wake_end.fd = -1;
}

bool uloop_signals_child_died() {
    if (!child_died) return false;
    child_died = 0;
    return uloop_handle_sigchld;
}

int uloop_signal_add(uloop_signal *s) {
    if (s->pending) return -1;
    link(s);
    s->pending = true;
    s->orig = {};
    sigaction(s->signo, nullptr, &s->orig);
    if (s->orig.sa_handler != mark) install(s->signo, mark);
    return 0;
}

int uloop_signal_delete(uloop_signal *s) {
    if (!s->pending) return -1;
    list_del(&s->list);
    s->pending = false;
    if (s->orig.sa_handler != mark) sigaction(s->signo, &s->orig, nullptr);
    return 0;
}
