// health.h - what the daemon counts of itself: for `wsmd health`, and for nothing that it decides.
//
// Each room counts what it does; only these numbers are shared. They begin with the process and go round after 32 bits.
#pragma once

#include <cstdint>
#include <ctime>

struct sta_health_numbers {
    std::int32_t started; // monotonic seconds; 0: not yet
    bool is_client;       // the device's role, as it was at start

    std::uint32_t events_received; // of the driver
    std::uint32_t events_malformed;
    std::uint32_t overruns; // times that its socket was full
    std::uint32_t resyncs;  // times that the table was compared with the driver's

    std::uint32_t driver_requests;
    std::uint32_t driver_failures;
    std::uint32_t driver_slowest; // microseconds, as all of these

    std::uint32_t reports_sent;
    std::uint32_t reports_without_socket;
    std::uint32_t reports_not_bound;
    std::uint32_t reports_not_connected; // nobody listens, or its queue is full
    std::uint32_t reports_not_written;
    std::uint32_t reports_slowest;

    std::uint32_t stations_most;    // on line at once
    std::uint32_t stations_refused; // the table was full

    std::uint32_t neighbours_received; // messages of the kernel about neighbours
    std::uint32_t neighbours_unusable; // multicast, zero and the like
    std::uint32_t neighbours_unknown;  // nobody's of the table
    std::uint32_t neighbours_foreign;  // not where the station is
    std::uint32_t neighbours_malformed;
    std::uint32_t neighbours_overruns; // times that their socket was full
    std::uint32_t neighbours_dumps;    // times that the kernel was asked for all of them

    std::uint32_t addresses_kept; // of all stations, now
    std::uint32_t addresses_displaced;
    std::uint32_t addresses_refused; // too many in a minute

    std::uint32_t bus_lookups;
    std::uint32_t configuration_lookups;
    std::uint32_t lease_lookups;

    std::uint32_t longest_turn;
    const char *longest_turn_of; // null: none yet
};

extern sta_health_numbers sta_health;

// Measures from its making to its end, and keeps the longest.
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

// One turn of the event loop: at the top of every callback, with a constant text that says what it is. One inside of another
// is a part of it.
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
