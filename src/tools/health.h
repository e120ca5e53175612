// health.h - the daemon's counters about itself, for `wsmd health`. No decision depends on them.
//
// Each module counts its own work here. The numbers start at 0 with the process and wrap around after 32 bits.
#pragma once

#include <cstdint>
#include <ctime>

struct sta_health_numbers {
    std::int32_t started; // monotonic seconds; 0: not started
    bool is_client;       // the device's role, as it was at start

    std::uint32_t events_received; // from the driver
    std::uint32_t events_malformed;
    std::uint32_t overruns; // how often its socket was full
    std::uint32_t resyncs;  // how often the table was compared with the driver's

    std::uint32_t driver_requests;
    std::uint32_t driver_failures;
    std::uint32_t driver_slowest; // microseconds, as all times here

    std::uint32_t reports_sent;
    std::uint32_t reports_without_socket;
    std::uint32_t reports_not_bound;
    std::uint32_t reports_not_connected; // no collector listens, or its queue is full
    std::uint32_t reports_not_written;
    std::uint32_t reports_slowest;

    std::uint32_t stations_most;    // online at the same time
    std::uint32_t stations_refused; // the table was full

    std::uint32_t neighbours_received; // messages from the kernel about neighbours
    std::uint32_t neighbours_unusable; // multicast, zero and the like
    std::uint32_t neighbours_unknown;  // not a station of the table
    std::uint32_t neighbours_foreign;  // not on an interface of the station
    std::uint32_t neighbours_malformed;
    std::uint32_t neighbours_overruns; // how often their socket was full
    std::uint32_t neighbours_dumps;    // how often the kernel was asked for all neighbours

    std::uint32_t addresses_kept; // of all stations, now
    std::uint32_t addresses_displaced;
    std::uint32_t addresses_refused; // too many in a minute

    std::uint32_t bus_lookups;
    std::uint32_t configuration_lookups;
    std::uint32_t lease_lookups;

    std::uint32_t longest_turn;
    const char *longest_turn_of; // null: no turn so far
};

extern sta_health_numbers sta_health;

// Measures from its construction to its destruction, and keeps the longest time in `slowest`.
class sta_stopwatch {
public:
    explicit sta_stopwatch(std::uint32_t &slowest) noexcept : kept(slowest), begin(now()) {}
    ~sta_stopwatch() {
        if (const std::uint32_t took = elapsed(); took > kept) kept = took;
    }
    sta_stopwatch(const sta_stopwatch &) = delete;
    sta_stopwatch &operator=(const sta_stopwatch &) = delete;

    std::uint32_t elapsed() const noexcept { return static_cast<std::uint32_t>(now() - begin); }

private:
    static std::uint64_t now() noexcept {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return static_cast<std::uint64_t>(time.tv_sec) * 1000000 +
               static_cast<std::uint64_t>(time.tv_nsec) / 1000;
    }
    std::uint32_t &kept;
    std::uint64_t begin;
};

// Times one turn of the event loop. Every callback begins with one; `what` is a constant text that names the callback. A turn
// inside another counts as a part of it.
class sta_turn {
public:
    explicit sta_turn(const char *what) noexcept : name(what) {}
    ~sta_turn() {
        const std::uint32_t took = watch.elapsed();
        if (took < sta_health.longest_turn || took == 0) return;
        sta_health.longest_turn = took;
        sta_health.longest_turn_of = name;
    }
    sta_turn(const sta_turn &) = delete;
    sta_turn &operator=(const sta_turn &) = delete;

private:
    const char *name;
    std::uint32_t kept = 0;
    sta_stopwatch watch{kept};
};
