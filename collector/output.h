// output.h - what leaves the collector: one message after the other, on the thread of the output's worker.
#pragma once

#include "collector/backlog.h"
#include "collector/stay.h"

#include <optional>
#include <string>

// What has come so far.
struct input_counters {
    std::uint64_t reports = 0;
    std::uint64_t wrong_size = 0;
    std::uint64_t impossible = 0; // values that cannot be, or more stations than may be
    std::uint64_t late = 0;       // overtaken by a later report
    std::size_t stations = 0;     // that are here
};

// A message that came and what it changed, or a change that only time has brought.
struct message {
    std::optional<received> in;
    std::optional<change> what; // absent: no report, or one that did not count
    input_counters counted{};   // this one included: who tells of both tells of one moment
};

class output {
public:
    virtual ~output() = default;

    // May wait as long as it likes: then the queue in front of it fills, and nobody else notices.
    virtual void take(const message &one) = 0;

    // What take() got is all that there is for now. Called after a batch, and every pulse().
    virtual void settle() {}

    // Milliseconds between two calls of settle() when nothing comes; 0: none.
    virtual int pulse() const { return 0; }

    // What waits behind the queue, if there is such a thing. On any thread.
    virtual std::optional<backlog> kept() const { return {}; }

    // After the last message. False: something could not be written.
    virtual bool finish() { return true; }
};

// What an output has to say of itself: shown by the metrics and by the API.
struct output_figures {
    std::string name;
    std::uint64_t taken = 0;
    std::uint64_t dropped = 0;
    std::size_t waiting = 0;
    std::optional<backlog> kept{};
};
