// event_sender.h - sends the simulator's station events to every listener, and remembers them for the command
// "events".
#pragma once

#include "apsim/station_fields.h"
#include "channel/event_channel.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

class event_sender {
public:
    explicit event_sender(std::uint16_t family) : channel_({family, queue_max}) {}

    // Opens the socket. Returns an empty text, or what failed.
    std::string open();

    // Looks for listeners; announces the family to those that were not there at the last look.
    void look() { channel_.look(); }

    // Announces the family `times` times, with a new number if `family` is not 0.
    void announce(std::uint16_t family, int times);

    // Sends one event, or any bytes, to every listener there is; returns how many there are.
    std::size_t send(const station_event &event);
    std::size_t send(const std::vector<std::uint8_t> &bytes);

    const event_channel &channel() const { return channel_; }

    // The newest events that were sent to at least one listener, oldest first.
    struct told {
        std::uint32_t assoc;
        mac_address mac;
        std::string ifname;
        std::int32_t radio;
        std::int32_t is_reassoc;
    };
    const std::deque<told> &events() const { return events_; }
    void forget_events() { events_.clear(); }
    std::uint64_t events_sent() const { return events_sent_; } // since the start

private:
    static constexpr std::size_t queue_max = 100'000; // messages

    event_channel channel_;
    std::deque<told> events_;
    std::uint64_t events_sent_ = 0;
};
