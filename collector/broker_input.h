// broker_input.h - reports that a broker keeps for us until they are stored.
//
// Each message gets a ticket, and is acknowledged to the broker after committed() was told of it. Whatever ends us or the
// connection before: the broker hands the message out again, so it may come twice. At most `prefetch` messages are out; then
// the broker waits.
// What is no report is set aside at the broker with the reason, and counted; it does not stop the others.
// Errors: a connection that is lost is made again, after a delay that grows to half a minute; each reason is said once.
// Thread: committed() is for any, the rest for one.
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
    // Takes a message with its topic in MQTT's form. Empty, or why it is no report.
    using handler =
        std::function<std::string(std::string_view topic, std::string_view payload, std::uint64_t ticket)>;

    broker_input(const char *name, subscribe_options chosen, handler take);
    virtual ~broker_input();
    broker_input(broker_input &&) = delete;

    // Waits at most so many milliseconds until there are messages, `also` can be read or something was committed; takes
    // the messages and acknowledges what is stored.
    virtual void serve(int milliseconds, int also) = 0;
    // Acknowledges what is stored, and takes leave of the broker.
    virtual void finish() = 0;

    // Everything up to this ticket is stored.
    void committed(std::uint64_t ticket);

protected:
    using clock = std::chrono::steady_clock;

    // Hands the message on. Empty, or why it must be set aside, which it counts and says.
    std::string hand_on(std::string_view topic, std::string_view payload);
    std::uint64_t stored() const { return stored_; }
    // Waits until `fd` (-1: none) can be read, or written when `write`, or the two that serve() names.
    void wait(int milliseconds, int fd, bool read, bool write, int also);
    // Says it, once between two connections.
    void complain(const std::string &text);
    // The connection is there, or is not: when the next attempt may be made.
    void connected();
    void not_connected();
    // Milliseconds until then, 0: now.
    int pause() const;
    void say_set_aside() const;

    const subscribe_options chosen_;
    std::uint64_t ticket_ = 0; // of the last message that was handed on
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
