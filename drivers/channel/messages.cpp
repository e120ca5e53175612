#include "channel/messages.h"

#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <string_view>

namespace {

constexpr std::uint8_t controller_version = 2;
constexpr std::uint8_t event_version = 1;
constexpr std::uint16_t event_attribute = 1;
constexpr std::size_t name_size = std::string_view(station_event_family).size() + 1;
// The kernel's macros for these count in signed numbers.
constexpr std::size_t headers = sizeof(nlmsghdr) + sizeof(genlmsghdr);
constexpr std::size_t attribute_header = sizeof(nlattr);

constexpr std::size_t aligned(std::size_t size) { return (size + 3) & ~std::size_t{3}; }
static_assert(headers + aligned(attribute_header + name_size) + attribute_header + 4 == announcement_size);
static_assert(headers + attribute_header == station_event_offset);

void put_headers(std::uint8_t *at, std::size_t size, std::uint16_t type, std::uint8_t command,
                 std::uint8_t version) {
    nlmsghdr header{};
    header.nlmsg_len = static_cast<std::uint32_t>(size);
    header.nlmsg_type = type;
    const genlmsghdr generic{command, version, 0};
    std::memcpy(at, &header, sizeof(header));
    std::memcpy(at + sizeof(nlmsghdr), &generic, sizeof(generic));
}

void put_attribute(std::uint8_t *at, std::uint16_t type, const void *data, std::size_t size) {
    const nlattr header{static_cast<std::uint16_t>(attribute_header + size), type};
    std::memcpy(at, &header, sizeof(header));
    if (data) std::memcpy(at + attribute_header, data, size);
}

} // namespace

void write_announcement(std::uint16_t family, std::span<std::uint8_t, announcement_size> bytes) noexcept {
    std::memset(bytes.data(), 0, bytes.size());
    put_headers(bytes.data(), bytes.size(), GENL_ID_CTRL, CTRL_CMD_NEWFAMILY, controller_version);
    std::uint8_t *name = bytes.data() + headers;
    put_attribute(name, CTRL_ATTR_FAMILY_NAME, station_event_family, name_size);
    put_attribute(name + aligned(attribute_header + name_size), CTRL_ATTR_FAMILY_ID, &family, sizeof(family));
}

void write_event_message(std::uint16_t family, const station_event &event,
                         std::span<std::uint8_t, event_message_size> bytes) noexcept {
    put_headers(bytes.data(), bytes.size(), family, station_event_cmd, event_version);
    put_attribute(bytes.data() + headers, event_attribute, nullptr, station_event_size);
    station_event_encode(event, bytes.subspan<station_event_offset, station_event_size>());
}
