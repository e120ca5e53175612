#include "apsim/event_sender.h"

#include <cstring>

namespace {

constexpr std::size_t events_max = 10'000; // kept for the command "events"

} // namespace

std::string event_sender::open() {
    const int error = channel_.open();
    return error == 0 ? std::string() : std::string("no netlink socket: ") + std::strerror(error);
}

void event_sender::announce(std::uint16_t family, int times) {
    channel_.look();
    channel_.announce(family, times);
}

std::size_t event_sender::send(const station_event &event) {
    channel_.look();
    const std::size_t listeners = channel_.send(event);
    if (listeners > 0) {
        ++events_sent_;
        told one{event.assoc, {}, event.ifname, event.radio_id, event.is_reassoc};
        std::memcpy(one.mac.bytes, event.mac, sizeof(event.mac));
        events_.push_back(std::move(one));
        if (events_.size() > events_max) events_.pop_front();
    }
    return listeners;
}

std::size_t event_sender::send(const std::vector<std::uint8_t> &bytes) {
    channel_.look();
    return channel_.send(bytes);
}
