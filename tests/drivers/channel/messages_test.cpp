#include "channel/messages.h"

#include <gtest/gtest.h>

namespace {

// The netlink headers are in the host's byte order: these bytes are those of a little-endian machine.
bool is_little_endian() {
    const std::uint16_t one = 1;
    std::uint8_t first = 0;
    std::memcpy(&first, &one, 1);
    return first == 1;
}

TEST(family, has_a_number_that_no_family_of_the_kernel_can_have) { EXPECT_GE(driver_family, 1024); }

TEST(announcement, is_the_controllers_new_family_with_name_and_identifier) {
    if (!is_little_endian()) GTEST_SKIP() << "the bytes are a little-endian machine's";
    const std::uint8_t expected[] = {40,  0,   0, 0, 16, 0, 0,  0, 0,    0, 0,   0,   0,   0,
                                     0,   0,   1, 2, 0,  0, 11, 0, 2,    0, 'T', 'K', '_', 'S',
                                     'T', 'A', 0, 0, 6,  0, 1,  0, 0xd0, 7, 0,   0};
    static_assert(sizeof(expected) == announcement_size);
    std::uint8_t bytes[announcement_size];
    std::memset(bytes, 0xee, sizeof(bytes));
    write_announcement(2000, bytes);
    EXPECT_EQ(0, std::memcmp(bytes, expected, sizeof(bytes)));
}

TEST(event_message, has_three_headers_before_the_event) {
    if (!is_little_endian()) GTEST_SKIP() << "the bytes are a little-endian machine's";
    station_event event{};
    event.assoc = 1;
    event.mac[5] = 9;
    std::uint8_t bytes[event_message_size];
    std::memset(bytes, 0xee, sizeof(bytes));
    write_event_message(2000, event, bytes);
    const std::uint8_t expected[] = {0xe8, 1, 0,    0, 0xd0, 7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 1,
                                     0,    0, 0xd4, 1, 1,    0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 9, 0};
    EXPECT_EQ(0, std::memcmp(bytes, expected, sizeof(expected)));
    EXPECT_EQ(bytes[event_message_size - 1], 0);
}

} // namespace
