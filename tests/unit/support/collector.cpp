#include "support/collector.h"

#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {
constexpr const char *path = "/tmp/sta_server_domain";
}

collector::collector(int room) : listener(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string(path).copy(address.sun_path, sizeof(address.sun_path) - 1);
    if (bind(listener, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        listen(listener, room - 1) != 0)
        throw std::runtime_error("the collector cannot listen");
}

collector::~collector() {
    close(listener);
    unlink(path);
}

std::vector<collected_report> collector::reports() {
    std::vector<collected_report> all;
    for (;;) {
        sockaddr_un peer{};
        socklen_t size = sizeof(peer);
        const int report = accept4(listener, reinterpret_cast<sockaddr *>(&peer), &size, SOCK_CLOEXEC);
        if (report < 0) return all;
        collected_report one;
        one.from = std::string(peer.sun_path, size - offsetof(sockaddr_un, sun_path)).c_str();
        std::uint8_t piece[4096];
        for (ssize_t got; (got = read(report, piece, sizeof(piece))) > 0;)
            one.image.insert(one.image.end(), piece, piece + got);
        close(report);
        all.push_back(std::move(one));
    }
}

std::vector<int> collector::kinds() {
    std::vector<int> all;
    for (const collected_report &one : reports())
        all.push_back(one.image.size() < 298 ? -1 : one.image[296] | one.image[297] << 8);
    return all;
}
