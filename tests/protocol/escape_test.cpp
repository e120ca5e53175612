#include "protocol/escape.h"

#include <gtest/gtest.h>
#include <string>

namespace {

std::string escaped(std::string_view text, std::size_t room = 200) {
    std::string out(room, '?');
    out.resize(escape::write(text, out));
    return out;
}

TEST(escape, printable_text_is_kept) {
    EXPECT_EQ(escaped("Cafe 12 %n ~!\"'/"), "Cafe 12 %n ~!\"'/");
    EXPECT_EQ(escaped(""), "");
}

TEST(escape, control_characters_and_backslash_can_be_told_from_text) {
    EXPECT_EQ(escaped("a\nb\rc\td"), "a\\nb\\rc\\td");
    EXPECT_EQ(escaped("\\n"), "\\\\n");
    EXPECT_EQ(escaped("\x1b[2J\x7f"), "\\x1b[2J\\x7f");
    EXPECT_EQ(escaped(std::string_view("a\0b", 3)), "a\\x00b");
}

TEST(escape, well_formed_utf8_is_kept) {
    EXPECT_EQ(escaped("\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80"), "\xc3\xa9 \xe2\x82\xac \xf0\x9f\x98\x80");
    EXPECT_EQ(escaped("\xc2\xa0"), "\xc2\xa0");
    EXPECT_EQ(escaped("\xf4\x8f\xbf\xbf"), "\xf4\x8f\xbf\xbf");
}

TEST(escape, everything_else_above_127_is_shown_byte_by_byte) {
    EXPECT_EQ(escaped("\xff\x80"), "\\xff\\x80");
    EXPECT_EQ(escaped("\xc2\x9b"), "\\xc2\\x9b") << "an eight-bit control sequence introducer";
    EXPECT_EQ(escaped("\xc0\xaf"), "\\xc0\\xaf") << "overlong";
    EXPECT_EQ(escaped("\xe0\x9f\xbf"), "\\xe0\\x9f\\xbf") << "overlong";
    EXPECT_EQ(escaped("\xf0\x8f\xbf\xbf"), "\\xf0\\x8f\\xbf\\xbf") << "overlong";
    EXPECT_EQ(escaped("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "surrogate";
    EXPECT_EQ(escaped("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "beyond the last character";
    EXPECT_EQ(escaped("\xe2\x82"), "\\xe2\\x82") << "cut short";
    EXPECT_EQ(escaped("\xc3("), "\\xc3(");
}

TEST(escape, what_does_not_fit_is_left_and_no_escape_is_halved) {
    std::string_view text = "ab\x01z";
    char out[5];
    EXPECT_EQ(escape::write(text, out), 2U);
    EXPECT_EQ(text, "\x01z");
    std::string_view euro = "\xe2\x82\xac";
    EXPECT_EQ(escape::write(euro, {out, 2}), 0U);
    EXPECT_EQ(euro.size(), 3U);
}

} // namespace
