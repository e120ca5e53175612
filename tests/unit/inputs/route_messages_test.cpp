// Messages of the kernel about interfaces and neighbours, typed by hand.
#include <gmock/gmock.h>

#include "support/bytes.h"

#include "inputs/route_messages.h"

#include <bit>
#include <linux/neighbour.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Typed with the lowest byte first, as most machines have it; the others skip these tests.
struct route_messages : testing::Test {
    void SetUp() override {
        if (std::endian::native != std::endian::little) GTEST_SKIP();
    }
    static std::vector<route_message> all(const byte_vector &bytes) {
        std::vector<route_message> found;
        // A block of exactly its size, so that the sanitizers find a read beyond it.
        const std::vector<std::uint8_t> exact(bytes.begin(), bytes.end());
        std::span<const std::uint8_t> rest{exact};
        for (route_message one; route_message_next(rest, one);) found.push_back(one);
        return found;
    }
    static std::vector<route_kind> kinds(const std::string &text) {
        std::vector<route_kind> found;
        for (const route_message &one : all(from_hex(text))) found.push_back(one.kind);
        return found;
    }
};

constexpr const char *ipv4_neighbour = R"(
    4c000000 1c00 0000 07000000 00000000  # length 76, a new neighbour, answers request 7
    02 00 0000 05000000 0200 00 01        # IPv4, interface 5, reachable
    0800 0100 c0a80a32                    # its address
    0a00 0200 02000000000a 0000           # its MAC
    0800 0400 01000000                    # probes
    1400 0300 e8030000 00000000 d0070000 00000000 # confirmed 10 s ago, updated 20 s ago
)";

