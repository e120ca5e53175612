// output.h - an output of the collector: gets one message after the other, on its worker's thread.
#pragma once

#include "collector/backlog.h"
#include "collector/stay.h"

#include <optional>
#include <string>

// Counted so far.
struct input_counters {
    std::uint64_t reports = 0;
    std::uint64_t wrong_size = 0;
    std::uint64_t impossible = 0; // impossible values, or too many stations
    std::uint64_t late = 0;       // overtaken by a later report
    std::size_t stations = 0;     // here now
};

// A message that came and what it changed, or a change caused by the passing of time.
struct message {
    std::optional<received> in;
    std::optional<change> what; // absent: not a report, or one that changed nothing
    input_counters counted{};   // including this message, so that both belong to one moment
};

class output {
public:
    virtual ~output() = default;

    // May block for any time: only the queue before this output fills then.
    virtual void take(const message &one) = 0;

    // No more messages are waiting now. Called after a batch, and every pulse().
    virtual void settle() {}

    // Milliseconds between two calls of settle() when nothing comes; 0: none.
    virtual int pulse() const { return 0; }

    // Messages that the output itself keeps, if it does. Called from any thread.
    virtual std::optional<backlog> kept() const { return {}; }

    // Called after the last message. False: something could not be written.
    virtual bool finish() { return true; }
};

// The counters of an output, shown by the metrics and the API.
struct output_figures {
    std::string name;
    std::uint64_t taken = 0;
    std::uint64_t dropped = 0;
    std::size_t waiting = 0;
    std::optional<backlog> kept{};
};
