#include "outputs/collector.h"

#include "outputs/report.h"
#include "tools/descriptor.h"
#include "tools/health.h"
#include "tools/log.h"
#include "tools/stop.h"
#include "tools/text.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>

namespace {

constexpr const char *client_path = "/tmp/sta_client_domain";
constexpr const char *server_path = "/tmp/sta_server_domain";

struct unix_address {
    sockaddr_un address{};
    socklen_t size; // without the path's terminator, since the collector compares the address's length
    explicit unix_address(const char *path)
        : size(static_cast<socklen_t>(sizeof(address.sun_family) + std::strlen(path))) {
        address.sun_family = AF_UNIX;
        sta_put_text(address.sun_path, path);
    }
    const sockaddr *get() const { return reinterpret_cast<const sockaddr *>(&address); }
};

// While the collector's queue is full, the daemon waits here. A stop ends the wait, and after a stop there is no wait. A blocked
// signal interrupts nothing, so it is looked for ten times a second. The socket does not block at first: usually the queue has
// room, and nothing has to be set up for a wait.
int connect_until_stopped(int fd, const unix_address &server) {
    int result = connect(fd, server.get(), server.size);
    if (result == 0 || errno != EAGAIN) return result;
    constexpr timeval look{.tv_sec = 0, .tv_usec = 100'000};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &look, sizeof(look));
    fcntl(fd, F_SETFL, 0);
    while (result < 0 && !sta_stop_pending()) {
        result = connect(fd, server.get(), server.size);
        if (result < 0 && errno != EAGAIN && errno != EINTR) return result;
    }
    return result;
}

unsigned lost = 0; // reports lost since the last one that was connected

void came_through() {
    if (lost > 0) STA_NOTICE("the collector is back, %u reports were lost\n", lost);
    lost = 0;
}

} // namespace

int sta_domain_socket_send(const sta_info_t *sta) {
    STA_LOG("sta domain socket send.\n");
    if (!sta) {
        STA_LOG("sta is NULL.\n");
        return -1;
    }
    const sta_stopwatch watch{sta_health.reports_slowest};
    const descriptor report{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    if (report.get() < 0) {
        STA_LOG("domain socket error.\n");
        ++sta_health.reports_without_socket;
        return -1;
    }
    const unix_address client{client_path};
    unlink(client_path);
    if (bind(report.get(), client.get(), client.size) < 0) {
        STA_LOG("domain bind error.\n");
        ++sta_health.reports_not_bound;
        return -1;
    }
    const unix_address server{server_path};
    if (connect_until_stopped(report.get(), server) < 0) {
        STA_LOG("domain connect error.\n");
        ++sta_health.reports_not_connected;
        if (lost++ == 0) STA_NOTICE("no collector at %s: reports are lost\n", server_path);
        return -1;
    }
    came_through();
    std::uint8_t image[station_report_size];
    station_report_encode(sta_report_of(*sta), image);
    // Not tried again. It does not block: a new socket has room for one report.
    const bool written = write(report.get(), image, sizeof(image)) == static_cast<ssize_t>(sizeof(image));
    ++(written ? sta_health.reports_sent : sta_health.reports_not_written);
    return 0;
}
