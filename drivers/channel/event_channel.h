// event_channel.h - the driver's side of the station-event family, in an ordinary process.
//
// User space cannot register a family, but it can send a listener everything that it would receive from one: the
// generic netlink controller's announcement, and events. Both need CAP_NET_ADMIN. The announcement is sent to the
// listeners' own ports, not to the controller's group, so that no other program learns of a family that the
// kernel does not have. A listener that does not read holds nothing up: its messages are queued here, in order,
// and sent when it reads again.
#pragma once

#include "channel/array.h"
#include "channel/listeners.h"
#include "channel/messages.h"

#include <cstddef>
#include <cstdint>
#include <libubox/uloop.h>
#include <span>

class event_channel {
public:
    struct settings {
        std::uint16_t family;  // 0: nothing is announced before announce() gives it a number
        std::size_t queue_max; // messages
        // True for the port of a listener that is to have the family; null: every one is.
        bool (*is_wanted)(void *owner, std::uint32_t port) = nullptr;
        // Called for a new listener, after the announcement was sent to it.
        void (*came)(void *owner, const netlink_listener &listener) = nullptr;
        void *owner = nullptr;
        // Reads the kernel's table of listeners.
        bool (*find)(std::uint32_t own_port,
                     array<netlink_listener> &found) noexcept = find_netlink_listeners;
    };

    explicit event_channel(const settings &how) noexcept;
    ~event_channel();
    event_channel(event_channel &&) = delete;

    // Opens the socket. 0, or an error number.
    int open() noexcept;

    // Looks for listeners; announces the family, if it has a number, to those that were not there at the last look.
    // A listener is gone when three readings of the table, one right after the other, do not have it.
    void look() noexcept;

    // Announces the family `times` times, with a new number if `family` is not 0.
    void announce(std::uint16_t family, int times) noexcept;

    // Sends one event, or any bytes, to every listener that the last look found; returns how many there are.
    std::size_t send(const station_event &event) noexcept;
    std::size_t send(std::span<const std::uint8_t> bytes) noexcept;
    // To one listener.
    void send_to(std::uint32_t port, const station_event &event) noexcept;

    std::uint16_t family() const { return settings_.family; }
    std::size_t queued() const { return queued_; }
    std::uint64_t sent() const { return sent_; }
    std::uint64_t lost() const { return lost_; } // listener gone, no memory, or the queue is full
    std::size_t listeners() const;               // the wanted ones
    // The port of one of them, oldest first.
    std::uint32_t port(std::size_t index) const;

private:
    struct known {
        netlink_listener socket;
        bool wanted;
    };
    struct message;
    bool find_listeners(array<netlink_listener> &found) const noexcept;
    void queue(std::uint32_t port, std::span<const std::uint8_t> bytes) noexcept;
    bool send_now(std::uint32_t port, std::span<const std::uint8_t> bytes) noexcept;
    void send_queued() noexcept;
    void announce_to(std::uint32_t port) noexcept;

    struct retry_timer : uloop_timeout {
        event_channel *owner;
    };

    settings settings_;
    int fd_ = -1;
    std::uint32_t own_port_ = 0;
    array<known> listeners_; // also the unwanted ones, so that is_wanted is called once for each
    message *first_ = nullptr;
    message *last_ = nullptr;
    std::size_t queued_ = 0;
    std::uint64_t sent_ = 0;
    std::uint64_t lost_ = 0;
    int retry_interval_;
    retry_timer retry_{};
};
