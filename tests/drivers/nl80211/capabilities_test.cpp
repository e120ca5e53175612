#include "nl80211/capabilities.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using bytes = std::vector<std::uint8_t>;

bytes element(std::uint8_t id, const bytes &body) {
    bytes whole{id, static_cast<std::uint8_t>(body.size())};
    whole.insert(whole.end(), body.begin(), body.end());
    return whole;
}
bytes operator+(bytes left, const bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

const bytes rates_b = element(1, {0x82, 0x84, 0x8b, 0x96});
const bytes rates_a = element(1, {0x8c, 0x12, 0x98, 0x24, 0xb0, 0x48, 0x60, 0x6c});
// 40 MHz, short guard intervals, receives STBC; two streams
const bytes ht = element(45, bytes{0x62, 0x01, 0, 0xff, 0xff} + bytes(21));
// 80 MHz, short guard interval at 80; two streams up to MCS 9
const bytes vht = element(191, {0x20, 0, 0, 0, 0xfa, 0xff, 0, 0, 0, 0, 0, 0});
// 80 and 160 MHz, two streams up to MCS 11
const bytes he = element(255, bytes{35, 0, 0, 0, 0, 0, 0, 0x0c} + bytes(10) + bytes{0xfa, 0xff, 0xfa, 0xff});

TEST(capabilities, without_any_element_are_unknown) {
    const capabilities none = capabilities_decode({}, 5180);
    EXPECT_STREQ(generation_name(none.newest), "");
    EXPECT_EQ(capabilities_max_rate(none, width_80), 0U);
    EXPECT_EQ(capabilities_max_mcs(none), 0);
}

TEST(capabilities, of_old_clients_are_by_their_rates_and_the_band) {
    EXPECT_STREQ(generation_name(capabilities_decode(rates_b, 2412).newest), "11b");
    EXPECT_EQ(capabilities_max_rate(capabilities_decode(rates_b, 2412), width_20), 11U);
    EXPECT_STREQ(generation_name(capabilities_decode(rates_a, 2412).newest), "11g");
    EXPECT_STREQ(generation_name(capabilities_decode(rates_a, 5180).newest), "11a");
    EXPECT_EQ(capabilities_max_rate(capabilities_decode(rates_a, 5180), width_80), 54U);
}

TEST(capabilities, take_no_membership_selector_for_a_rate) {
    EXPECT_EQ(capabilities_decode(element(1, {0x82, 0xff, 0xfe, 0xfb, 0xfa}), 2412).legacy, 2);
}

TEST(capabilities, of_11n_are_streams_width_and_guard_interval) {
    const capabilities n = capabilities_decode(rates_a + ht, 5180);
    EXPECT_STREQ(generation_name(n.newest), "11n");
    EXPECT_EQ(capabilities_max_mcs(n), 15);
    EXPECT_EQ(n.width, width_40);
    EXPECT_TRUE(n.short_gi);
    EXPECT_TRUE(n.stbc);
    EXPECT_EQ(capabilities_max_rate(n, width_40), 300U);
    EXPECT_EQ(capabilities_max_rate(n, width_20), 144U);
}

TEST(capabilities, of_11ac_count_at_5_ghz_only) {
    const capabilities ac = capabilities_decode(rates_a + ht + vht, 5180);
    EXPECT_STREQ(generation_name(ac.newest), "11ac");
    EXPECT_EQ(capabilities_max_mcs(ac), 9);
    EXPECT_EQ(capabilities_max_rate(ac, width_80), 866U);
    EXPECT_EQ(capabilities_max_rate(ac, width_20), 173U) << "20 MHz has no MCS 9";
    EXPECT_STREQ(generation_name(capabilities_decode(rates_a + ht + vht, 2412).newest), "11n");
}

TEST(capabilities, of_11ax_reach_what_the_channel_carries) {
    const capabilities ax = capabilities_decode(rates_a + ht + vht + he, 5180);
    EXPECT_STREQ(generation_name(ax.newest), "11ax");
    EXPECT_EQ(capabilities_max_mcs(ax), 11);
    EXPECT_EQ(ax.width, width_160);
    EXPECT_EQ(capabilities_max_rate(ax, width_160), 2402U);
    EXPECT_EQ(capabilities_max_rate(ax, width_20), 286U);
}

TEST(capabilities, of_11be_have_the_streams_of_11ax) {
    const bytes eht = element(255, bytes{108, 0, 0, 0x02} + bytes(9));
    const capabilities be = capabilities_decode(rates_a + he + eht, 5975);
    EXPECT_STREQ(generation_name(be.newest), "11be");
    EXPECT_EQ(be.width, width_320);
    EXPECT_EQ(capabilities_max_mcs(be), 13);
    EXPECT_EQ(capabilities_max_rate(be, width_320), 5764U);
    EXPECT_EQ(capabilities_decode(rates_a + he + eht, 5180).width, width_160) << "320 MHz is of 6 GHz only";
}

TEST(capabilities, in_common_are_those_of_the_lesser_end) {
    const capabilities ax = capabilities_decode(rates_a + ht + vht + he, 5180);
    const capabilities n = capabilities_decode(rates_a + ht, 5180);
    EXPECT_STREQ(generation_name(capabilities_common(ax, n).newest), "11n");
    EXPECT_EQ(capabilities_max_rate(capabilities_common(ax, n), width_80), 300U);
    EXPECT_STREQ(generation_name(capabilities_common(ax, {}).newest), "11ax") << "the other end is unknown";
}

TEST(capabilities, tell_fast_transition_and_protection_of_the_key_element) {
    // version, group cipher, one pairwise cipher, two methods: PSK and FT-PSK, protection possible
    const bytes rsn = element(48, {1, 0, 0, 0x0f, 0xac, 4, 1, 0,    0,    0x0f, 0xac, 4,
                                   2, 0, 0, 0x0f, 0xac, 2, 0, 0x0f, 0xac, 4,    0x80, 0});
    EXPECT_TRUE(capabilities_decode(rsn, 5180).fast_transition);
    EXPECT_TRUE(capabilities_decode(rsn, 5180).management_protection);
    const bytes plain =
        element(48, {1, 0, 0, 0x0f, 0xac, 4, 1, 0, 0, 0x0f, 0xac, 4, 1, 0, 0, 0x0f, 0xac, 2, 0, 0});
    EXPECT_FALSE(capabilities_decode(plain, 5180).fast_transition);
}

TEST(capabilities, tell_the_link_of_another_access_point) {
    EXPECT_TRUE(capabilities_decode(element(221, {0x50, 0x6f, 0x9a, 0x1b, 6, 1, 0x80}), 5180).backhaul);
    EXPECT_FALSE(capabilities_decode(element(221, {0x50, 0x6f, 0x9a, 0x1b, 6, 1, 0x20}), 5180).backhaul);
    EXPECT_FALSE(capabilities_decode(element(221, {0x00, 0x50, 0xf2, 0x02, 0, 1, 0x80}), 5180).backhaul);
}

TEST(capabilities, of_cut_elements_are_left_out_wherever_the_cut_is) {
    const bytes all = rates_a + ht + vht + he;
    for (std::size_t size = 0; size < all.size(); ++size) {
        const bytes cut(all.begin(),
                        all.begin() + static_cast<std::ptrdiff_t>(size)); // its end is the heap's
        const capabilities known = capabilities_decode(cut, 5180);
        EXPECT_STRNE(generation_name(known.newest), "11ax") << size;
    }
    for (const std::uint8_t id : {std::uint8_t{1}, std::uint8_t{45}, std::uint8_t{48}, std::uint8_t{191},
                                  std::uint8_t{221}, std::uint8_t{255}})
        for (std::size_t size = 0; size < 20; ++size)
            (void)capabilities_decode(element(id, bytes(size, 35)), 5180);
}

} // namespace
