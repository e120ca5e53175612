// Foreign text for a terminal.
#include <gtest/gtest.h>

#include "tests/wsm/canned_bus.h"
#include "wsm/text.h"

namespace {

std::string fit(const char *text, int columns = 80) {
    shown_text made{};
    screen_of([&] { // for its locale
        made = show(text, columns);
        return exit_done;
    });
    return {made.bytes, made.length};
}

TEST(wsm_text, printable_characters_stay_as_they_are) {
    EXPECT_EQ(fit("a caf\u00e9, 50 %s {\"x\"} \u65e5\u672c \U0001f600"),
              "a caf\u00e9, 50 %s {\"x\"} \u65e5\u672c \U0001f600");
}

TEST(wsm_text, what_a_terminal_would_obey_becomes_a_question_mark) {
    EXPECT_EQ(fit("\x1b[2J"), "?[2J");
    EXPECT_EQ(fit("a\nb\tc\rd\x7f"), "a?b?c?d?");
    EXPECT_EQ(fit("\u009b31m"), "?"
                                "?31m")
        << "the same command as one character of two bytes";
    EXPECT_EQ(fit("\u202etxt.exe"), "?txt.exe") << "turns the direction of writing";
    EXPECT_EQ(fit("a\u200bb\ufeff\U000e0041"), "a?b?"
                                               "?")
        << "nobody sees them";
    EXPECT_EQ(fit("a\u2066b\u2069"), "a?b?");
}

TEST(wsm_text, bytes_that_are_no_utf_8_become_one_question_mark_each) {
    EXPECT_EQ(fit("\xff\xfe!"), "?"
                                "?!");
    EXPECT_EQ(fit("\xc3"), "?") << "cut";
    EXPECT_EQ(fit("\xc0\xaf"), "??") << "longer than need be";
    EXPECT_EQ(fit("\xed\xa0\x80"), "???") << "half of a pair";
    EXPECT_EQ(fit("\xf4\x90\x80\x80"), "????") << "beyond the last character";
}

TEST(wsm_text, what_does_not_fit_is_cut_and_marked) {
    EXPECT_EQ(fit("abcdef", 6), "abcdef");
    EXPECT_EQ(fit("abcdefg", 6), "abcde~");
    EXPECT_EQ(fit("\u65e5\u672c\u8a9e", 5), "\u65e5\u672c~");
    EXPECT_EQ(fit("\u65e5\u672c\u8a9e", 4), "\u65e5~");
    EXPECT_EQ(fit("a", 0), "");
    EXPECT_EQ(fit("", 0), "");
}

TEST(wsm_text, a_line_of_marks_without_width_ends_with_the_room) {
    std::string marks = "e";
    for (int i = 0; i < 1000; ++i) marks += "\u0301";
    const std::string made = fit(marks.c_str(), 4);
    EXPECT_LE(made.size(), sizeof(shown_text::bytes));
    EXPECT_EQ(unfit_for_a_terminal(made), "");
}

} // namespace
