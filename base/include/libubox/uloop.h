// uloop.h - event loop: descriptors, timers, child processes, signals and intervals of one thread.
//
// One loop per process. Every object belongs to the caller, is zeroed before its first use, and lives while
// it is registered; the loop allocates nothing. A callback may delete and free its own object or any other.
// One round of the loop: all timers that are due; then dead children; then one descriptor callback, for which
// it waits if nothing is due before. So timers that become due run between any two descriptor callbacks.
#ifndef LIBUBOX_ULOOP_H
#define LIBUBOX_ULOOP_H

#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/time.h>
#include <sys/types.h>

#include "list.h"

#if defined(__linux__)
#define USE_EPOLL
#else
#error "this event loop needs epoll"
#endif

BASE_DECLS_BEGIN

struct uloop_fd;
struct uloop_timeout;
struct uloop_process;
struct uloop_interval;
struct uloop_signal;

typedef void (*uloop_fd_handler)(struct uloop_fd *u, unsigned int events);
typedef void (*uloop_timeout_handler)(struct uloop_timeout *t);
typedef void (*uloop_process_handler)(struct uloop_process *c, int ret);
typedef void (*uloop_interval_handler)(struct uloop_interval *t);
typedef void (*uloop_signal_handler)(struct uloop_signal *s);

#define ULOOP_READ (1 << 0)
#define ULOOP_WRITE (1 << 1)
#define ULOOP_EDGE_TRIGGER (1 << 2)
#define ULOOP_BLOCKING (1 << 3) // leave the descriptor's blocking mode alone
#define ULOOP_EVENT_MASK (ULOOP_READ | ULOOP_WRITE)
#define ULOOP_EVENT_BUFFERED (1 << 4) // internal
#define ULOOP_ERROR_CB (1 << 6)       // stay registered on an error or hang-up

struct uloop_fd {
    uloop_fd_handler cb; // events without a callback are dropped
    int fd;
    bool eof;   // the peer sends no more
    bool error; // error or hang-up
    bool registered;
    uint8_t flags;
};

struct uloop_timeout {
    struct list_head list;
    bool pending;
    uloop_timeout_handler cb;
    struct timeval time; // deadline on CLOCK_MONOTONIC
};

struct uloop_process {
    struct list_head list;
    bool pending;
    uloop_process_handler cb;
    pid_t pid;
};

struct uloop_interval {
    uloop_interval_handler cb; // must be set
    uint64_t expirations;      // periods that have passed; never reset here
    union {
        struct uloop_fd ufd;
        struct {
            int64_t fired;
            unsigned int msecs;
        } time;
    } priv;
};

struct uloop_signal {
    struct list_head list;
    struct sigaction orig; // what the signal did before
    bool pending;
    uloop_signal_handler cb;
    int signo;
};

extern bool uloop_cancelled;      // ends the run; cleared when a run starts
extern bool uloop_handle_sigchld; // set false before uloop_init() to leave SIGCHLD and children alone
// Called for each registration with (object, flags), and for each removal with (object, 0); may be NULL.
extern uloop_fd_handler uloop_fd_set_cb;

// Watches fd->fd, or changes what is watched. Without ULOOP_READ and ULOOP_WRITE: uloop_fd_delete(). A
// newly registered descriptor becomes non-blocking, unless ULOOP_BLOCKING is given. 0, or -1 with
// epoll's errno (EEXIST: another object has the descriptor; EPERM: a regular file; EBADF: no such descriptor,
// or no loop) and the object unchanged.
//
// The callback gets the ULOOP_READ and ULOOP_WRITE bits that are ready, which may be none. `eof` is set when
// the peer has shut down its side. On an error or hang-up `error` is set and the object is removed before
// the callback runs; the callback may add it again.
int uloop_fd_add(struct uloop_fd *sock, unsigned int flags);

// Stops watching, and drops events that have been fetched but not delivered. 0, also when it was not
// registered, or -1 when the descriptor was closed before; the object is removed in any case.
int uloop_fd_delete(struct uloop_fd *sock);

// Starts a timer with the deadline timeout->time. 0, or -1 if it is pending. Timers with the same deadline
// fire in the order in which they were started; a timer may fire up to 1 ms early.
int uloop_timeout_add(struct uloop_timeout *timeout);

// Starts or restarts a timer, msecs from now (in the past if negative). 0.
int uloop_timeout_set(struct uloop_timeout *timeout, int msecs);

// 0, or -1 if it is not pending.
int uloop_timeout_cancel(struct uloop_timeout *timeout);

// Milliseconds to the deadline, negative if it has passed; -1 if the timer is not pending.
int64_t uloop_timeout_remaining64(struct uloop_timeout *timeout);
int uloop_timeout_remaining(struct uloop_timeout *timeout)
    __attribute__((deprecated("cut to int, use uloop_timeout_remaining64")));

// Calls back with the raw wait status when child process->pid has died. 0, or -1 if pending. The loop reaps
// every child of the process, watched or not.
int uloop_process_add(struct uloop_process *p);

// 0, or -1 if it is not pending.
int uloop_process_delete(struct uloop_process *p);

// Calls back from the loop, not from signal context, after signal s->signo; several before the callback count
// as one. For SIGINT and SIGTERM this replaces the cancelling of the loop. 0, or -1 if pending.
int uloop_signal_add(struct uloop_signal *s);

// Restores the signal's earlier disposition. 0, or -1 if it is not pending.
int uloop_signal_delete(struct uloop_signal *s);

// Calls back every msecs milliseconds, first after msecs; a running one is restarted. With 0 ms it stays
// set but does not fire. 0, or -1 with errno.
int uloop_interval_set(struct uloop_interval *timer, unsigned int msecs);

// 0, or -1 if it is not set.
int uloop_interval_cancel(struct uloop_interval *timer);

// Milliseconds to the next callback; -1 if it is not set.
int64_t uloop_interval_remaining(struct uloop_interval *timer);

// Is the current run about to end?
bool uloop_cancelling(void);

// Ends the current run.
static inline void uloop_end(void) { uloop_cancelled = true; }

// Milliseconds to the nearest deadline: -1 without a timer, 0 if one is due, INT_MAX at most.
int uloop_get_next_timeout(void);

// Opens the loop; again: does nothing. SIGINT and SIGTERM end a run, SIGCHLD reaps, SIGPIPE is ignored, each
// only where the signal had its default disposition. 0, or -1 with errno.
int uloop_init(void);

// Negative: rounds until the run is cancelled. Otherwise one round, which waits `timeout` ms at most. Returns
// the number of the signal (SIGINT, SIGTERM) that ended the run, else 0. May be nested; a cancelled inner run
// ends the outer ones too, unless uloop_cancelled is set back.
int uloop_run_timeout(int timeout);
static inline int uloop_run(void) { return uloop_run_timeout(-1); }

// Closes the loop: signals get their earlier dispositions, timers and processes are removed. Descriptors stay
// marked as registered and must be deleted before they can be added to another loop.
void uloop_done(void);

BASE_DECLS_END

#endif
