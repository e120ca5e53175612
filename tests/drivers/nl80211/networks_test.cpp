#include "nl80211/networks.h"

#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <vector>

namespace {

class access_networks : public testing::Test {
protected:
    static kernel_message interface(std::uint32_t ifindex, const char *name, std::uint32_t type,
                                    std::uint32_t frequency, std::uint8_t mac = 1) {
        kernel_message one{};
        one.kind = kernel_message::interface;
        one.ifindex = ifindex;
        one.type = type;
        one.wiphy = 5;
        one.frequency = frequency;
        one.has_mac = true;
        one.mac.bytes[5] = mac;
        std::snprintf(one.ifname, sizeof(one.ifname), "%s", name);
        return one;
    }
    networks::settings how{};
    std::vector<std::uint32_t> ended;
    networks make() { // built in the caller's place: it is never moved
        how.control_folder = "/nowhere";
        how.control_global = nullptr;
        how.control = {nullptr, nullptr, nullptr};
        how.ended = [](void *list, std::uint32_t network) {
            static_cast<std::vector<std::uint32_t> *>(list)->push_back(network);
        };
        how.owner = &ended;
        return networks(how);
    }
};

TEST_F(access_networks, are_of_the_radio_of_their_band) {
    networks all = make();
    all.take(interface(3, "wlan0", NL80211_IFTYPE_AP, 2437));
    all.take(interface(4, "wlan1", NL80211_IFTYPE_AP, 5180));
    all.take(interface(5, "wlan2", NL80211_IFTYPE_AP, 5975));
    EXPECT_EQ(all.find("wlan0")->facts.radio, 0);
    EXPECT_EQ(all.find("wlan1")->facts.radio, 1);
    EXPECT_EQ(all.find("wlan2")->facts.radio, 1);
    EXPECT_EQ(all.find("wlan3"), nullptr);
}

TEST_F(access_networks, are_of_the_radio_that_was_chosen_for_them) {
    how.choices[0] = {"wlan2", 0};
    how.choices[1] = {"phy1-*", 0};
    how.choice_count = 2;
    networks all = make();
    all.take(interface(3, "wlan2", NL80211_IFTYPE_AP, 5975));
    all.take(interface(4, "wlan20", NL80211_IFTYPE_AP, 5975));
    all.take(interface(5, "phy1-ap0", NL80211_IFTYPE_AP, 5180));
    EXPECT_EQ(all.find("wlan2")->facts.radio, 0);
    EXPECT_EQ(all.find("wlan20")->facts.radio, 1);
    EXPECT_EQ(all.find("phy1-ap0")->facts.radio, 0);
}

TEST_F(access_networks, own_the_interfaces_of_their_vlans) {
    networks all = make();
    all.begin();
    all.take(interface(9, "wlan1.1", NL80211_IFTYPE_AP_VLAN, 5180));
    all.take(interface(4, "wlan1", NL80211_IFTYPE_AP, 5180));
    all.take(interface(5, "wlan1-open", NL80211_IFTYPE_AP, 5180, 2));
    all.end();
    EXPECT_EQ(all.network_of(9)->ifindex, 4U);
    EXPECT_EQ(all.network_of(5)->ifindex, 5U);
    EXPECT_EQ(all.network_of(77), nullptr);
}

TEST_F(access_networks, are_no_clients_interfaces) {
    networks all = make();
    all.take(interface(3, "wlan0", NL80211_IFTYPE_STATION, 2437));
    EXPECT_EQ(all.find("wlan0"), nullptr);
}

TEST_F(access_networks, that_are_no_longer_listed_or_are_something_else_have_ended) {
    networks all = make();
    all.take(interface(3, "wlan0", NL80211_IFTYPE_AP, 2437));
    all.take(interface(4, "wlan1", NL80211_IFTYPE_AP, 5180, 2));
    all.take(interface(9, "wlan1.1", NL80211_IFTYPE_AP_VLAN, 5180, 2));
    all.begin();
    all.take(interface(4, "wlan1", NL80211_IFTYPE_AP, 5180, 2));
    all.end();
    EXPECT_EQ(ended, (std::vector<std::uint32_t>{3})) << "a VLAN's interface is no network";
    all.take(interface(4, "wlan1", NL80211_IFTYPE_STATION, 0, 2));
    EXPECT_EQ(ended, (std::vector<std::uint32_t>{3, 4}));
}

TEST_F(access_networks, that_are_renamed_end_and_begin) {
    networks all = make();
    all.take(interface(3, "wlan0", NL80211_IFTYPE_AP, 2437));
    all.take(interface(3, "ap0", NL80211_IFTYPE_AP, 2437));
    EXPECT_EQ(ended, (std::vector<std::uint32_t>{3}));
    EXPECT_EQ(all.find(3)->facts.radio, 0);
    EXPECT_STREQ(all.find(3)->facts.ifname, "ap0");
}

TEST_F(access_networks, keep_their_channel_and_name_when_a_message_lacks_them) {
    networks all = make();
    kernel_message whole = interface(3, "wlan1", NL80211_IFTYPE_AP, 5180);
    whole.width = NL80211_CHAN_WIDTH_80;
    whole.ssid_size = 1;
    whole.ssid[0] = 'x';
    all.take(whole);
    all.take(interface(3, "wlan1", NL80211_IFTYPE_AP, 0));
    EXPECT_EQ(all.find(3)->facts.frequency, 5180U);
    EXPECT_EQ(all.find(3)->facts.width, width_80);
    EXPECT_EQ(all.find(3)->facts.ssid_size, 1);
    EXPECT_EQ(all.find(3)->facts.radio, 1);
}

TEST_F(access_networks, are_as_busy_as_the_channel_was_since_the_last_look) {
    access_interface one{};
    one.facts.frequency = 5180;
    kernel_message survey{};
    survey.in_use = true;
    survey.frequency = 5180;
    survey.noise = -92;
    survey.time_ms = 1000;
    survey.busy_ms = 900;
    networks::take_survey(one, survey);
    EXPECT_EQ(one.facts.noise, -92);
    EXPECT_EQ(one.facts.busy, 0) << "a first look has nothing to compare with";
    survey.time_ms = 2000;
    survey.busy_ms = 1100;
    networks::take_survey(one, survey);
    EXPECT_EQ(one.facts.busy, 51);
    survey.time_ms = 100; // the driver's clock has started anew
    survey.busy_ms = 100;
    networks::take_survey(one, survey);
    EXPECT_EQ(one.facts.busy, 51);
    survey.in_use = false;
    survey.noise = -50;
    networks::take_survey(one, survey);
    EXPECT_EQ(one.facts.noise, -92) << "of another channel";
}

} // namespace
