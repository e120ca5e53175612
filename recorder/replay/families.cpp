#include "replay/families.h"

#include "protocol/station_event.h"

#include <cstring>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <string_view>

namespace {

constexpr std::size_t type_offset = offsetof(nlmsghdr, nlmsg_type);
constexpr std::size_t attributes = NLMSG_HDRLEN + GENL_HDRLEN;

// Where the station family's number is in an announcement ("name, then identifier"), 0 when it is none.
std::size_t announced_number(recorded::bytes message) {
    const std::string_view name(station_event_family, std::strlen(station_event_family) + 1);
    const std::size_t second = attributes + (sizeof(nlattr) + name.size() + 3) / 4 * 4;
    const std::size_t number = second + sizeof(nlattr);
    nlattr header{};
    if (message.size() < number + sizeof(std::uint16_t) || message[NLMSG_HDRLEN] != CTRL_CMD_NEWFAMILY)
        return 0;
    std::memcpy(&header, message.data() + attributes, sizeof(header));
    if (header.nla_len != sizeof(nlattr) + name.size()) return 0;
    if (std::memcmp(message.data() + attributes + sizeof(header), name.data(), name.size()) != 0) return 0;
    std::memcpy(&header, message.data() + second, sizeof(header));
    return header.nla_type == CTRL_ATTR_FAMILY_ID ? number : 0;
}

} // namespace

std::optional<std::vector<std::uint8_t>> replayed_families::translate(recorded::bytes message) {
    if (message.empty()) return {};
    std::vector<std::uint8_t> out(message.begin(), message.end());
    if (message.size() < NLMSG_HDRLEN) return out;
    std::uint16_t type = 0;
    std::memcpy(&type, message.data() + type_offset, sizeof(type));
    if (type == NLMSG_ERROR) return {};
    const auto renumber = [this, &out](std::size_t offset) {
        std::uint16_t number = 0;
        std::memcpy(&number, out.data() + offset, sizeof(number));
        number = number_of(number);
        std::memcpy(out.data() + offset, &number, sizeof(number));
    };
    if (type > GENL_ID_CTRL)
        renumber(type_offset);
    else if (const std::size_t offset = type == GENL_ID_CTRL ? announced_number(message) : 0; offset != 0)
        renumber(offset);
    return out;
}

std::uint16_t replayed_families::number_of(std::uint16_t recorded) {
    const auto [at, is_new] = numbers_.try_emplace(recorded, next_);
    if (is_new) ++next_;
    return at->second;
}
