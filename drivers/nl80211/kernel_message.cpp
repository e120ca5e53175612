#include "nl80211/kernel_message.h"

#include <algorithm>
#include <cstddef>
#include <linux/genetlink.h>
#include <linux/nl80211.h>
#include <netlink/attr.h>

namespace {

bool copy(const nlattr *from, void *to, std::size_t size) {
    if (!from || static_cast<std::size_t>(nla_len(from)) < size) return false;
    std::memcpy(to, nla_data(from), size);
    return true;
}

// The attributes of one level, by number. Truncated and malformed ones are ignored; of two with the same number the
// last counts.
template <int Max> class attributes {
public:
    explicit attributes(std::span<const std::uint8_t> bytes) {
        auto *at = reinterpret_cast<nlattr *>(const_cast<std::uint8_t *>(bytes.data()));
        nla_parse(found_, Max, at, static_cast<int>(bytes.size()), nullptr);
    }
    bool has(int type) const { return found_[type] != nullptr; }
    std::span<const std::uint8_t> bytes(int type) const {
        const nlattr *one = found_[type];
        if (!one) return {};
        return {static_cast<const std::uint8_t *>(nla_data(one)), static_cast<std::size_t>(nla_len(one))};
    }
    // Reads the number. False when the attribute is missing or too short; `number` is then unchanged.
    template <class Number> bool read(int type, Number &number) const {
        return copy(found_[type], &number, sizeof(number));
    }
    bool read(int type, mac_address &mac) const { return copy(found_[type], mac.bytes, sizeof(mac.bytes)); }

private:
    nlattr *found_[std::size_t{Max} + 1] = {};
};

std::uint32_t rate_in(std::span<const std::uint8_t> bytes) {
    const attributes<NL80211_RATE_INFO_MAX> rate(bytes);
    std::uint32_t value = 0;
    if (rate.read(NL80211_RATE_INFO_BITRATE32, value)) return value;
    std::uint16_t low = 0;
    rate.read(NL80211_RATE_INFO_BITRATE, low);
    return low;
}

void read_bytes(const attributes<NL80211_STA_INFO_MAX> &info, int wide, int narrow, std::uint64_t &value) {
    std::uint32_t low = 0;
    if (!info.read(wide, value) && info.read(narrow, low)) value = low;
}

void read_figures(std::span<const std::uint8_t> bytes, station_figures &figures) {
    const attributes<NL80211_STA_INFO_MAX> info(bytes);
    info.read(NL80211_STA_INFO_INACTIVE_TIME, figures.inactive_ms);
    info.read(NL80211_STA_INFO_ASSOC_AT_BOOTTIME, figures.associated_at);
    read_bytes(info, NL80211_STA_INFO_RX_BYTES64, NL80211_STA_INFO_RX_BYTES, figures.rx_bytes);
    read_bytes(info, NL80211_STA_INFO_TX_BYTES64, NL80211_STA_INFO_TX_BYTES, figures.tx_bytes);
    info.read(NL80211_STA_INFO_TX_PACKETS, figures.tx_packets);
    info.read(NL80211_STA_INFO_TX_FAILED, figures.tx_failed);
    info.read(NL80211_STA_INFO_SIGNAL, figures.signal);
    figures.rx_rate = rate_in(info.bytes(NL80211_STA_INFO_RX_BITRATE));
    figures.tx_rate = rate_in(info.bytes(NL80211_STA_INFO_TX_BITRATE));
    // The attribute's number is the number of the antenna chain.
    const attributes<3> chains(info.bytes(NL80211_STA_INFO_CHAIN_SIGNAL));
    for (int i = 0; i < 4; ++i) chains.read(i, figures.chain[i]);
    nl80211_sta_flag_update flags{};
    if (info.read(NL80211_STA_INFO_STA_FLAGS, flags)) {
        const auto is_set = [set = flags.mask & flags.set](unsigned flag) { return (set & 1U << flag) != 0; };
        figures.authorized = is_set(NL80211_STA_FLAG_AUTHORIZED);
        figures.associated = is_set(NL80211_STA_FLAG_ASSOCIATED);
    }
}

void read_interface(const attributes<NL80211_ATTR_MAX> &all, kernel_message &message) {
    all.read(NL80211_ATTR_WIPHY, message.wiphy);
    all.read(NL80211_ATTR_IFTYPE, message.type);
    all.read(NL80211_ATTR_WIPHY_FREQ, message.frequency);
    all.read(NL80211_ATTR_CHANNEL_WIDTH, message.width);
    const std::span<const std::uint8_t> name = all.bytes(NL80211_ATTR_IFNAME);
    std::memcpy(message.ifname, name.data(), std::min(name.size(), sizeof(message.ifname) - 1));
    const std::span<const std::uint8_t> ssid = all.bytes(NL80211_ATTR_SSID);
    message.ssid_size = static_cast<std::uint8_t>(std::min(ssid.size(), sizeof(message.ssid)));
    std::memcpy(message.ssid, ssid.data(), message.ssid_size);
}

void read_survey(std::span<const std::uint8_t> bytes, kernel_message &message) {
    const attributes<NL80211_SURVEY_INFO_MAX> info(bytes);
    info.read(NL80211_SURVEY_INFO_FREQUENCY, message.frequency);
    info.read(NL80211_SURVEY_INFO_NOISE, message.noise);
    info.read(NL80211_SURVEY_INFO_TIME, message.time_ms);
    info.read(NL80211_SURVEY_INFO_TIME_BUSY, message.busy_ms);
    message.in_use = info.has(NL80211_SURVEY_INFO_IN_USE);
}

kernel_message::what kind_of(std::uint8_t command, const attributes<NL80211_ATTR_MAX> &all) {
    switch (command) {
    // An answer has figures; the event of a new station has an empty list of them.
    case NL80211_CMD_NEW_STATION:
        return all.bytes(NL80211_ATTR_STA_INFO).empty() ? kernel_message::station_added
                                                        : kernel_message::station;
    case NL80211_CMD_DEL_STATION: return kernel_message::station_removed;
    case NL80211_CMD_FRAME_TX_STATUS: return kernel_message::frame_sent;
    case NL80211_CMD_CONTROL_PORT_FRAME_TX_STATUS: return kernel_message::key_frame_sent;
    case NL80211_CMD_NEW_INTERFACE:
    case NL80211_CMD_SET_INTERFACE: return kernel_message::interface;
    case NL80211_CMD_DEL_INTERFACE: return kernel_message::interface_removed;
    case NL80211_CMD_NEW_SURVEY_RESULTS: return kernel_message::survey;
    default: return kernel_message::other;
    }
}

} // namespace

