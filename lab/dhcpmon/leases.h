// leases.h - reading the clients from the DHCP server's lease file.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct lease {
    std::string mac;
    std::string ip;
    std::string name;
    bool operator==(const lease &) const = default;
};

// Lines "expiry mac address name client-id"; a line with fewer than four words is ignored. Empty when there is
// no file.
std::vector<lease> read_leases(const std::string &path);

// {"count":N,"list":[{"mac":"..","ip":"..","hostName":".."},...]}
std::string leases_json(const std::vector<lease> &leases);
