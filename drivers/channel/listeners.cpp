#include "channel/listeners.h"

#include "channel/messages.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <linux/netlink.h>

bool netlink_listener_in(const char *line, netlink_listener &found) noexcept {
    // sk Eth Pid Groups Rmem Wmem Dump Locks Drops Inode
    int protocol = -1;
    unsigned port = 0;
    unsigned groups = 0;
    unsigned long inode = 0;
    if (std::sscanf(line, "%*s %d %u %x %*s %*s %*s %*s %*s %lu", &protocol, &port, &groups, &inode) != 4)
        return false;
    if (protocol != NETLINK_GENERIC || !(groups & netlink_controller_group)) return false;
    found = {port, inode};
    return true;
}

namespace {

int by_inode(const void *a, const void *b) {
    const unsigned long first = static_cast<const netlink_listener *>(a)->inode;
    const unsigned long second = static_cast<const netlink_listener *>(b)->inode;
    return first < second ? -1 : first > second;
}

} // namespace

bool find_netlink_listeners(std::uint32_t own_port, array<netlink_listener> &found) noexcept {
    found.clear();
    std::FILE *table = std::fopen("/proc/net/netlink", "re");
    if (!table) return false;
    bool whole = true;
    char line[256];
    while (std::fgets(line, sizeof(line), table)) {
        netlink_listener one{};
        if (netlink_listener_in(line, one) && one.port != own_port && !found.push(one)) whole = false;
    }
    std::fclose(table);
    // std::sort would be a kilobyte and a half of code.
    if (found.size() > 1) std::qsort(found.begin(), found.size(), sizeof(netlink_listener), by_inode);
    return whole;
}

namespace {

bool is_called(const char *folder, const char *process_name) {
    char path[40];
    std::snprintf(path, sizeof(path), "/proc/%.20s/comm", folder);
    std::FILE *file = std::fopen(path, "re");
    if (!file) return false;
    char name[32] = "";
    const bool read = std::fgets(name, sizeof(name), file) != nullptr;
    std::fclose(file);
    name[std::strcspn(name, "\n")] = '\0';
    return read && std::strcmp(name, process_name) == 0;
}

// The process's number in the innermost of its process namespaces; 0 when that cannot be read.
unsigned long innermost_number(const char *folder) {
    char path[40];
    std::snprintf(path, sizeof(path), "/proc/%.20s/status", folder);
    std::FILE *file = std::fopen(path, "re");
    if (!file) return 0;
    unsigned long number = 0;
    char line[256];
    while (std::fgets(line, sizeof(line), file)) {
        if (std::strncmp(line, "NSpid:", 6) != 0) continue;
        const char *last = std::strrchr(line, '\t'); // outermost first
        if (last) number = std::strtoul(last, nullptr, 10);
        break;
    }
    std::fclose(file);
    return number;
}

} // namespace

bool netlink_port_is_of(std::uint32_t port, const char *process_name) noexcept {
    char own[16];
    std::snprintf(own, sizeof(own), "%u", static_cast<unsigned>(port));
    if (is_called(own, process_name)) return true;
    // In a jail a process has another number than here, and its port is named after that number.
    DIR *processes = opendir("/proc");
    if (!processes) return false;
    bool found = false;
    while (const dirent *one = found ? nullptr : readdir(processes))
        found = one->d_name[0] >= '1' && one->d_name[0] <= '9' && is_called(one->d_name, process_name) &&
                innermost_number(one->d_name) == port;
    closedir(processes);
    return found;
}
