// netlink_channel.h - the driver's side of the station-event family, played by an ordinary process.
//
// A family cannot be registered from user space, but everything that a listener sees of one can be sent: the
// generic netlink controller's announcement to its multicast group, and unicast messages to the listeners'
// ports. Both need CAP_NET_ADMIN. The listeners are the members of that group, as /proc/net/netlink lists
// them. A listener that does not read is never waited for: messages queue here, in order, and are sent as it
// catches up.
#pragma once

#include "apsim/station_fields.h"
#include "common/loop.h"
#include "kernel/station_event.h"

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

class netlink_channel {
public:
    // `family` 0: nothing is announced before announce() gives it a number.
    explicit netlink_channel(std::uint16_t family) : family_(family), retry_([this] { send_queued(); }) {}
    ~netlink_channel();
    netlink_channel(netlink_channel &&) = delete;

    // Opens the socket. Empty, or what went wrong.
    std::string open();

    // Looks for listeners; announces the family, if it has a number, when one is there that was not at the last look.
    void look();

    // Announces the family `times` times, under a new number when `family` is not 0.
    void announce(std::uint16_t family, int times);

    // Sends one event, or any bytes, to every listener there is; returns how many there are.
    std::size_t send(const station_event &event);
    std::size_t send(const std::vector<std::uint8_t> &bytes);

    std::uint16_t family() const { return family_; }
    std::size_t queued() const { return queue_.size(); }
    std::uint64_t sent() const { return sent_; }
    std::uint64_t lost() const { return lost_; } // listener gone, or the queue is full
    std::vector<std::uint32_t> ports() const;

    // The newest events that listeners were told, oldest first; those that nobody heard are not among them.
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
    struct listener {
        std::uint32_t port;
        unsigned long inode; // tells a restarted listener from the one that had its port before
        bool operator==(const listener &) const = default;
    };
    struct message {
        std::uint32_t port; // 0: to the group
        std::vector<std::uint8_t> bytes;
    };
    std::vector<listener> find_listeners() const;
    void queue(message out);
    void send_queued();

    std::uint16_t family_;
    int fd_ = -1;
    std::uint32_t own_port_ = 0;
    std::vector<listener> listeners_;
    std::deque<message> queue_;
    std::deque<told> events_;
    std::uint64_t events_sent_ = 0;
    std::uint64_t sent_ = 0;
    std::uint64_t lost_ = 0;
    timer retry_;
};
