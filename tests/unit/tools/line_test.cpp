#include "tools/line.h"

#include <climits>
#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace {

TEST(line, parts_its_fields_by_single_blanks_and_ends_in_a_line_feed) {
    char buffer[64];
    sta_line out{buffer};
    out.text("name", '-');
    out.text("", '-');
    out.number(INT_MIN);
    out.number(UINT64_MAX);
    out.number(static_cast<signed char>(-1));
    EXPECT_EQ(std::string(buffer, out.finish()), "name  -2147483648 18446744073709551615 -1\n");
}

TEST(line, replaces_what_would_end_a_field_or_the_line) {
    char buffer[64];
    sta_line out{buffer};
    out.text("a b\tc\nd\re\vf\fg", '-');
    out.text("x y", '/');
    EXPECT_EQ(std::string(buffer, out.finish()), "a-b-c-d-e-f-g x/y\n");
}

TEST(line, takes_no_more_of_a_text_than_it_may) {
    char buffer[64];
    sta_line out{buffer};
    out.text("abcdef", '-', 3);
    out.text("abc", '-', 3);
    EXPECT_EQ(std::string(buffer, out.finish()), "abc abc\n");
}

// In a function of its own: the compiler sees that there is no room and warns of a write, which does not happen.
[[gnu::noinline]] void add_number(sta_line &out, int number) { out.number(number); }

TEST(line, cuts_what_does_not_fit_and_leaves_out_such_a_number) {
    char buffer[9];
    std::memset(buffer, '.', sizeof(buffer));
    sta_line cut{*reinterpret_cast<char(*)[8]>(buffer)};
    cut.text("abcd", '-');
    add_number(cut, 123456);
    EXPECT_EQ(std::string(buffer, cut.finish()), "abcd \n");
    sta_line full{*reinterpret_cast<char(*)[8]>(buffer)};
    full.text("abcdefghij", '-');
    add_number(full, 1);
    EXPECT_EQ(std::string(buffer, full.finish()), "abcdefg\n");
    EXPECT_EQ(buffer[8], '.');
}

} // namespace
