#include "nl80211/frame.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

using bytes = std::vector<std::uint8_t>;

bytes header(std::uint8_t subtype) {
    return {static_cast<std::uint8_t>(subtype << 4),
            0,
            0x3a,
            1,
            2,
            0,
            0,
            0,
            1,
            0,
            2,
            0,
            0,
            0,
            2,
            0,
            2,
            0,
            0,
            0,
            1,
            0,
            0x10,
            0};
}
bytes operator+(bytes left, const bytes &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

TEST(management_frame, has_receiver_sender_and_reason) {
    management_frame frame{};
    ASSERT_TRUE(management_frame_decode(header(12) + bytes{5, 1}, frame));
    EXPECT_EQ(frame.subtype, frame_deauth);
    EXPECT_EQ(frame.to, (mac_address{{2, 0, 0, 0, 1, 0}}));
    EXPECT_EQ(frame.from, (mac_address{{2, 0, 0, 0, 2, 0}}));
    EXPECT_EQ(frame.reason, 0x105);
    ASSERT_TRUE(management_frame_decode(header(10) + bytes{8, 0}, frame));
    EXPECT_EQ(frame.subtype, frame_disassoc);
    EXPECT_EQ(frame.reason, 8);
}

TEST(management_frame, of_an_authentication_has_transaction_and_status) {
    management_frame frame{};
    ASSERT_TRUE(management_frame_decode(header(11) + bytes{3, 0, 2, 0, 17, 0}, frame));
    EXPECT_EQ(frame.transaction, 2);
    EXPECT_EQ(frame.status, 17);
}

TEST(management_frame, of_a_request_or_response_has_elements_after_its_fields) {
    management_frame frame{};
    const bytes elements{1, 1, 0x82};
    const struct {
        std::uint8_t subtype;
        std::size_t fixed;
    } kinds[] = {{0, 4}, {1, 6}, {2, 10}, {3, 6}};
    for (const auto &[subtype, fixed] : kinds) {
        const bytes whole = header(subtype) + bytes(fixed, 0) + elements;
        ASSERT_TRUE(management_frame_decode(whole, frame)) << int{subtype};
        EXPECT_EQ(bytes(frame.elements.begin(), frame.elements.end()), elements) << int{subtype};
    }
}

TEST(management_frame, is_none_of_another_type_or_too_short) {
    management_frame frame{};
    EXPECT_FALSE(management_frame_decode({}, frame));
    EXPECT_FALSE(management_frame_decode(header(12) + bytes{5}, frame));
    EXPECT_FALSE(management_frame_decode(header(8) + bytes(20), frame)) << "a beacon";
    bytes data = header(12) + bytes{5, 0};
    data[0] |= 8;
    EXPECT_FALSE(management_frame_decode(data, frame)) << "a data frame";
    for (std::uint8_t subtype = 0; subtype < 16; ++subtype)
        for (std::size_t size = 0; size < 40; ++size) {
            bytes cut = header(subtype) + bytes(20);
            cut.resize(size);
            (void)management_frame_decode(bytes(cut), frame);
        }
}

TEST(key_message, is_1_without_and_3_with_an_integrity_code) {
    bytes packet{2, 0, 0, 0, 1, 0, 2, 0, 0, 0, 2, 0, 0x88, 0x8e, 2, 3, 0, 117, 2, 0x00, 0x8a};
    mac_address to{};
    EXPECT_EQ(key_message_number(packet, to), 1);
    EXPECT_EQ(to, (mac_address{{2, 0, 0, 0, 1, 0}}));
    packet[19] = 0x13;
    EXPECT_EQ(key_message_number(packet, to), 3);
}

TEST(key_message, is_none_of_a_group_key_another_protocol_or_a_cut_packet) {
    const bytes packet{2, 0, 0, 0, 1, 0, 2, 0, 0, 0, 2, 0, 0x88, 0x8e, 2, 3, 0, 117, 2, 0x00, 0x8a};
    mac_address to{};
    bytes group = packet;
    group[20] = 0x82;
    EXPECT_EQ(key_message_number(group, to), 0);
    bytes other = packet;
    other[12] = 0x08;
    EXPECT_EQ(key_message_number(other, to), 0);
    for (std::size_t size = 0; size < packet.size(); ++size)
        EXPECT_EQ(
            key_message_number(bytes(packet.begin(), packet.begin() + static_cast<std::ptrdiff_t>(size)), to),
            0);
}

} // namespace
