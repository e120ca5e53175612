#include "tools/text.h"

#include <cstdint>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

std::string trimmed(std::string text) {
    sta_str_trim(text.data());
    return text.c_str();
}

TEST(trim, white_space_at_the_end_goes) {
    EXPECT_EQ(trimmed("x \t\r\n"), "x");
    EXPECT_EQ(trimmed("a b "), "a b");
    EXPECT_EQ(trimmed("x"), "x");
}

TEST(trim, white_space_in_front_goes_when_it_begins_with_a_blank) {
    EXPECT_EQ(trimmed("  x\r\n"), "x");
    EXPECT_EQ(trimmed(" \t\r\nx"), "x");
}

TEST(trim, text_that_begins_with_other_white_space_keeps_it) {
    EXPECT_EQ(trimmed("\t x "), "\t x");
    EXPECT_EQ(trimmed("\n x"), "\n x");
    EXPECT_EQ(trimmed("\r x"), "\r x");
}

TEST(trim, text_of_white_space_only_becomes_empty) {
    for (const char *text : {"    ", "\t", "\n\n", " \t", "\t \r\n", "\n"})
        EXPECT_EQ(trimmed(text), "") << text;
}

TEST(trim, vertical_tab_and_form_feed_are_no_white_space) { EXPECT_EQ(trimmed(" \vx\f"), "\vx\f"); }

TEST(trim, null_and_empty_texts_are_left_alone) {
    sta_str_trim(nullptr);
    EXPECT_EQ(trimmed(""), "");
}

TEST(space_to_middleline, each_blank_becomes_a_dash_and_a_tab_stays) {
    char text[] = "a b  c\td ";
    sta_space_to_middleline(text);
    EXPECT_STREQ(text, "a-b--c\td-");
    sta_space_to_middleline(nullptr);
}

TEST(to_lower, only_letters_of_ascii_change) {
    char text[] = "AbC-1@[Z\xc4";
    EXPECT_EQ(sta_tolower(text, text), 0);
    EXPECT_STREQ(text, "abc-1@[z\xc4");
}

TEST(to_lower, no_terminator_is_written) {
    char text[5] = "zzzz";
    EXPECT_EQ(sta_tolower("AB", text), 0);
    EXPECT_STREQ(text, "abzz");
}

TEST(to_lower, null_is_refused) {
    char text[2] = "A";
    EXPECT_EQ(sta_tolower(nullptr, text), -1);
    EXPECT_EQ(sta_tolower(text, nullptr), -1);
    EXPECT_STREQ(text, "A");
}

TEST(delete_character, every_one_goes_in_place) {
    char text[] = "a,b,,c";
    sta_str_del_char(text, ',');
    EXPECT_STREQ(text, "abc");
    char all[] = ",,";
    sta_str_del_char(all, ',');
    EXPECT_STREQ(all, "");
    char none[] = "abc";
    sta_str_del_char(none, ',');
    EXPECT_STREQ(none, "abc");
    sta_str_del_char(nullptr, ',');
}

std::string colons(const char *src) {
    char mac[18] = {};
    EXPECT_EQ(sta_mac_col_sep(src, mac), 0);
    return mac;
}

TEST(mac_with_colons, any_grouping_of_twelve_digits) {
    for (const char *src : {"aabbccddeeff", "aa-bb-cc-dd-ee-ff", "aabb.ccdd.eeff", "aa:bb:cc:dd:ee:ff"})
        EXPECT_EQ(colons(src), "aa:bb:cc:dd:ee:ff") << src;
}

TEST(mac_with_colons, case_is_kept) { EXPECT_EQ(colons("AABBCCddeeff"), "AA:BB:CC:dd:ee:ff"); }

TEST(mac_with_colons, fewer_digits_leave_a_colon_behind_a_complete_group) {
    EXPECT_EQ(colons("aabb"), "aa:bb:");
    EXPECT_EQ(colons("aab"), "aa:b");
    EXPECT_EQ(colons(""), "");
    EXPECT_EQ(colons("ghi"), "");
}

TEST(mac_with_colons, more_digits_than_a_mac_has_are_not_written) {
    char mac[20] = "...................";
    EXPECT_EQ(sta_mac_col_sep("00112233445566778899", mac), 0);
    EXPECT_STREQ(mac, "00:11:22:33:44:55..");
}

TEST(mac_with_colons, null_is_refused) {
    char mac[18] = {};
    EXPECT_EQ(sta_mac_col_sep(nullptr, mac), -1);
    EXPECT_EQ(sta_mac_col_sep("aa", nullptr), -1);
}

