#include "fw/iptables.h"

#include "tools/command.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr std::size_t command_size = 256;

bool is_countable(const char *ip) {
    return ip && std::strcmp(ip, sta_no_address) != 0 && sta_is_valid_ipaddr(ip) > 0;
}

// True when `command` prints anything on its first line.
bool prints_something(const char *command) {
    char *line = sta_execute_buf("%s", command);
    const bool something = line != nullptr;
    sta_free(line);
    return something;
}

std::uint64_t printed_number(const char *command) {
    char *line = sta_execute_buf("%s", command);
    sta_str_trim(line);
    const std::int64_t number = line ? std::strtoll(line, nullptr, 10) : 0;
    sta_free(line);
    return static_cast<std::uint64_t>(number);
}

std::uint64_t host_bytes(const char *table, const char *chain, const char *ip) {
    if (!is_countable(ip)) return 0;
    char command[command_size];
    std::snprintf(command, sizeof(command), "iptables -t %s -nvxL %s -w | grep -w %s | awk '{print $2}'",
                  table, chain, ip);
    return printed_number(command);
}

} // namespace

int sta_fw_cmd(const char *format, ...) {
    char command[command_size] = "iptables ";
    std::size_t used = std::strlen(command);
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(command + used, sizeof(command) - used, format, arguments);
    va_end(arguments);
    used = std::strlen(command);
    std::snprintf(command + used, sizeof(command) - used, " -w");

    const int status = sta_execute("%s", command);
    if (status != 0) STA_LOG("iptables command failed(%d): %s\n", status, command);
    return status;
}

int sta_fw_init() {
    sta_fw_clean_all();
    int status = sta_fw_cmd("-t mangle -N PREROUTING-outgoing");
    if (status == 0) status = sta_fw_cmd("-t mangle -A PREROUTING -j PREROUTING-outgoing");
    if (status == 0) status = sta_fw_cmd("-t mangle -N POSTROUTING-incoming");
    if (status == 0) status = sta_fw_cmd("-t mangle -A POSTROUTING -j POSTROUTING-incoming");
    if (status != 0) STA_NOTICE("iptables failed: bytes to and from the uplink are not counted\n");
    return status;
}

int sta_fw_clean_all() {
    sta_fw_cmd("-t mangle -D PREROUTING -j PREROUTING-outgoing");
    sta_fw_cmd("-t mangle -F PREROUTING-outgoing");
    sta_fw_cmd("-t mangle -X PREROUTING-outgoing");
    sta_fw_cmd("-t mangle -D POSTROUTING -j POSTROUTING-incoming");
    sta_fw_cmd("-t mangle -F POSTROUTING-incoming");
    sta_fw_cmd("-t mangle -X POSTROUTING-incoming");
    // Deliberate: flushes the whole system chain, with other programs' rules in it.
    return sta_fw_cmd("-t nat -F prerouting_lan");
}

int sta_fw_flow_host(const char *ip, const char *mac, std::uint8_t add) {
    if (!is_countable(ip) || !sta_mac_is_plain(mac)) return -1;
    int status = 0;
    if (add) {
        if (sta_fw_flow_host_exist(ip, mac)) return 0;
        status =
            sta_fw_cmd("-t mangle -A PREROUTING-outgoing -s %s -m mac --mac-source %s -j RETURN", ip, mac);
        if (status == 0) status = sta_fw_cmd("-t mangle -A POSTROUTING-incoming -d %s -j RETURN", ip);
        if (status == 0)
            status = sta_fw_cmd("-t nat -A prerouting_lan -s %s -m mac --mac-source %s -j RETURN", ip, mac);
        return status;
    }
    // Deliberate: nat before the incoming chain, unlike the order of adding.
    status = sta_fw_cmd("-t mangle -D PREROUTING-outgoing -s %s -m mac --mac-source %s -j RETURN", ip, mac);
    if (status == 0)
        status = sta_fw_cmd("-t nat -D prerouting_lan -s %s -m mac --mac-source %s -j RETURN", ip, mac);
    if (status == 0) status = sta_fw_cmd("-t mangle -D POSTROUTING-incoming -d %s -j RETURN", ip);
    return status;
}

int sta_fw_flow_host_exist(const char *ip, const char *mac) {
    if (!ip || sta_is_valid_ipaddr(ip) <= 0 || !sta_mac_is_plain(mac)) return 0;
    char command[command_size];
    std::snprintf(command, sizeof(command),
                  "iptables -t mangle -nvxL PREROUTING-outgoing -w | grep -iw %s | awk '$8==\"%s\"'", mac,
                  ip);
    if (!prints_something(command)) return 0;
    std::snprintf(command, sizeof(command),
                  "iptables -t mangle -nvxL POSTROUTING-incoming -w | grep -w %s | awk '$9==\"%s\"'", ip, ip);
    if (!prints_something(command)) return 0;
    STA_LOG("host %s %s is already added.\n", ip, mac);
    return 1;
}

std::uint64_t sta_fw_host_nat_bytes(const char *ip) { return host_bytes("nat", "prerouting_lan", ip); }

std::uint64_t sta_fw_host_up_bytes(const char *ip) { return host_bytes("mangle", "PREROUTING-outgoing", ip); }

std::uint64_t sta_fw_host_down_bytes(const char *ip) {
    return host_bytes("mangle", "POSTROUTING-incoming", ip);
}

std::uint64_t sta_fw_total_up_kbytes() {
    return printed_number(
               "iptables -t mangle -nvxL PREROUTING -w | grep PREROUTING-outgoing | awk '{print $2}'") >>
           10;
}

std::uint64_t sta_fw_total_down_kbytes() {
    return printed_number(
               "iptables -t mangle -nvxL POSTROUTING -w | grep POSTROUTING-incoming | awk '{print $2}'") >>
           10;
}