TEST_F(route_messages, a_neighbour_of_ipv4_has_interface_state_address_mac_and_ages) {
    const auto found = all(from_hex(std::string{ipv4_neighbour}));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].kind, route_kind::neighbour);
    EXPECT_EQ(found[0].sequence, 7U);
    const route_neighbour &one = found[0].neighbour;
    EXPECT_EQ(one.index, 5);
    EXPECT_EQ(one.state, NUD_REACHABLE);
    EXPECT_FALSE(one.is_ipv6);
    EXPECT_TRUE(one.has_mac);
    EXPECT_THAT(one.mac, ElementsAre(2, 0, 0, 0, 0, 10));
    EXPECT_THAT(one.address, ElementsAre(192, 168, 10, 50, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(one.confirmed_ago, 10U);
    EXPECT_EQ(one.updated_ago, 20U);
}

TEST_F(route_messages, a_neighbour_of_ipv6_has_sixteen_octets) {
    const auto found = all(from_hex(R"(
        3c000000 1c00 0000 00000000 00000000
        0a 00 0000 05000000 0400 80 01
        1400 0100 fe80 00*6 0000 00ff fe00 000a
        0a00 0200 02000000000a 0000)"));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].kind, route_kind::neighbour);
    EXPECT_TRUE(found[0].neighbour.is_ipv6);
    EXPECT_EQ(found[0].neighbour.state, NUD_STALE);
    EXPECT_THAT(found[0].neighbour.address,
                ElementsAre(0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xfe, 0, 0, 10));
}

TEST_F(route_messages, a_neighbour_may_have_no_mac) {
    const auto found = all(from_hex(R"(
        24000000 1c00 0000 00000000 00000000
        02 00 0000 05000000 0100 00 01
        0800 0100 c0a80a32)"));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].kind, route_kind::neighbour);
    EXPECT_FALSE(found[0].neighbour.has_mac);
}

TEST_F(route_messages, a_mac_of_another_length_is_none) {
    const auto found = all(from_hex(R"(
        30000000 1c00 0000 00000000 00000000
        02 00 0000 05000000 0200 00 01
        0800 0100 c0a80a32
        0c00 0200 0200000000000a0b)"));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_FALSE(found[0].neighbour.has_mac);
}

TEST_F(route_messages, what_a_bridge_has_learnt_is_nothing) {
    EXPECT_THAT(kinds(R"(
        28000000 1c00 0000 00000000 00000000
        07 00 0000 05000000 0200 00 00
        0a00 0200 02000000000a 0000)"),
                ElementsAre(route_kind::nothing));
}

TEST_F(route_messages, a_link_has_name_bridge_and_lower_interface) {
    const auto found = all(from_hex(R"(
        40000000 1000 0000 01000000 00000000
        00 00 0100 09000000 00000000 00000000
        0900 0300 6174683000 000000
        0800 0a00 05000000
        0800 0500 04000000
        0400 0000)"));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].kind, route_kind::link);
    EXPECT_EQ(found[0].link.index, 9);
    EXPECT_STREQ(found[0].link.name, "ath0");
    EXPECT_EQ(found[0].link.master, 5);
    EXPECT_EQ(found[0].link.lower, 4);
}

TEST_F(route_messages, a_lower_interface_of_another_namespace_is_none) {
    const auto found = all(from_hex(R"(
        30000000 1000 0000 00000000 00000000
        00 00 0100 09000000 00000000 00000000
        0800 0500 04000000
        0800 2500 00000000)"));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].link.lower, 0);
}

TEST_F(route_messages, a_name_without_an_end_is_cut) {
    const auto found = all(from_hex(R"(
        38000000 1000 0000 00000000 00000000
        00 00 0100 09000000 00000000 00000000
        1800 0300 61*20)"));
    ASSERT_EQ(found.size(), 1U);
    EXPECT_STREQ(found[0].link.name, "aaaaaaaaaaaaaaa");
}

TEST_F(route_messages, a_link_goes_by_the_message_for_all_families_alone) {
    const std::string header = "20000000 1100 0000 00000000 00000000 ";
    EXPECT_THAT(kinds(header + "00 00 0100 09000000 00000000 00000000"), ElementsAre(route_kind::link_gone));
    EXPECT_THAT(kinds(header + "07 00 0100 09000000 00000000 00000000"), ElementsAre(route_kind::nothing));
}

TEST_F(route_messages, a_wireless_event_says_nothing_of_the_bridge) {
    EXPECT_THAT(kinds(R"(
        2c000000 1000 0000 00000000 00000000
        00 00 0100 09000000 00000000 00000000
        0c00 0b00 0000000000000000)"),
                ElementsAre(route_kind::nothing));
}

TEST_F(route_messages, an_answer_has_an_end_and_may_be_refused) {
    EXPECT_THAT(kinds("14000000 0300 0200 02000000 00000000 00000000  24000000 0200 0000 02000000 00000000 "
                      "f0ffffff 00*16"),
                ElementsAre(route_kind::done, route_kind::refused));
}

TEST_F(route_messages, several_come_in_one_datagram) {
    EXPECT_THAT(
        kinds(std::string{ipv4_neighbour} + "14000000 0300 0200 07000000 00000000 00000000" + ipv4_neighbour),
        ElementsAre(route_kind::neighbour, route_kind::done, route_kind::neighbour));
}

TEST_F(route_messages, of_a_wrong_length_are_broken_and_the_last) {
    EXPECT_THAT(kinds(""), IsEmpty());
    EXPECT_THAT(kinds("14"), ElementsAre(route_kind::broken));
    EXPECT_THAT(kinds("00000000 1c00 0000 00000000 00000000"), ElementsAre(route_kind::broken));
    EXPECT_THAT(kinds("0f000000 1c00 0000 00000000 00000000"), ElementsAre(route_kind::broken));
    EXPECT_THAT(kinds("ffffffff 1c00 0000 00000000 00000000"), ElementsAre(route_kind::broken));
    EXPECT_THAT(kinds("10000000 1c00 0000 00000000 00000000"), ElementsAre(route_kind::broken))
        << "no header of its own";
    EXPECT_THAT(kinds("1c000000 1c00 0000 00000000 00000000 02 00 0000 05000000 0200 00 01"),
                ElementsAre(route_kind::broken))
        << "no address";
}

TEST_F(route_messages, an_attribute_of_a_wrong_length_breaks_its_message_and_no_other) {
    const std::string next = "14000000 0300 0200 02000000 00000000 00000000";
    for (const char *length : {"0000", "0300", "0900", "ffff"})
        EXPECT_THAT(kinds("24000000 1c00 0000 00000000 00000000 02 00 0000 05000000 0200 00 01 " +
                          std::string{length} + " 0100 c0a80a32" + next),
                    ElementsAre(route_kind::broken, route_kind::done))
            << length;
}

TEST_F(route_messages, every_cut_of_a_message_is_broken_or_none) {
    const byte_vector whole = from_hex(ipv4_neighbour);
    for (std::size_t size = 1; size < whole.size(); ++size) {
        const auto found = all({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
        ASSERT_EQ(found.size(), 1U);
        EXPECT_EQ(found[0].kind, route_kind::broken);
    }
}

TEST_F(route_messages, requests_are_for_everything) {
    std::uint8_t request[route_request_size_max];
    EXPECT_EQ(route_ask_links(0x0102, request), 32U);
    EXPECT_EQ(byte_vector(request, request + 32),
              from_hex("20000000 1200 0103 02010000 00000000 00000000 00000000 00000000 00000000"));
    EXPECT_EQ(route_ask_neighbours(3, request), 28U);
    EXPECT_EQ(byte_vector(request, request + 28),
              from_hex("1c000000 1e00 0103 03000000 00000000 00000000 00000000 00000000"));
}

} // namespace
