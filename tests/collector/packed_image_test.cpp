#include "collector/store/packed_image.h"

#include <gtest/gtest.h>
#include <random>

namespace {

std::string image(std::size_t size = station_report_size) { return std::string(size, '\0'); }

TEST(packed_image, of_zeros_is_nothing) {
    EXPECT_EQ(pack_image(image()), "");
    EXPECT_EQ(unpack_image(""), image());
}

TEST(packed_image, has_lengths_in_front_of_what_is_not_zero) {
    std::string one = image();
    one[8] = 'a';
    one[10] = 'b'; // a single zero is no gap
    one[300] = 'c';
    EXPECT_EQ(pack_image(one), std::string("\x08\x03"
                                           "a\0b"
                                           "\xff\x00\x22\x01"
                                           "c",
                                           10));
    EXPECT_EQ(unpack_image(pack_image(one)), one);
}

TEST(packed_image, comes_back_whatever_it_was) {
    std::mt19937 dice(7); // NOLINT: the same in every run
    for (int round = 0; round < 2000; ++round) {
        std::string one = image();
        for (std::size_t at = 0; at < one.size();) {
            const std::size_t run = dice() % 400;
            const bool zeros = dice() % 2 == 0;
            for (std::size_t end = std::min(one.size(), at + run + 1); at < end; ++at)
                one[at] = zeros ? '\0' : static_cast<char>(dice() % 3);
        }
        ASSERT_EQ(unpack_image(pack_image(one)), one);
    }
}

TEST(packed_image, refuses_what_was_not_packed) {
    EXPECT_FALSE(unpack_image("\x01"));
    EXPECT_FALSE(unpack_image("\x01\x02"
                              "a"));
    EXPECT_FALSE(unpack_image(std::string("\xff\0\xff\0\xff\0", 6)));
}

} // namespace