TEST(mac_without_separators, only_hexadecimal_digits_are_copied_and_no_terminator) {
    char digits[12] = {};
    EXPECT_EQ(sta_mac_strip_sep("aa:BB-c.zd", digits), 0);
    EXPECT_STREQ(digits, "aaBBcd");
    char stays[5] = "zzzz";
    EXPECT_EQ(sta_mac_strip_sep("1:2", stays), 0);
    EXPECT_STREQ(stays, "12zz");
}

TEST(mac_without_separators, null_is_refused) {
    char digits[12] = {};
    EXPECT_EQ(sta_mac_strip_sep(nullptr, digits), -1);
    EXPECT_EQ(sta_mac_strip_sep("aa", nullptr), -1);
}

TEST(hex_to_bytes, pairs_of_digits_become_bytes_and_the_source_becomes_lower_case) {
    char src[] = "0aFF";
    std::uint8_t bytes[2] = {};
    EXPECT_EQ(sta_hexstr2bytes(src, bytes, 2), 2);
    EXPECT_EQ(bytes[0], 0x0a);
    EXPECT_EQ(bytes[1], 0xff);
    EXPECT_STREQ(src, "0aff");
}

TEST(hex_to_bytes, odd_length_small_buffer_and_null_are_refused) {
    char odd[] = "0aF";
    char four[] = "0aFF";
    std::uint8_t bytes[2] = {7, 7};
    EXPECT_EQ(sta_hexstr2bytes(odd, bytes, 2), -1);
    EXPECT_EQ(sta_hexstr2bytes(four, bytes, 1), -1);
    EXPECT_EQ(sta_hexstr2bytes(nullptr, bytes, 2), -1);
    EXPECT_EQ(sta_hexstr2bytes(four, nullptr, 2), -1);
    EXPECT_STREQ(odd, "0aF");
    EXPECT_STREQ(four, "0aFF");
    EXPECT_EQ(bytes[0], 7);
}

TEST(hex_to_bytes, foreign_character_is_refused_and_what_came_before_stays) {
    char src[] = "0Agg";
    std::uint8_t bytes[2] = {7, 7};
    EXPECT_EQ(sta_hexstr2bytes(src, bytes, 2), -1);
    EXPECT_EQ(bytes[0], 0x0a);
    EXPECT_EQ(bytes[1], 7);
    EXPECT_STREQ(src, "0agg");
}

TEST(hex_to_bytes, empty_text_is_no_bytes_unless_the_size_is_negative) {
    char src[] = "";
    std::uint8_t bytes[1] = {7};
    EXPECT_EQ(sta_hexstr2bytes(src, bytes, 0), 0);
    EXPECT_EQ(sta_hexstr2bytes(src, bytes, -1), -1);
    EXPECT_EQ(bytes[0], 7);
}

// Deliberate: a quick filter; values and empty octets are not checked.
TEST(valid_address, digits_and_exactly_three_dots) {
    for (const char *text : {"192.168.1.1", "999.1.1.1", "...", "0.0.0.0"})
        EXPECT_EQ(sta_is_valid_ipaddr(text), 1) << text;
    for (const char *text : {"", "1.2.3", "1.2.3.4.", "1.2.3.a", "1.2.3.4 ", "1.2.3.-4", "abc"})
        EXPECT_EQ(sta_is_valid_ipaddr(text), 0) << text;
    EXPECT_EQ(sta_is_valid_ipaddr(nullptr), 0);
}

std::vector<int> address(const char *text) {
    std::uint32_t ip = 0xdeadbeef;
    const int result = sta_str2ip(text, &ip);
    if (result != 0) {
        EXPECT_EQ(result, -1) << text;
        EXPECT_EQ(ip, 0xdeadbeef) << text;
        return {};
    }
    std::uint8_t bytes[4];
    std::memcpy(bytes, &ip, 4);
    return {bytes[0], bytes[1], bytes[2], bytes[3]};
}

TEST(text_to_address, result_is_in_network_byte_order) {
    EXPECT_EQ(address("192.168.100.100"), (std::vector{0xc0, 0xa8, 0x64, 0x64}));
}

TEST(text_to_address, short_and_octal_forms_are_taken) {
    EXPECT_EQ(address("1.2.3"), (std::vector{1, 2, 0, 3}));
    EXPECT_EQ(address("1"), (std::vector{0, 0, 0, 1}));
    EXPECT_EQ(address("010.1.1.1"), (std::vector{8, 1, 1, 1}));
}

