// Timers: a list in the order of their deadlines.
#include "uloop_internal.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <ctime>

namespace {

constexpr std::int64_t us_per_s = 1000000;
constexpr std::int64_t us_per_ms = 1000;

LIST_HEAD(timeouts);

uloop_timeout *first_timeout() {
    return list_empty(&timeouts) ? nullptr : list_first_entry(&timeouts, uloop_timeout, list);
}

timeval now() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return {.tv_sec = ts.tv_sec, .tv_usec = static_cast<suseconds_t>(ts.tv_nsec / 1000)};
}

// a - b in microseconds; the limit if the program has set a deadline so far away.
std::int64_t us_between(const timeval &a, const timeval &b) {
    std::int64_t us;
    if (__builtin_sub_overflow(std::int64_t{a.tv_sec}, std::int64_t{b.tv_sec}, &us) ||
        __builtin_mul_overflow(us, us_per_s, &us) ||
        __builtin_add_overflow(us, std::int64_t{a.tv_usec}, &us) ||
        __builtin_sub_overflow(us, std::int64_t{b.tv_usec}, &us))
        return a.tv_sec < b.tv_sec ? INT64_MIN : INT64_MAX;
    return us;
}

// Whole milliseconds from b to a, cut towards zero. Deadlines are ordered, and due, by this measure.
std::int64_t ms_between(const timeval &a, const timeval &b) { return us_between(a, b) / us_per_ms; }

// The entry before which a new deadline goes: the first one that is later by a millisecond or more. The search goes from the end: no
// entry is later by that much than one after it, so it stops at the first entry that is not later at all. Equal delays
// set one after another cost one comparison each.
list_head *place_for(const timeval &time) {
    list_head *place = &timeouts;
    uloop_timeout *t;
    list_for_each_entry_reverse(t, &timeouts, list) {
        const std::int64_t later = us_between(t->time, time);
        if (later <= 0) break;
        if (later >= us_per_ms) place = &t->list;
    }
    return place;
}

} // namespace

int uloop_timeout_add(uloop_timeout *timeout) {
    if (timeout->pending) return -1;
    list_add_tail(&timeout->list, place_for(timeout->time));
    timeout->pending = true;
    return 0;
}

int uloop_timeout_set(uloop_timeout *timeout, int msecs) {
    if (timeout->pending) uloop_timeout_cancel(timeout);
    timeval time = now();
    time.tv_sec += msecs / 1000;
    time.tv_usec += msecs % 1000 * 1000;
    if (time.tv_usec < 0) {
        --time.tv_sec;
        time.tv_usec += us_per_s;
    } else if (time.tv_usec >= us_per_s) {
        ++time.tv_sec;
        time.tv_usec -= us_per_s;
    }
    timeout->time = time;
    return uloop_timeout_add(timeout);
}

int uloop_timeout_cancel(uloop_timeout *timeout) {
    if (!timeout->pending) return -1;
    list_del(&timeout->list);
    timeout->pending = false;
    return 0;
}

std::int64_t uloop_timeout_remaining64(uloop_timeout *timeout) {
    return timeout->pending ? ms_between(timeout->time, now()) : -1;
}

int uloop_timeout_remaining(uloop_timeout *timeout) {
    return static_cast<int>(std::clamp<std::int64_t>(uloop_timeout_remaining64(timeout), INT_MIN, INT_MAX));
}

int uloop_get_next_timeout() {
    const uloop_timeout *first = first_timeout();
    if (!first) return -1;
    return static_cast<int>(std::clamp<std::int64_t>(ms_between(first->time, now()), 0, INT_MAX));
}

void uloop_timeouts_run() {
    if (list_empty(&timeouts)) return;
    const timeval at = now();
    uloop_timeout *t;
    while ((t = first_timeout()) && ms_between(t->time, at) <= 0) {
        uloop_timeout_cancel(t);
        if (t->cb) t->cb(t);
    }
}

void uloop_timeouts_clear() {
    while (uloop_timeout *t = first_timeout()) uloop_timeout_cancel(t);
}
