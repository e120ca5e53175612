#include "nl80211/supervisor.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

void notify(const char *sign) {
    const char *name = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    const std::size_t length = name ? std::strlen(name) : 0;
    if (length < 2 || length > sizeof(address.sun_path) || (name[0] != '/' && name[0] != '@')) return;
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name, length);
    if (name[0] == '@') address.sun_path[0] = '\0';
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return;
    // If a datagram is lost, the next one serves.
    (void)!sendto(fd, sign, std::strlen(sign), MSG_NOSIGNAL, reinterpret_cast<const sockaddr *>(&address),
                  static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
    close(fd);
}

} // namespace

void supervisor_started() noexcept { notify("READY=1"); }

void supervisor_alive() noexcept { notify("WATCHDOG=1"); }
