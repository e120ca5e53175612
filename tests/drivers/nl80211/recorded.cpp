#include "nl80211/recorded.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <linux/netlink.h>

namespace {

constexpr mac_address recorded_client{{2, 0, 0, 0, 2, 0}};
constexpr std::size_t datagram_max = 1 << 15;

} // namespace

octets recorded(const std::string &name) {
    std::ifstream file(WSMD_GOLDEN_DIR "/nl80211/" + name + ".hex");
    octets found;
    for (std::string word; file >> word;)
        found.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
    if (!found.empty()) return found;
    std::fprintf(stderr, "no recorded message %s\n", name.c_str());
    std::exit(EXIT_FAILURE);
}

octets with_mac(octets message, const mac_address &mac) {
    const auto *old = recorded_client.bytes;
    for (auto at = message.begin();;) {
        at = std::search(at, message.end(), old, old + sizeof(recorded_client.bytes));
        if (at == message.end()) return message;
        at = std::copy(std::begin(mac.bytes), std::end(mac.bytes), at);
    }
}

mac_address mac_number(std::uint32_t number) {
    mac_address mac{{2, 0xb0}};
    for (int i = 0; i < 4; ++i) mac.bytes[2 + i] = static_cast<std::uint8_t>(number >> (24 - 8 * i));
    return mac;
}

octets netlink(const octets &content, std::uint16_t type) {
    nlmsghdr header{};
    header.nlmsg_len = static_cast<std::uint32_t>(sizeof(header) + content.size());
    header.nlmsg_type = type;
    octets whole(NLMSG_ALIGN(header.nlmsg_len));
    std::memcpy(whole.data(), &header, sizeof(header));
    std::copy(content.begin(), content.end(), whole.begin() + sizeof(header));
    return whole;
}

std::vector<octets> station_dump(std::uint32_t stations) {
    const octets one = recorded("station_listed");
    std::vector<octets> datagrams(1);
    for (std::uint32_t i = 0; i <= stations; ++i) {
        const octets next =
            i < stations ? netlink(with_mac(one, mac_number(i))) : netlink(octets(sizeof(int)), NLMSG_DONE);
        if (datagrams.back().size() + next.size() > datagram_max) datagrams.emplace_back();
        datagrams.back().insert(datagrams.back().end(), next.begin(), next.end());
    }
    return datagrams;
}
