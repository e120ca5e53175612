// uloop_internal.h - functions that the parts of the event loop share.
#ifndef BASE_LIBUBOX_ULOOP_INTERNAL_H
#define BASE_LIBUBOX_ULOOP_INTERNAL_H

#include <libubox/uloop.h>

// Descriptors.
int uloop_poll_open(); // 0 or -1
void uloop_poll_close();
// Delivers one event, for which it waits at most timeout ms (negative: without end).
void uloop_poll_once(int timeout);

// Timers.
void uloop_timeouts_run();
void uloop_timeouts_clear();

// Processes.
void uloop_processes_reap();
void uloop_processes_clear();

// Signals.
int uloop_signals_open(); // 0 or -1; needs an open poll
void uloop_signals_close();
bool uloop_signals_child_died();  // since the last call
void uloop_run_cancel(int signo); // async-signal-safe

#endif
