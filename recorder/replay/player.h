// player.h - plays a recording to a daemon in real time.
//
// Time:   begins when the daemon has opened its netlink socket, and follows the daemon: a driver request at about the
//         time of its recorded counterpart sets the clock, so that messages recorded between two passes of the
//         daemon are played between the same two passes.
// Order:  as recorded. A record that is late is played at once.
#pragma once

#include "channel/event_channel.h"
#include "channel/request_server.h"
#include "common/loop.h"
#include "replay/answers.h"
#include "replay/bus.h"
#include "replay/families.h"

class player {
public:
    struct counts {
        unsigned messages = 0;   // sent
        unsigned answers = 0;    // to driver requests, as recorded
        unsigned repeated = 0;   // the previous answer again, since there was no next one
        unsigned unanswered = 0; // never recorded
    };

    // The recording must outlive the player. `family`: of the lab's driver.
    player(const recording &whole, std::uint16_t family);

    // Answers at `path`. `places_files`: also writes the recorded files, those of the start at once.
    // Returns an empty text, or what failed.
    std::string open(const std::string &path, bool places_files);

    const counts &done() const { return counts_; }

private:
    void wait_for_daemon();
    void play_due();
    void play(const recorded::record &one);
    void play(const recorded::message &one);
    void play(const recorded::receive_error &one);
    void play(const recorded::file &one);
    void play(const recorded::bus_message &one) { bus_.say(one); }
    void play(const recorded::request &) {} // made by the daemon
    void play(const recorded::end &) {}
    std::int32_t answer(const was_question &asked);
    std::uint64_t now() const; // in the recording's time

    const recording &whole_;
    recorded_answers answers_;
    replayed_families families_;
    replayed_bus bus_;
    event_channel channel_;
    request_server server_;
    timer look_;
    timer due_;
    std::size_t next_ = 0; // record
    bool places_files_ = false;
    bool has_begun_ = false;
    std::int64_t offset_ = 0; // µs from the recording's time to CLOCK_MONOTONIC
    counts counts_;
};
