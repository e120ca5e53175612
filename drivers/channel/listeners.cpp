#include "channel/listeners.h"

#include "channel/messages.h"

#include <algorithm>
#include <cstdio>
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
    std::sort(found.begin(), found.end(), [](const auto &a, const auto &b) { return a.inode < b.inode; });
    return whole;
}

bool netlink_port_is_of(std::uint32_t port, const char *process_name) noexcept {
    char path[40];
    std::snprintf(path, sizeof(path), "/proc/%u/comm", static_cast<unsigned>(port));
    std::FILE *file = std::fopen(path, "re");
    if (!file) return false;
    char name[32] = "";
    const bool read = std::fgets(name, sizeof(name), file) != nullptr;
    std::fclose(file);
    name[std::strcspn(name, "\n")] = '\0';
    return read && std::strcmp(name, process_name) == 0;
}