TEST(text_to_address, what_is_no_address_is_refused) {
    for (const char *text : {"", "192.168.100.100x", "256.1.1.1", "0192.168.100.100", "192.168.100.1000.",
                             "1.2.3.4 ", "-1.2.3.4", "1..2.3", "00000000000000001"})
        EXPECT_EQ(address(text), std::vector<int>{}) << text;
}

TEST(text_to_address, null_is_refused) {
    std::uint32_t ip = 0;
    EXPECT_EQ(sta_str2ip(nullptr, &ip), -1);
    EXPECT_EQ(sta_str2ip("1.2.3.4", nullptr), -1);
}

std::vector<int> hex_address(const char *text) {
    std::uint32_t ip = 0xdeadbeef;
    if (sta_hexip2ip(text, &ip) != 0) {
        EXPECT_EQ(ip, 0xdeadbeef) << text;
        return {};
    }
    std::uint8_t bytes[4];
    std::memcpy(bytes, &ip, 4);
    return {bytes[0], bytes[1], bytes[2], bytes[3]};
}

TEST(hex_text_to_address, four_groups_from_the_sixth_character_on) {
    EXPECT_EQ(hex_address("abcdeC0A86401x"), (std::vector{192, 168, 100, 1}));
    EXPECT_EQ(hex_address("abcdec0.a86401"), (std::vector{192, 168, 100, 1}));
    EXPECT_EQ(hex_address("abcdec0a86401."), (std::vector{192, 168, 100, 1}));
}

TEST(hex_text_to_address, other_lengths_and_missing_or_foreign_digits_are_refused) {
    for (const char *text : {"", "abcdeC0A86401", "abcdeC0A86401xy", "abcdeC0.A8.641", "abcdeC0A8640gx",
                             "abcde..0A86401", "abcdeC0A8.640."})
        EXPECT_EQ(hex_address(text), std::vector<int>{}) << text;
    std::uint32_t ip = 0;
    EXPECT_EQ(sta_hexip2ip(nullptr, &ip), -1);
    EXPECT_EQ(sta_hexip2ip("abcdeC0A86401x", nullptr), -1);
}

// Each text ends exactly where its memory ends: the sanitizer reports a read beyond it.
TEST(hex_text_to_address, nothing_is_read_behind_the_end) {
    for (const char *text : {"abcdeC0A8640.1", "abcdeC0.A8.64.", "abcdeC0A8.64.0"}) {
        std::vector<char> exact(text, text + std::strlen(text) + 1);
        hex_address(exact.data());
    }
}

TEST(plain_mac, only_what_cannot_harm_a_command) {
    for (const char *mac : {"aa:bb:cc:dd:ee:ff", "AA-BB", "aabb.ccdd", "0"})
        EXPECT_TRUE(sta_mac_is_plain(mac)) << mac;
    for (const char *mac :
         {"", "-e", ":", "aa;reboot", "aa bb", "aa\nbb", "$(id)", "aa:gg", "`a`", "a'", "a|b", "a*"})
        EXPECT_FALSE(sta_mac_is_plain(mac)) << mac;
    EXPECT_FALSE(sta_mac_is_plain(nullptr));
}

TEST(put_mac, six_octets_become_lower_case_pairs_with_colons) {
    char text[18];
    sta_put_mac(text, {0x0a, 0x00, 0x9f, 0xff, 0xbc, 0x01});
    EXPECT_STREQ(text, "0a:00:9f:ff:bc:01");
}

TEST(put_mac, what_it_writes_can_be_read_back) {
    const std::uint8_t mac[6] = {0x02, 0xab, 0xcd, 0xef, 0x00, 0x99};
    char text[18];
    sta_put_mac(text, mac);
    std::uint8_t back[6];
    ASSERT_TRUE(sta_read_mac(text, back));
    EXPECT_EQ(std::memcmp(back, mac, sizeof(mac)), 0);
}

TEST(read_mac, pairs_of_either_case_become_octets) {
    std::uint8_t mac[6] = {};
    ASSERT_TRUE(sta_read_mac("0A:fF:90:09:Bc:01", mac));
    EXPECT_EQ(std::memcmp(mac, "\x0a\xff\x90\x09\xbc\x01", sizeof(mac)), 0);
}

