#include "nl80211/kernel_message.h"

#include <cstring>
#include <gtest/gtest.h>
#include <linux/genetlink.h>
#include <linux/nl80211.h>
#include <netlink/attr.h>
#include <netlink/msg.h>
#include <vector>

namespace {

using bytes = std::vector<std::uint8_t>;
constexpr mac_address anna{{2, 0, 0, 0, 0, 1}};

bytes attribute(std::uint16_t type, const bytes &body) {
    const nlattr header{static_cast<std::uint16_t>(sizeof(nlattr) + body.size()), type};
    bytes whole(sizeof(header));
    std::memcpy(whole.data(), &header, sizeof(header));
    whole.insert(whole.end(), body.begin(), body.end());
    whole.resize((whole.size() + 3) & ~std::size_t{3});
    return whole;
}
template <class Number> bytes number(std::uint16_t type, Number value) {
    bytes body(sizeof(value));
    std::memcpy(body.data(), &value, sizeof(value));
    return attribute(type, body);
}
using flags = nl80211_sta_flag_update; // mask, set
bytes operator+(bytes left, const bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}
bytes message(std::uint8_t command, const bytes &attributes) { return bytes{command, 1, 0, 0} + attributes; }
bytes of_anna() {
    return number<std::uint32_t>(NL80211_ATTR_IFINDEX, 7) +
           attribute(NL80211_ATTR_MAC, bytes(anna.bytes, anna.bytes + 6)) +
           number<std::uint32_t>(NL80211_ATTR_GENERATION, 99);
}
bytes figures() {
    const bytes rate = number<std::uint16_t>(NL80211_RATE_INFO_BITRATE, 540) +
                       number<std::uint32_t>(NL80211_RATE_INFO_BITRATE32, 24019);
    return attribute(
        NL80211_ATTR_STA_INFO | NLA_F_NESTED,
        number<std::uint32_t>(NL80211_STA_INFO_INACTIVE_TIME, 15020) +
            number<std::uint64_t>(NL80211_STA_INFO_ASSOC_AT_BOOTTIME, 48'750'000'000) +
            number<std::uint32_t>(NL80211_STA_INFO_RX_BYTES, 1) +
            number<std::uint64_t>(NL80211_STA_INFO_RX_BYTES64, 0x100000001) +
            number<std::uint64_t>(NL80211_STA_INFO_TX_BYTES64, 1674) +
            number<std::uint32_t>(NL80211_STA_INFO_TX_PACKETS, 8) +
            number<std::uint32_t>(NL80211_STA_INFO_TX_FAILED, 2) +
            number<std::int8_t>(NL80211_STA_INFO_SIGNAL, -27) +
            attribute(NL80211_STA_INFO_CHAIN_SIGNAL,
                      number<std::int8_t>(0, -30) + number<std::int8_t>(1, -33)) +
            attribute(NL80211_STA_INFO_TX_BITRATE, rate) +
            attribute(NL80211_STA_INFO_RX_BITRATE, number<std::uint16_t>(NL80211_RATE_INFO_BITRATE, 540)) +
            number<flags>(NL80211_STA_INFO_STA_FLAGS, {0xfe, 0xa2})); // authorized, authenticated, associated
}

TEST(kernel_message, of_a_new_entry_has_no_figures) {
    kernel_message one;
    ASSERT_TRUE(kernel_message_decode(
        message(NL80211_CMD_NEW_STATION, of_anna() + attribute(NL80211_ATTR_STA_INFO, {})), one));
    EXPECT_EQ(one.kind, kernel_message::station_added);
    EXPECT_EQ(one.ifindex, 7U);
    EXPECT_EQ(one.mac, anna);
    EXPECT_EQ(one.generation, 99U);
}

TEST(kernel_message, of_an_answer_has_all_figures) {
    kernel_message one;
    ASSERT_TRUE(kernel_message_decode(message(NL80211_CMD_NEW_STATION, of_anna() + figures()), one));
    ASSERT_EQ(one.kind, kernel_message::station);
    EXPECT_EQ(one.figures.inactive_ms, 15020U);
    EXPECT_EQ(one.figures.associated_at, 48'750'000'000U);
    EXPECT_EQ(one.figures.rx_bytes, 0x100000001U) << "the wide counter, not the narrow one";
    EXPECT_EQ(one.figures.tx_bytes, 1674U);
    EXPECT_EQ(one.figures.tx_packets, 8U);
    EXPECT_EQ(one.figures.tx_failed, 2U);
    EXPECT_EQ(one.figures.signal, -27);
    EXPECT_EQ(one.figures.chain[0], -30);
    EXPECT_EQ(one.figures.chain[1], -33);
    EXPECT_EQ(one.figures.chain[2], 0);
    EXPECT_EQ(one.figures.tx_rate, 24019U);
    EXPECT_EQ(one.figures.rx_rate, 540U) << "an old kernel's, of 16 bits";
    EXPECT_TRUE(one.figures.authorized);
    EXPECT_TRUE(one.figures.associated);
}

TEST(kernel_message, with_narrow_counters_alone_has_those) {
    kernel_message one;
    const bytes info =
        attribute(NL80211_ATTR_STA_INFO, number<std::uint32_t>(NL80211_STA_INFO_RX_BYTES, 4711) +
                                             number<flags>(NL80211_STA_INFO_STA_FLAGS, {0, 2}));
    ASSERT_TRUE(kernel_message_decode(message(NL80211_CMD_NEW_STATION, of_anna() + info), one));
    EXPECT_EQ(one.figures.rx_bytes, 4711U);
    EXPECT_FALSE(one.figures.authorized) << "a flag that the mask leaves out";
}

TEST(kernel_message, of_a_removal_has_the_final_figures) {
    kernel_message one;
    ASSERT_TRUE(kernel_message_decode(message(NL80211_CMD_DEL_STATION, of_anna() + figures()), one));
    EXPECT_EQ(one.kind, kernel_message::station_removed);
    EXPECT_EQ(one.figures.tx_bytes, 1674U);
}

TEST(kernel_message, of_a_frame_has_its_bytes_and_whether_it_arrived) {
    kernel_message one;
    const bytes frame =
        number<std::uint32_t>(NL80211_ATTR_IFINDEX, 7) + attribute(NL80211_ATTR_FRAME, bytes{1, 2, 3});
    const bytes management = message(NL80211_CMD_FRAME_TX_STATUS, frame + attribute(NL80211_ATTR_ACK, {}));
    ASSERT_TRUE(kernel_message_decode(management, one));
    EXPECT_EQ(one.kind, kernel_message::frame_sent);
    ASSERT_EQ(one.frame.size(), 3U);
    EXPECT_EQ(one.frame[2], 3);
    EXPECT_TRUE(one.acknowledged);
    const bytes key = message(NL80211_CMD_CONTROL_PORT_FRAME_TX_STATUS, frame);
    ASSERT_TRUE(kernel_message_decode(key, one));
    EXPECT_EQ(one.kind, kernel_message::key_frame_sent);
    EXPECT_FALSE(one.acknowledged);
}

TEST(kernel_message, of_an_interface_has_name_network_and_channel) {
    kernel_message one;
    const bytes whole = message(NL80211_CMD_NEW_INTERFACE,
                                of_anna() + attribute(NL80211_ATTR_IFNAME, {'w', 'l', 'a', 'n', '1', 0}) +
                                    number<std::uint32_t>(NL80211_ATTR_WIPHY, 2) +
                                    number<std::uint32_t>(NL80211_ATTR_IFTYPE, NL80211_IFTYPE_AP) +
                                    number<std::uint32_t>(NL80211_ATTR_WIPHY_FREQ, 5180) +
                                    number<std::uint32_t>(NL80211_ATTR_CHANNEL_WIDTH, NL80211_CHAN_WIDTH_80) +
                                    attribute(NL80211_ATTR_SSID, {'a', 0, 'b'}));
    ASSERT_TRUE(kernel_message_decode(whole, one));
    EXPECT_EQ(one.kind, kernel_message::interface);
    EXPECT_STREQ(one.ifname, "wlan1");
    EXPECT_EQ(one.wiphy, 2U);
    EXPECT_EQ(one.type, unsigned{NL80211_IFTYPE_AP});
    EXPECT_EQ(one.frequency, 5180U);
    EXPECT_EQ(one.ssid_size, 3);
    EXPECT_EQ(0, std::memcmp(one.ssid, "a\0b", 3)) << "any bytes";
}

TEST(kernel_message, of_an_interface_with_too_long_texts_has_their_beginning) {
    kernel_message one;
    const bytes whole =
        message(NL80211_CMD_NEW_INTERFACE, of_anna() + attribute(NL80211_ATTR_IFNAME, bytes(40, 'x')) +
                                               attribute(NL80211_ATTR_SSID, bytes(200, 'y')));
    ASSERT_TRUE(kernel_message_decode(whole, one));
    EXPECT_EQ(std::strlen(one.ifname), 15U);
    EXPECT_EQ(one.ssid_size, 32);
}

TEST(kernel_message, of_a_survey_tells_which_channel_is_in_use) {
    kernel_message one;
    const bytes info =
        attribute(NL80211_ATTR_SURVEY_INFO, number<std::uint32_t>(NL80211_SURVEY_INFO_FREQUENCY, 5180) +
                                                number<std::int8_t>(NL80211_SURVEY_INFO_NOISE, -92) +
                                                attribute(NL80211_SURVEY_INFO_IN_USE, {}) +
                                                number<std::uint64_t>(NL80211_SURVEY_INFO_TIME, 1000) +
                                                number<std::uint64_t>(NL80211_SURVEY_INFO_TIME_BUSY, 250));
    ASSERT_TRUE(kernel_message_decode(message(NL80211_CMD_NEW_SURVEY_RESULTS, of_anna() + info), one));
    EXPECT_EQ(one.kind, kernel_message::survey);
    EXPECT_TRUE(one.in_use);
    EXPECT_EQ(one.noise, -92);
    EXPECT_EQ(one.frequency, 5180U);
    EXPECT_EQ(one.time_ms, 1000U);
    EXPECT_EQ(one.busy_ms, 250U);
}

TEST(kernel_message, takes_the_last_of_two_and_leaves_unknown_attributes_out) {
    kernel_message one;
    const bytes whole = message(NL80211_CMD_DEL_STATION, number<std::uint32_t>(NL80211_ATTR_IFINDEX, 6) +
                                                             of_anna() + attribute(0x3fff, bytes(8, 1)));
    ASSERT_TRUE(kernel_message_decode(whole, one));
    EXPECT_EQ(one.ifindex, 7U);
}

TEST(kernel_message, of_no_station_is_refused) {
    kernel_message one;
    const bytes index = number<std::uint32_t>(NL80211_ATTR_IFINDEX, 7);
    EXPECT_FALSE(kernel_message_decode(message(NL80211_CMD_DEL_STATION, index), one)) << "no address";
    EXPECT_FALSE(kernel_message_decode(
        message(NL80211_CMD_DEL_STATION, index + attribute(NL80211_ATTR_MAC, bytes(5, 2))), one));
    EXPECT_FALSE(kernel_message_decode(
        message(NL80211_CMD_DEL_STATION, index + attribute(NL80211_ATTR_MAC, bytes(6, 0xff))), one))
        << "a group";
    EXPECT_FALSE(kernel_message_decode(bytes{1, 2}, one));
}

TEST(kernel_message, that_is_cut_is_read_no_farther_wherever_the_cut_is) {
    const bytes whole = message(NL80211_CMD_NEW_STATION, of_anna() + figures());
    for (std::size_t size = 0; size < whole.size(); ++size) {
        kernel_message one;
        (void)kernel_message_decode(bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)),
                                    one);
    }
}

TEST(channel, is_counted_by_band) {
    EXPECT_EQ(channel_of(2412), 1);
    EXPECT_EQ(channel_of(2484), 14);
    EXPECT_EQ(channel_of(5180), 36);
    EXPECT_EQ(channel_of(5825), 165);
    EXPECT_EQ(channel_of(5935), 2);
    EXPECT_EQ(channel_of(5955), 1);
    EXPECT_EQ(channel_of(0), 0);
    EXPECT_EQ(channel_of(4294967295U), 0);
}

} // namespace
