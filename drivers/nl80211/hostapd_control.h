// hostapd_control.h - one network of hostapd's, by its control socket or, where it has none, by hostapd's global one.
//
// Source of the global one: hostapd's -g. It takes commands with "IFNAME=NAME " in front, answers
// "FAIL-NO-IFNAME-MATCH" for a network that it does not have, and sends the events of all its networks to whoever has
// attached, with the same words in front.
//
// hostapd 2.10 sends to those who listen to it by waiting for them: a client that does not read stops all of its
// networks. So what comes is read at once and whole, nothing is ever waited for here, and only what is needed is
// asked for. A socket that has died silently, with its hostapd, is noticed and opened anew.
#pragma once

#include "nl80211/control_line.h"

#include <cstdint>
#include <libubox/uloop.h>

class hostapd_control {
public:
    struct handlers {
        void (*heard)(void *owner, std::uint32_t network, const control_line &line);
        // Attached with or without the stations' frames; or lost.
        void (*changed)(void *owner, std::uint32_t network, bool attached, bool frames);
        void *owner;
    };
    // Which network, and where its sockets are.
    struct place {
        std::uint32_t network; // the interface's index
        const char *ifname;
        const char *folder; // of the socket that is called like the interface
        const char *global; // the global one, which outlives this; null: none is looked for
    };
    hostapd_control(const handlers &told, const place &where) noexcept;
    ~hostapd_control();
    hostapd_control(hostapd_control &&) = delete;

    std::uint32_t network() const { return network_; }
    bool is_attached() const { return state_ == attached; }

    // Once a second, and whenever something may have changed: attaches, and sees whether hostapd is still there.
    void tend() noexcept;

    // Is hostapd there at this moment? Lost, and told so, when not.
    bool is_alive() noexcept;

    // Sends the station away, with a frame (`told`) or without. False when hostapd cannot be asked.
    bool send_away(const mac_address &mac, bool told) noexcept;

    // Puts hostapd's settings back and lets go of it.
    void detach() noexcept;

private:
    enum state : std::uint8_t { absent, attaching, setting, attached };
    struct watch : uloop_fd {
        hostapd_control *owner;
    };
    bool open() noexcept;
    bool connect_to(const char *path) noexcept;
    void lose() noexcept;
    void read() noexcept;
    void take(const control_line &line) noexcept;
    bool say(const char *command) noexcept;

    handlers told_;
    std::uint32_t network_;
    char path_[108];
    char ifname_[16];
    const char *global_;
    bool by_global_ = false;
    watch watch_{};
    state state_ = absent;
    bool frames_ = false;
    int silent_ = 0; // seconds without a word
};
