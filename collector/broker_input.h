// broker_input.h - reports that a broker keeps for us until they are stored.
//
// Each message gets a ticket, and is acknowledged to the broker after committed() was called with it. If the program or the
// connection ends before that, the broker delivers the message again, so it may come twice. At most `prefetch` messages are
// unacknowledged; then the broker waits.
// A message that is not a report is set aside at the broker with the reason, and counted; the others go on.
// Errors: a lost connection is made again, after a delay that grows to half a minute; each reason is printed once.
// Thread: committed() may be called from any thread, everything else from one.
#pragma once

#include "collector/subscribe_options.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>

class broker_input {
public:
    // Receives a message and its topic in MQTT's form. Returns an empty text, or why it is not a report.
    using handler =
        std::function<std::string(std::string_view topic, std::string_view payload, std::uint64_t ticket)>;

    broker_input(const char *name, subscribe_options chosen, handler take);
    virtual ~broker_input();
    broker_input(broker_input &&) = delete;

    // Waits at most so many milliseconds until there are messages, `also` is readable or something was committed;
    // receives the messages and acknowledges the stored ones.
    virtual void serve(int milliseconds, int also) = 0;
    // Acknowledges what is stored, and disconnects.
    virtual void finish() = 0;

    // Everything up to this ticket is stored.
    void committed(std::uint64_t ticket);

protected:
    using clock = std::chrono::steady_clock;

    // Passes the message on. Returns an empty text, or why it must be set aside; that is then counted and printed.
    std::string hand_on(std::string_view topic, std::string_view payload);
    std::uint64_t stored() const { return stored_; }
    // Waits until `fd` (-1: none) is readable (`read`) or writable (`write`), or for the other events of serve().
    void wait(int milliseconds, int fd, bool read, bool write, int also);
    // Prints a text, once between two connections.
    void complain(const std::string &text);
    // The connection is made, or is not: sets the time of the next attempt.
    void connected();
    void not_connected();
    // Milliseconds until the next attempt, 0: now.
    int pause() const;
    void say_set_aside() const;

    const subscribe_options chosen_;
    std::uint64_t ticket_ = 0; // of the last message passed on
private:
    void say(const std::string &text) const;

    const char *name_;
    handler take_;
    std::atomic<std::uint64_t> stored_{0};
    int told_ = -1; // readable after committed()
    std::uint64_t set_aside_ = 0;
    std::set<std::string> said_;
    std::chrono::milliseconds delay_{};
    clock::time_point next_attempt_{};
};
