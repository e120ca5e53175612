// pipeline.h - the way of a message: it is counted, given to the sessions, and passed to every output.
//
// Waits: take() never; feed() while an output's queue is full, for files, which can wait.
// Thread: only the thread that reads the input may call it, except figures().
#pragma once

#include "collector/sessions.h"
#include "collector/worker.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class pipeline {
public:
    explicit pipeline(session_rules rules) : sessions_(rules) {}

    void add(std::string name, std::unique_ptr<output> out, std::size_t most_waiting);
    // A stay that went on when the store was last written.
    void restore(stay known, moment when);
    // Sets the least number of the next stay.
    void begin_with(std::int64_t next_stay) { sessions_.begin_with(next_stay); }

    void take(received in);
    void feed(received in);
    // Ends stays whose grace or silence is over. Returns the milliseconds until the next one is due, -1 when none is.
    int tick(moment when);

    void set_rules(session_rules rules) { sessions_.set_rules(rules); }

    // Ends all outputs, the last added first. `stuck`: the program must end by _Exit. `dropped` gets a line for each output
    // that has lost messages.
    worker::ending finish(std::chrono::milliseconds patience, std::vector<std::string> &dropped);

    const input_counters &counters() const { return counted_; }
    std::vector<output_figures> figures() const;

private:
    void pass(received in, bool wait);
    void hand_on(message one, bool wait);

    sessions sessions_;
    std::vector<std::unique_ptr<worker>> workers_;
    std::vector<change> changes_;
    input_counters counted_;
    moment fed_ = 0; // the clock for reports from files
};
