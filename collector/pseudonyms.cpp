#include "collector/pseudonyms.h"

#include "collector/sessions.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <stdexcept>

pseudonyms::pseudonyms(const std::string &key_file) {
    std::ifstream file(key_file, std::ios::binary);
    key_.assign(std::istreambuf_iterator<char>(file), {});
    if (!file || key_.size() < 16 || key_.size() > 4096)
        throw std::runtime_error(key_file + ": a key of 16 to 4096 bytes is needed");
}

std::string pseudonyms::of(const std::string &mac) const {
    unsigned char hash[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    if (!HMAC(EVP_sha256(), key_.data(), static_cast<int>(key_.size()),
              reinterpret_cast<const unsigned char *>(mac.data()), mac.size(), hash, &length))
        throw std::runtime_error("no HMAC-SHA-256");
    char text[18];
    // A MAC of one station, administered locally.
    (void)std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", (hash[0] & 0xfcu) | 2u, hash[1],
                        hash[2], hash[3], hash[4], hash[5]);
    return text;
}

void pseudonyms::apply(received &in) const {
    if (!in.report) return;
    station_report &report = *in.report;
    const std::string mac = normal_mac(report.mac);
    if (mac.empty()) return;
    const std::string other = of(mac);
    std::memset(report.mac, 0, sizeof(report.mac));
    other.copy(report.mac, sizeof(report.mac) - 1);
    auto *first = reinterpret_cast<std::uint8_t *>(in.bytes.data());
    station_report_encode(report, std::span<std::uint8_t, station_report_size>(first, station_report_size));
}