bool kernel_message_decode(std::span<const std::uint8_t> bytes, kernel_message &message) noexcept {
    message = {};
    if (bytes.size() < sizeof(genlmsghdr)) return false;
    const attributes<NL80211_ATTR_MAX> all(bytes.subspan(sizeof(genlmsghdr)));
    message.kind = kind_of(bytes[0], all);
    const bool has_interface = all.read(NL80211_ATTR_IFINDEX, message.ifindex);
    all.read(NL80211_ATTR_GENERATION, message.generation);
    message.has_mac = all.read(NL80211_ATTR_MAC, message.mac);
    switch (message.kind) {
    case kernel_message::station_added:
    case kernel_message::station_removed:
    case kernel_message::station:
        read_figures(all.bytes(NL80211_ATTR_STA_INFO), message.figures);
        return has_interface && message.has_mac && !message.mac.is_multicast();
    case kernel_message::frame_sent:
    case kernel_message::key_frame_sent:
        message.frame = all.bytes(NL80211_ATTR_FRAME);
        message.acknowledged = all.has(NL80211_ATTR_ACK);
        return has_interface;
    case kernel_message::interface: read_interface(all, message); return has_interface;
    case kernel_message::interface_removed: return has_interface;
    case kernel_message::survey:
        read_survey(all.bytes(NL80211_ATTR_SURVEY_INFO), message);
        return has_interface;
    case kernel_message::other: break;
    }
    return true;
}

int channel_of(std::uint32_t frequency) noexcept {
    const auto mhz = static_cast<int>(frequency);
    if (mhz < 2412 || mhz > 7125) return 0;
    if (mhz == 2484) return 14;
    if (mhz < 2484) return (mhz - 2407) / 5;
    if (mhz < 5000) return 0;
    if (mhz == 5935) return 2;
    if (mhz >= 5955) return (mhz - 5950) / 5;
    return (mhz - 5000) / 5;
}
