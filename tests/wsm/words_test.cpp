// Figures as a person reads them, and the cells of a table.
#include <climits>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>

#include "tests/wsm/canned_bus.h"
#include "wsm/table.h"
#include "wsm/words.h"

namespace {

std::string duration(std::int64_t seconds) {
    char word[word_size];
    put_duration(word, seconds);
    return word;
}

std::string bytes(std::int64_t number) {
    char word[word_size];
    put_bytes(word, number);
    return word;
}

std::string moment(std::int64_t time, std::int64_t now) {
    setenv("TZ", "UTC0", 1);
    tzset();
    char word[word_size];
    put_time(word, time, now);
    return word;
}

TEST(wsm_words, a_duration_has_its_two_largest_units) {
    EXPECT_EQ(duration(0), "0s");
    EXPECT_EQ(duration(59), "59s");
    EXPECT_EQ(duration(60), "1m");
    EXPECT_EQ(duration(3599), "59m");
    EXPECT_EQ(duration(3600), "1h00m");
    EXPECT_EQ(duration(11100), "3h05m");
    EXPECT_EQ(duration(86399), "23h59m");
    EXPECT_EQ(duration(187200), "2d04h");
    EXPECT_EQ(duration(INT64_MAX), "106751991167300d15h");
}

TEST(wsm_words, bytes_have_three_digits_at_most) {
    EXPECT_EQ(bytes(0), "0");
    EXPECT_EQ(bytes(999), "999");
    EXPECT_EQ(bytes(1000), "1.0k");
    EXPECT_EQ(bytes(9949), "9.9k");
    EXPECT_EQ(bytes(9951), "10k");
    EXPECT_EQ(bytes(999'500), "1.0M");
    EXPECT_EQ(bytes(1'234'567'890), "1.2G");
    EXPECT_EQ(bytes(-1), "18E") << "counters have no sign";
}

TEST(wsm_words, a_time_of_today_is_a_clocks_and_another_days_has_its_date) {
    constexpr std::int64_t noon = 1'700'049'600; // 2023-11-15 12:00:00
    EXPECT_EQ(moment(noon - 1, noon), "11:59:59");
    EXPECT_EQ(moment(noon - 86400, noon), "Nov 14 12:00");
    EXPECT_EQ(moment(noon - 365 * 86400, noon), "Nov 15 12:00") << "the same day of another year";
    EXPECT_EQ(moment(INT64_MAX, noon), "-") << "no calendar has it";
    EXPECT_EQ(moment(INT64_MIN, noon), "-");
}

constexpr table_column columns[] = {
    {"KEY", 0, 0, false}, {"TEXT", 4, 0, false}, {"LESS", 0, 1, false}, {"NUMBER", 0, 2, true}};

std::string printed(std::initializer_list<const char *> cells, int width) {
    table rows{columns};
    for (const char *cell : cells) EXPECT_TRUE(rows.add(cell));
    const auto print = [&] {
        rows.print(width);
        return exit_done;
    };
    return screen_of(print).out;
}

TEST(wsm_table, columns_fit_their_content_and_numbers_are_right_aligned) {
    EXPECT_EQ(printed({"a", "some text", "x", "7", "bb", "", "y", "12345678"}, 80),
              "KEY  TEXT       LESS    NUMBER\n"
              "a    some text  x            7\n"
              "bb              y     12345678\n");
}

TEST(wsm_table, where_there_is_no_room_texts_are_cut_first_and_then_columns_go) {
    EXPECT_EQ(printed({"a", "some text", "x", "7"}, 25),
              "KEY  TEXT    LESS  NUMBER\na    some ~  x          7\n");
    EXPECT_EQ(printed({"a", "some text", "x", "7"}, 20), "KEY  TEXT       LESS\na    some text  x\n");
    EXPECT_EQ(printed({"a", "some text", "x", "7"}, 12), "KEY  TEXT\na    some t~\n");
}

TEST(wsm_table, what_must_not_become_narrower_is_cut_when_nothing_else_is_left) {
    const std::string wide =
        printed({std::string(200, 'k').c_str(), std::string(200, 't').c_str(), "x", "7"}, 40);
    EXPECT_LE(widest_line(wide), 40) << wide;
}

TEST(wsm_table, wide_characters_count_as_two_columns) {
    EXPECT_EQ(printed({"\u65e5\u672c", "b", "", ""}, 80),
              "KEY   TEXT  LESS  NUMBER\n\u65e5\u672c  b                 \n");
}

TEST(wsm_table, without_rows_there_is_the_title) { EXPECT_EQ(printed({}, 80), "KEY  TEXT  LESS  NUMBER\n"); }

} // namespace
