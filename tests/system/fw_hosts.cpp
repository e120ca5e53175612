// fw_hosts.cpp - the daemon's firewall functions on a command line: `fw-hosts FUNCTION [ARGUMENT...]` prints
// the result.
#include "fw/iptables.h"

#include <cstdio>
#include <string_view>

int main(int argc, char **argv) {
    const std::string_view function = argc > 1 ? argv[1] : "";
    const char *const ip = argc > 2 ? argv[2] : nullptr;
    const char *const mac = argc > 3 ? argv[3] : nullptr;
    if (function == "add")
        std::printf("%d\n", sta_fw_flow_host(ip, mac, 1));
    else if (function == "delete")
        std::printf("%d\n", sta_fw_flow_host(ip, mac, 0));
    else if (function == "exist")
        std::printf("%d\n", sta_fw_flow_host_exist(ip, mac));
    else if (function == "bytes") // up, down, nat
        std::printf("%llu %llu %llu\n", static_cast<unsigned long long>(sta_fw_host_up_bytes(ip)),
                    static_cast<unsigned long long>(sta_fw_host_down_bytes(ip)),
                    static_cast<unsigned long long>(sta_fw_host_nat_bytes(ip)));
    else if (function == "total") // KiB up, down
        std::printf("%llu %llu\n", static_cast<unsigned long long>(sta_fw_total_up_kbytes()),
                    static_cast<unsigned long long>(sta_fw_total_down_kbytes()));
    else
        return 2;
    return 0;
}
