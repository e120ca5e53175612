// hostapd_control.h - one network of hostapd, through its own control socket or, without one, through hostapd's global socket.
//
// The global socket is made by hostapd's option -g. It takes commands with "IFNAME=NAME " before them, answers
// "FAIL-NO-IFNAME-MATCH" for an unknown network, and sends the events of all networks to every attached client, with the
// same prefix.
//
// hostapd 2.10 blocks when it sends to an attached client: a client that does not read stops all of its networks. So
// everything that arrives is read at once, nothing here waits, and only the necessary events are requested. If hostapd
// dies without closing the socket, that is noticed and a new socket is opened.
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
        const char *folder; // of the socket that is named after the interface
        const char *global; // path of the global socket; must outlive this object; null: not used
    };
    hostapd_control(const handlers &told, const place &where) noexcept;
    ~hostapd_control();
    hostapd_control(hostapd_control &&) = delete;

    std::uint32_t network() const { return network_; }
    bool is_attached() const { return state_ == attached; }
    bool has_frames() const { return frames_; } // of the stations

    // Attaches, and checks whether hostapd is still there. To be called once a second, and whenever something may have changed.
    void tend() noexcept;

    // Checks now whether hostapd is there. If not, the connection is lost and `changed` is called.
    bool is_alive() noexcept;

    // Disconnects the station, with a frame to it (`told`) or without. False when hostapd cannot be asked.
    bool send_away(const mac_address &mac, bool told) noexcept;

    // Restores hostapd's settings and closes the connection.
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
    int silent_ = 0; // seconds without a message
};
