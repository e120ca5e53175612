// lease_file.h - the DHCP server's lease file: one line per client, "expiry mac address name client-id".
// It is written under a temporary name and renamed, so that a reader never sees a part of it.
#pragma once

#include <cstdint>
#include <map>
#include <string>

class lease_file {
public:
    explicit lease_file(std::string path) : path_(std::move(path)) {}

    // Gives `mac` this address and name, in place of earlier ones; nothing is written yet.
    void set(const std::string &mac, const std::string &ip, const std::string &name) {
        leases_[mac] = {ip, name};
    }
    void remove(const std::string &mac) { leases_.erase(mac); }
    // Writes the file. Returns an empty text, or what failed.
    std::string write() const;

private:
    struct lease {
        std::string ip;
        std::string name;
    };
    std::string path_;
    std::map<std::string, lease> leases_; // by MAC
};
