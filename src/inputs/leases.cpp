#include "inputs/leases.h"

#include "model/record.h"
#include "tools/command.h"
#include "tools/file.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <cstdio>
#include <unistd.h>

namespace {

constexpr const char *lease_file = "/tmp/dhcp.leases";
constexpr const char *snoop_file = "/tmp/snoop_ip_bak";

// What follows the MAC and one separator in `line`, or null when the line does not hold it or ends there.
const char *after_mac(const char *line, const char *mac) {
    const char *at = std::strstr(line, mac);
    if (!at) return nullptr;
    at += std::strlen(mac);
    return *at == '\0' ? nullptr : at + 1;
}

// Length of the word at `at`: up to white space or the end, at most `most`.
std::size_t word_length(const char *at, std::size_t most) {
    return std::min(std::strcspn(at, " \r\n\t"), most);
}

} // namespace

int sta_get_ipaddr_by_dhcp_mac(char *out, const char *mac) {
    if (!out || !mac || *mac == '\0') return -1;
    const sta_file leases{std::fopen(lease_file, "re")};
    if (!leases) {
        STA_LOG("%s open fail.\n", lease_file);
        return -1;
    }
    // Longer lines come in pieces, each searched by itself.
    char piece[64];
    while (std::fgets(piece, sizeof(piece), leases.get())) {
        const char *address = after_mac(piece, mac);
        const std::size_t length = address ? word_length(address, 15) : 0;
        if (length == 0) continue;
        std::memset(out, 0, 17);
        std::memcpy(out, address, length);
        STA_LOG("%s ipaddr found!\n", out);
        return 0;
    }
    return -1;
}

char *sta_get_name_by_dhcp_mac(const char *mac) {
    if (!mac || *mac == '\0') {
        STA_ERROR("sta_tools", "mac is NULL!\n");
        return nullptr;
    }
    const sta_file leases{std::fopen(lease_file, "re")};
    if (!leases) {
        STA_LOG("%s open fail.\n", lease_file);
        return nullptr;
    }
    char line[1024];
    while (std::fgets(line, sizeof(line), leases.get())) {
        if (!std::strstr(line, mac)) continue;
        const char *address = after_mac(line, mac);
        const char *blank = address ? std::strchr(address, ' ') : nullptr;
        if (!blank) {
            STA_LOG("data error!\n");
            return nullptr;
        }
        const char *rest = blank + 1;
        char name[65] = "";
        std::memcpy(name, rest, std::min(std::strcspn(rest, " \r\n"), sizeof(name) - 1));
        STA_LOG("hostname found.[%s]------->[%s]\n", rest, name);
        return sta_strdup(name);
    }
    return nullptr;
}

int sta_get_ipaddr_by_snoop_mac(const char *mac, char *out) {
    if (!mac || *mac == '\0' || !out) return -1;
    if (access(snoop_file, F_OK) != 0) {
        STA_LOG("%s file no exist!\n", snoop_file);
        return -1;
    }
    if (!sta_mac_is_plain(mac)) return -1; // it becomes part of a command
    char command[100];
    std::snprintf(command, sizeof(command), "cat %s | grep -iw %s | awk '{print $3}'", snoop_file, mac);
    char *line = sta_execute_buf("%s", command);
    sta_str_trim(line);
    const bool found = line && *line != '\0';
    if (found) {
        std::strncpy(out, line, 16); // zeros behind a shorter one
        out[15] = '\0';
    }
    sta_free(line);
    return found ? 0 : -1;
}

char *sta_get_default_name() {
    char *name = static_cast<char *>(sta_malloc(sta_name_size));
    if (name) name[0] = '-';
    return name;
}

void sta_snoop_foreach_lan(void (*visit)(const char *mac, const char *ip)) {
    if (!visit) return;
    const sta_file snoop{std::fopen(snoop_file, "re")};
    if (!snoop) return;
    char line[255];
    while (std::fgets(line, sizeof(line), snoop.get())) {
        char first[255], mac[255], ip[255], interface[255];
        if (std::sscanf(line, "%254s %254s %254s %254s", first, mac, ip, interface) < 4) continue;
        if (std::strcmp(interface, "br-lan") == 0) visit(mac, ip);
    }
}
