// bridge.h - acts as the wireless driver towards the daemon, for an access point with mac80211 radios and hostapd.
//
// Everything happens in one event loop; it waits only for answers of the kernel. Each message is given to station_life,
// whose outputs are then carried out: asking the kernel, or sending the daemon an event.
#pragma once

#include "channel/event_channel.h"
#include "channel/request_server.h"
#include "nl80211/kernel_list.h"
#include "nl80211/memory.h"
#include "nl80211/networks.h"
#include "nl80211/station_life.h"

#include <libubox/uloop.h>

class bridge {
public:
    struct settings {
        const char *control_folder; // of hostapd's sockets
        const char *control_global; // its global one
        const char *daemon;         // name of the daemon's process
        const char *memory;         // file that is kept over a restart of the bridge; see memory.h
        radio_choice choices[networks::choices_max];
        std::size_t choice_count;
    };
    explicit bridge(const settings &how) noexcept;
    bridge(bridge &&) = delete;

    // Opens the channel and listens at `path` for requests. Returns null, or what failed; errno says why.
    const char *start(const char *path) noexcept;
    // Restores hostapd's settings.
    void stop() noexcept;

private:
    struct bridge_timer : uloop_timeout {
        bridge *owner;
    };
    // The stations of one of the daemon's radios, from the kernel's latest list.
    struct radio_list {
        std::int64_t at_ms;
        array<listed_station> stations;
    };

    // bridge.cpp
    void heard(const kernel_message &message) noexcept;
    void heard_from_hostapd(std::uint32_t network, const control_line &line) noexcept;
    void hostapd_changed(std::uint32_t network, bool attached, bool frames) noexcept;
    void look_at_interfaces() noexcept;
    void list_stations() noexcept;
    void list_soon() noexcept;
    void tick() noexcept;
    void settle() noexcept;
    void carry_out(const life_output &what) noexcept;
    void ask_kernel(const station &about) noexcept;
    void tell(const life_output &what) noexcept;
    void daemon_came(const netlink_listener &daemon) noexcept;
    void tell_all(std::uint32_t port) noexcept;
    void recall() noexcept;
    void remember() noexcept;
    access_interface *refresh(std::uint32_t network) noexcept;

    // requests.cpp
    std::int32_t answer(was_question &question) noexcept;
    std::int32_t answer_count(was_question &question) noexcept;
    std::int32_t answer_table(was_question &question) noexcept;
    std::int32_t answer_removal(const was_question &question) noexcept;
    const array<listed_station> *stations_of(const char *ifname) noexcept;

    settings settings_;
    networks networks_;
    station_life life_;
    kernel kernel_;
    event_channel channel_;
    request_server requests_;
    bridge_timer tick_{};
    bridge_timer life_timer_{};
    radio_list lists_[2] = {};
    unsigned ticks_ = 0;
    bool settling_ = false;
    bool must_list_ = true;
    bool told_no_memory_ = false;
    bool changed_ = false; // since the memory file was written
    std::int64_t remembered_at_ = 0;
    netlink_listener daemons_[bridge_memory::daemons_max] = {}; // that have received events, newest first
    std::size_t daemon_count_ = 0;
    std::uint64_t told_lost_ = 0;
};
