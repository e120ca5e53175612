// Messages of a real kernel; tests/golden/nl80211/README.md says how they were recorded.
#include "nl80211/frame.h"
#include "nl80211/kernel_message.h"

#include <bit>
#include <fstream>
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <string>
#include <vector>

namespace {

constexpr mac_address client{{2, 0, 0, 0, 2, 0}};
constexpr std::uint32_t wlan1 = 3;

class recorded_message : public testing::Test {
protected:
    void SetUp() override {
        if (std::endian::native != std::endian::little) GTEST_SKIP() << "numbers are in the other byte order";
    }
    void decode(const std::string &name) {
        std::ifstream file(WSMD_GOLDEN_DIR "/nl80211/" + name);
        for (std::string word; file >> word;)
            bytes.push_back(static_cast<std::uint8_t>(std::stoul(word, nullptr, 16)));
        ASSERT_FALSE(bytes.empty()) << name;
        ASSERT_TRUE(kernel_message_decode(bytes, message));
    }
    std::vector<std::uint8_t> bytes;
    kernel_message message{};
};

TEST_F(recorded_message, of_a_client_that_authenticates_has_no_figures_yet) {
    decode("new_station_event.hex");
    EXPECT_EQ(message.kind, kernel_message::station_added);
    EXPECT_EQ(message.ifindex, wlan1);
    EXPECT_EQ(message.mac, client);
    EXPECT_EQ(message.generation, 1U);
}

TEST_F(recorded_message, of_a_listed_station_says_what_iw_says) {
    decode("station_listed.hex");
    EXPECT_EQ(message.kind, kernel_message::station);
    EXPECT_EQ(message.ifindex, wlan1);
    EXPECT_EQ(message.mac, client);
    EXPECT_EQ(message.generation, 3U);
    const station_figures &figures = message.figures;
    EXPECT_EQ(figures.inactive_ms, 104U) << "iw came 216 ms later";
    EXPECT_EQ(figures.rx_bytes, 37679U);
    EXPECT_EQ(figures.tx_bytes, 16024U);
    EXPECT_EQ(figures.tx_packets, 35U);
    EXPECT_EQ(figures.tx_failed, 0U);
    EXPECT_EQ(figures.signal, -27);
    EXPECT_EQ(figures.chain[0], 0) << "this driver knows no chains";
    EXPECT_EQ(figures.tx_rate, 130U);
    EXPECT_EQ(figures.rx_rate, 2600U);
    EXPECT_EQ(figures.associated_at, 71'057'959'918U);
    EXPECT_TRUE(figures.authorized);
    EXPECT_TRUE(figures.associated);
}

TEST_F(recorded_message, of_a_removal_has_the_final_figures_and_no_longer_the_flags) {
    decode("del_station_event.hex");
    EXPECT_EQ(message.kind, kernel_message::station_removed);
    EXPECT_EQ(message.ifindex, wlan1);
    EXPECT_EQ(message.mac, client);
    EXPECT_EQ(message.generation, 2U);
    EXPECT_EQ(message.figures.inactive_ms, 128U);
    EXPECT_EQ(message.figures.rx_bytes, 378U);
    EXPECT_EQ(message.figures.tx_bytes, 380U);
    EXPECT_EQ(message.figures.tx_packets, 4U);
    EXPECT_EQ(message.figures.signal, -27);
    EXPECT_EQ(message.figures.tx_rate, 60U);
    EXPECT_EQ(message.figures.rx_rate, 0U) << "not known yet";
    EXPECT_EQ(message.figures.associated_at, 0x105b004411U);
    EXPECT_FALSE(message.figures.authorized);
    EXPECT_FALSE(message.figures.associated);
}

TEST_F(recorded_message, of_an_association_response_has_the_frame_that_was_sent) {
    decode("assoc_response_sent.hex");
    ASSERT_EQ(message.kind, kernel_message::frame_sent);
    EXPECT_EQ(message.frame.size(), 187U);
    EXPECT_TRUE(message.acknowledged);
    management_frame frame{};
    ASSERT_TRUE(management_frame_decode(message.frame, frame));
    EXPECT_EQ(frame.subtype, frame_assoc_response);
    EXPECT_EQ(frame.to, client);
    EXPECT_EQ(frame.from, (mac_address{{2, 0, 0, 0, 1, 0}}));
    EXPECT_EQ(frame.status, 0);
}

TEST_F(recorded_message, of_a_key_frame_has_message_1_to_the_client) {
    decode("key_frame_sent.hex");
    ASSERT_EQ(message.kind, kernel_message::key_frame_sent);
    mac_address to{};
    EXPECT_EQ(key_message_number(message.frame, to), 1);
    EXPECT_EQ(to, client);
}

TEST_F(recorded_message, of_an_interface_has_its_name_network_and_channel) {
    decode("interface.hex");
    EXPECT_EQ(message.kind, kernel_message::interface);
    EXPECT_EQ(message.ifindex, wlan1);
    EXPECT_STREQ(message.ifname, "wlan1");
    EXPECT_EQ(message.wiphy, 1U);
    EXPECT_EQ(message.type, unsigned{NL80211_IFTYPE_AP});
    EXPECT_EQ(message.mac, (mac_address{{2, 0, 0, 0, 1, 0}}));
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(message.ssid), message.ssid_size), "Lobby");
    EXPECT_EQ(message.frequency, 5180U);
    EXPECT_EQ(message.width, unsigned{NL80211_CHAN_WIDTH_20});
}

} // namespace
