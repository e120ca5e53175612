#include "nl80211/memory.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct header {
    char magic[8];
    std::uint32_t station_size; // another size means a build with another layout
    std::uint32_t daemon_count;
    std::uint32_t station_count;
    netlink_listener daemons[bridge_memory::daemons_max];
};
constexpr char magic[8] = {'w', 's', 'm', '-', 'b', 'r', '1', '\n'};
constexpr std::uint32_t stations_max = 4096;

bool read_all(int fd, void *data, std::size_t size) {
    return read(fd, data, size) == static_cast<ssize_t>(size); // a file in memory is read completely
}

bool read_memory(int fd, bridge_memory &memory) {
    header head{};
    if (!read_all(fd, &head, sizeof(head)) || std::memcmp(head.magic, magic, sizeof(magic)) != 0 ||
        head.station_size != sizeof(station) || head.daemon_count > bridge_memory::daemons_max ||
        head.station_count > stations_max)
        return false;
    for (std::uint32_t i = 0; i < head.station_count; ++i) {
        station one{};
        if (!read_all(fd, &one, sizeof(one)) || !memory.stations.push(one)) return false;
    }
    std::memcpy(memory.daemons, head.daemons, sizeof(head.daemons));
    memory.daemon_count = head.daemon_count;
    return true;
}

} // namespace

bool memory_load(const char *path, bridge_memory &memory) noexcept {
    memory.daemon_count = 0;
    memory.stations.clear();
    const int fd = open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return false;
    const bool read = read_memory(fd, memory);
    close(fd);
    if (!read) memory.stations.clear();
    return read;
}

bool memory_save(const char *path, const bridge_memory &memory) noexcept {
    char fresh[256];
    if (std::snprintf(fresh, sizeof(fresh), "%s.new", path) >= static_cast<int>(sizeof(fresh))) return false;
    const int fd = open(fresh, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) return false;
    header head{};
    std::memcpy(head.magic, magic, sizeof(magic));
    head.station_size = sizeof(station);
    head.daemon_count = static_cast<std::uint32_t>(memory.daemon_count);
    head.station_count = static_cast<std::uint32_t>(memory.stations.size());
    std::memcpy(head.daemons, memory.daemons, sizeof(head.daemons));
    const auto size = static_cast<ssize_t>(memory.stations.size() * sizeof(station));
    const bool written = write(fd, &head, sizeof(head)) == static_cast<ssize_t>(sizeof(head)) &&
                         write(fd, memory.stations.begin(), static_cast<std::size_t>(size)) == size;
    close(fd);
    if (written && rename(fresh, path) == 0) return true;
    unlink(fresh);
    return false;
}
