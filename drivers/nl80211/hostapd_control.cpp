#include "nl80211/hostapd_control.h"

#include "nl80211/log.h"

#include <cerrno>
#include <cstddef>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

constexpr int ping_after = 5;  // seconds without a message
constexpr int lost_after = 15; // no answer: hostapd is stopped, or this is another program's socket
constexpr std::size_t line_max = 2 * control_frame_max + 256;

} // namespace

hostapd_control::hostapd_control(const handlers &told, const place &where) noexcept
    : told_(told), network_(where.network), global_(where.global) {
    std::snprintf(path_, sizeof(path_), "%s/%s", where.folder, where.ifname);
    std::snprintf(ifname_, sizeof(ifname_), "%s", where.ifname);
    watch_.fd = -1;
    watch_.owner = this;
    watch_.cb = [](uloop_fd *self, unsigned) { static_cast<watch *>(self)->owner->read(); };
}

hostapd_control::~hostapd_control() {
    if (watch_.fd < 0) return;
    uloop_fd_delete(&watch_);
    close(watch_.fd);
}

bool hostapd_control::open() noexcept {
    by_global_ = false;
    if (connect_to(path_)) return true;
    by_global_ = global_ && connect_to(global_);
    return by_global_;
}

bool hostapd_control::connect_to(const char *path) noexcept {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::size_t length = std::strlen(path);
    if (length >= sizeof(address.sun_path)) return false;
    std::memcpy(address.sun_path, path, length);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return false;
    // The kernel chooses an abstract name: hostapd can answer whatever user it runs as. Since the socket is connected, no other
    // process can.
    const sockaddr_un own{AF_UNIX, {}};
    watch_.fd = fd;
    if (bind(fd, reinterpret_cast<const sockaddr *>(&own), sizeof(sa_family_t)) == 0 &&
        connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0 &&
        uloop_fd_add(&watch_, ULOOP_READ | ULOOP_ERROR_CB) == 0)
        return true;
    close(fd);
    watch_.fd = -1;
    return false;
}

void hostapd_control::lose() noexcept {
    if (watch_.fd < 0) return;
    uloop_fd_delete(&watch_);
    close(watch_.fd);
    watch_.fd = -1;
    const bool was_attached = state_ == attached;
    state_ = absent;
    frames_ = false;
    if (was_attached) told_.changed(told_.owner, network_, false, false);
}

bool hostapd_control::say(const char *command) noexcept {
    if (watch_.fd < 0) return false;
    // ATTACH and DETACH concern the whole socket, all other commands one network.
    const bool to_network =
        by_global_ && std::strcmp(command, "ATTACH") != 0 && std::strcmp(command, "DETACH") != 0;
    char words[96];
    std::snprintf(words, sizeof(words), "%s%s%s%s", to_network ? "IFNAME=" : "", to_network ? ifname_ : "",
                  to_network ? " " : "", command);
    const std::size_t size = std::strlen(words);
    if (send(watch_.fd, words, size, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(size)) return true;
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) lose(); // hostapd is gone
    return false;
}

void hostapd_control::tend() noexcept {
    if (state_ == absent) {
        if (!open()) return;
        silent_ = 0;
        state_ = attaching;
        say("ATTACH");
        return;
    }
    ++silent_;
    if (silent_ >= lost_after)
        lose();
    else if (silent_ >= ping_after)
        say("PING");
}

bool hostapd_control::is_alive() noexcept { return say("PING"); }

void hostapd_control::read() noexcept {
    char line[line_max];
    std::uint8_t room[control_frame_max];
    while (watch_.fd >= 0) {
        const ssize_t got = recv(watch_.fd, line, sizeof(line), MSG_DONTWAIT);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            if (errno != EAGAIN && errno != EWOULDBLOCK) lose();
            return;
        }
        silent_ = 0;
        take(control_line_decode({line, static_cast<std::size_t>(got)}, room));
    }
}

void hostapd_control::take(const control_line &line) noexcept {
    switch (line.kind) {
    case control_line::no_network: lose(); return;
    case control_line::ok:
    case control_line::fail:
        if (state_ == attaching) {
            if (line.kind == control_line::fail) {
                lose();
                return;
            }
            state_ = setting;
            say("SET notify_mgmt_frames 1");
        } else if (state_ == setting) {
            state_ = attached;
            frames_ = line.kind == control_line::ok;
            told_.changed(told_.owner, network_, true, frames_);
        }
        return;
    case control_line::pong:
    case control_line::other: return;
    default:
        if (!by_global_ || line.ifname == ifname_) told_.heard(told_.owner, network_, line);
        return;
    }
}

bool hostapd_control::send_away(const mac_address &mac, bool told) noexcept {
    char command[64];
    std::snprintf(command, sizeof(command), "DEAUTHENTICATE %s%s", mac_text(mac).text, told ? "" : " tx=0");
    return say(command);
}

void hostapd_control::detach() noexcept {
    if (frames_) say("SET notify_mgmt_frames 0");
    if (state_ != absent) say("DETACH");
    lose();
}
