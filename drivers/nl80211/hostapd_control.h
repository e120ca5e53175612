// hostapd_control.h - the control socket of one network of hostapd's.
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
    // `network` is the interface's index. The socket is `folder`/`ifname`.
    hostapd_control(const handlers &told, std::uint32_t network, const char *folder,
                    const char *ifname) noexcept;
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
    void lose() noexcept;
    void read() noexcept;
    void take(const control_line &line) noexcept;
    bool say(const char *command) noexcept;

    handlers told_;
    std::uint32_t network_;
    char path_[108];
    watch watch_{};
    state state_ = absent;
    bool frames_ = false;
    int silent_ = 0; // seconds without a word
};