TEST(read_mac, anything_but_six_pairs_with_colons_is_refused) {
    std::uint8_t mac[6];
    EXPECT_FALSE(sta_read_mac(nullptr, mac));
    for (const char *text :
         {"", "0", "0a", "0a:", "0a:ff:90:09:bc", "0a:ff:90:09:bc:", "0a:ff:90:09:bc:0", "0a:ff:90:09:bc:01 ",
          "0a:ff:90:09:bc:01:02", "0a-ff-90-09-bc-01", "g0:ff:90:09:bc:01", "0g:ff:90:09:bc:01",
          "a:ff:90:09:bc:01", " 0a:ff:90:09:bc:01", "+1:ff:90:09:bc:01"})
        EXPECT_FALSE(sta_read_mac(text, mac)) << text;
}

TEST(put_text, field_is_terminated_and_zeroed_behind_the_text) {
    char field[8] = "zzzzzzz";
    sta_put_text(field, "ab");
    EXPECT_EQ(std::string_view(field, 8), std::string_view("ab\0\0\0\0\0\0", 8));
    sta_put_text(field, "123456789");
    EXPECT_EQ(std::string_view(field, 8), std::string_view("1234567\0", 8));
    sta_put_text(field, "abcdef", 5);
    EXPECT_EQ(std::string_view(field, 8), std::string_view("abcde\0\0\0", 8));
    sta_put_text(field, nullptr);
    EXPECT_EQ(std::string_view(field, 8), std::string_view("\0\0\0\0\0\0\0\0", 8));
}

TEST(put_text, a_field_may_be_put_into_itself) {
    char field[8] = "abc";
    sta_put_text(field, field);
    EXPECT_STREQ(field, "abc");
}

template <std::size_t N = 32> std::string expanded(const char *src, std::size_t limit = N - 1) {
    char text[N];
    std::memset(text, 'z', N);
    sta_put_expanded(text, src, limit);
    const std::size_t used = strnlen(text, N);
    for (std::size_t i = used; i < N; ++i) EXPECT_EQ(text[i], '\0') << i;
    return {text, used};
}

TEST(expanded_format, double_sign_is_one) {
    EXPECT_EQ(expanded("100%%"), "100%");
    EXPECT_EQ(expanded("%%d"), "%d");
    EXPECT_EQ(expanded("%%%%"), "%%");
}

TEST(expanded_format, number_conversions_print_0) {
    for (const char *form : {"%d", "%i", "%u", "%x", "%X", "%o", "%lld", "%5.2f", "%-08lx", "%*d", "%.*g",
                             "%p", "%a", "%hhu", "%zu", "%'d", "%+i", "% d", "%#x"})
        EXPECT_EQ(expanded((std::string("a") + form + "b").c_str()), "a0b") << form;
}

TEST(expanded_format, text_character_and_count_conversions_vanish) {
    for (const char *form : {"%s", "%c", "%n", "%hhn", "%.10s", "%ls", "%1000000s"})
        EXPECT_EQ(expanded((std::string("a") + form + "b").c_str()), "ab") << form;
}

TEST(expanded_format, unfinished_and_unknown_conversions_stay) {
    for (const char *text : {"%", "a%", "50% ", "%y", "%l", "%5", "%.", "%-", "%*", "%1$d"})
        EXPECT_EQ(expanded(text), text) << text;
}

TEST(expanded_format, result_is_cut_to_the_field_and_to_the_limit) {
    EXPECT_EQ(expanded<8>("1234567890"), "1234567");
    EXPECT_EQ(expanded<8>("123456%%%%"), "123456%");
    EXPECT_EQ(expanded<8>("1234567890", 3), "123");
    EXPECT_EQ(expanded<8>("1234567890", 100), "1234567");
    EXPECT_EQ(expanded<8>(""), "");
}

TEST(number, begins_the_text_behind_white_space) {
    EXPECT_EQ(sta_number("42"), 42);
    EXPECT_EQ(sta_number(" \t-7 apples"), -7);
    EXPECT_EQ(sta_number("+3"), 3);
}

TEST(number, is_0_where_there_is_none) {
    for (const char *text : {"", "apples", "-", " ", "x1"}) EXPECT_EQ(sta_number(text), 0) << text;
}

TEST(number, too_large_or_small_becomes_the_nearest_there_is) {
    EXPECT_EQ(sta_number("2147483647"), INT32_MAX);
    EXPECT_EQ(sta_number("2147483648"), INT32_MAX);
    EXPECT_EQ(sta_number("99999999999"), INT32_MAX);
    EXPECT_EQ(sta_number("999999999999999999999999"), INT32_MAX);
    EXPECT_EQ(sta_number("-2147483649"), INT32_MIN);
}

TEST(or_null, missing_text_is_named) {
    EXPECT_STREQ(sta_or_null(nullptr), "NULL");
    EXPECT_STREQ(sta_or_null("x"), "x");
}

} // namespace
