// worker.h - an output's thread and the bounded queue before it.
//
// Waits: push() never; feed() while the queue is full, for input that can wait as well (files).
// Full:  push() drops the oldest message and counts it.
#pragma once

#include "collector/output.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

class worker {
public:
    using entry = std::shared_ptr<const message>;

    worker(std::string name, std::unique_ptr<output> out, std::size_t most_waiting);
    // Waits until the queue is empty, however long that takes; see finish().
    ~worker();
    worker(worker &&) = delete;

    void push(entry one);
    void feed(entry one);

    enum class ending { done, failed, stuck };
    // Waits until the queue is empty and the output has finished. `stuck`: that did not happen within `patience`; the waiting
    // messages are dropped and counted, the thread keeps running, and the program must end with _Exit.
    ending finish(std::chrono::milliseconds patience);

    output_figures figures() const;

private:
    struct shared { // survives a worker whose thread is stuck
        mutable std::mutex lock;
        std::condition_variable filled;
        std::condition_variable taken_from;
        std::deque<entry> waiting;
        std::unique_ptr<output> out;
        std::atomic<std::size_t> in_hand{0}; // taken from the queue, and not yet handled
        std::uint64_t taken = 0;
        std::uint64_t dropped = 0;
        bool ending = false;
        bool ended = false;
        bool good = true;
    };
    static void run(const std::shared_ptr<shared> &state);

    std::string name_;
    std::size_t most_waiting_;
    std::shared_ptr<shared> state_;
    std::thread thread_;
};
