// The log library without its bus and configuration: dbg_configured_threshold is this file's own.
#include "debug/dbg.h"
#include "debug/dbg_modules.h"
#include "tests/temporary_folder.h"

#include <algorithm>
#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <regex>
#include <unistd.h>
#include <vector>

int dbg_configured_threshold(const char *module, int otherwise) noexcept {
    return std::string_view(module) == "chatty" ? 7 : otherwise;
}

namespace {
std::time_t seconds_passed = 0; // that the clocks are ahead
}

extern "C" {
int __real_clock_gettime(clockid_t clock, timespec *now);
int __wrap_clock_gettime(clockid_t clock, timespec *now) {
    const int status = __real_clock_gettime(clock, now);
    now->tv_sec += seconds_passed;
    return status;
}
}

namespace {

using testing::EndsWith;
using testing::HasSubstr;

// The library keeps its modules and its file for the life of the process: each test gives it a file of its
// own.
struct dbg : testing::Test {
    dbg() { EXPECT_EQ(dbg_init("tester", folder.file("log").c_str(), 0), 0); }
    std::string text() const { return folder.text("log"); }
    std::string message() const { // of the only line
        std::string line = text();
        return line.substr(line.find(": ") + 2);
    }
    temporary_folder folder;
    int chatty = dbg_module_reg("chatty");
    int quiet = dbg_module_reg("quiet");
};

TEST_F(dbg, a_line_has_time_program_process_module_and_level) {
    dbg_printf(chatty, 7, "Function %s:%d up\n", "f", 12);
    const std::regex form(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} tester\[)" + std::to_string(getpid()) +
                          R"(\] chatty 7: Function f:12 up\n)");
    EXPECT_TRUE(std::regex_match(text(), form)) << text();
}

TEST_F(dbg, a_message_without_level_is_marked_so) {
    dbg_logfile(quiet, "Run in function %s!\n", "f");
    EXPECT_THAT(text(), EndsWith("] quiet -: Run in function f!\n"));
}

TEST_F(dbg, without_configuration_errors_are_written_and_warnings_are_not) {
    dbg_printf(quiet, 4, "silent\n");
    EXPECT_EQ(text(), "");
    dbg_printf(quiet, 3, "heard\n");
    EXPECT_THAT(text(), EndsWith("quiet 3: heard\n"));
}

TEST_F(dbg, a_threshold_can_be_set_for_one_module_or_for_all) {
    EXPECT_TRUE(dbg_set_threshold("quiet", 5));
    dbg_printf(quiet, 5, "heard\n");
    EXPECT_THAT(text(), HasSubstr("heard"));
    EXPECT_TRUE(dbg_set_threshold(nullptr, 0));
    dbg_printf(chatty, 1, "silent\n");
    EXPECT_THAT(text(), Not(HasSubstr("silent")));
    EXPECT_TRUE(dbg_set_threshold("quiet", 3));
    EXPECT_TRUE(dbg_set_threshold("chatty", 7));
}

TEST_F(dbg, a_threshold_outside_0_to_7_or_of_an_unknown_module_is_refused) {
    EXPECT_FALSE(dbg_set_threshold("quiet", 8));
    EXPECT_FALSE(dbg_set_threshold("quiet", -1));
    EXPECT_FALSE(dbg_set_threshold("nobody", 3));
    EXPECT_FALSE(dbg_set_threshold("-", 3));
    dbg_printf(quiet, 3, "as before\n");
    EXPECT_THAT(text(), HasSubstr("as before"));
}

TEST_F(dbg, foreign_text_cannot_forge_a_line) {
    dbg_printf(chatty, 7, "ssid %s\n", "x\n2026-01-01 00:00:00.000 tester[1] main 3: forged\x1b[2J");
    EXPECT_EQ(message(), "ssid x\\n2026-01-01 00:00:00.000 tester[1] main 3: forged\\x1b[2J\n");
}

TEST_F(dbg, a_message_need_not_end_in_a_line_feed_and_may_have_blanks_behind_it) {
    dbg_printf(chatty, 7, "MAIN");
    EXPECT_EQ(message(), "MAIN\n");
    std::filesystem::remove(folder.file("log"));
    dbg_printf(chatty, 7, "is running\n ");
    EXPECT_EQ(message(), "is running\n");
    std::filesystem::remove(folder.file("log"));
    dbg_printf(chatty, 7, "trailing blank ");
    EXPECT_EQ(message(), "trailing blank \n");
    std::filesystem::remove(folder.file("log"));
    dbg_printf(chatty, 7, "line with its own\n\n");
    EXPECT_EQ(message(), "line with its own\\n\n");
}

TEST_F(dbg, an_endless_message_is_cut_and_says_so) {
    dbg_printf(chatty, 7, "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(message(), std::string(4095, 'x') + "...\n");
}

TEST_F(dbg, an_endless_message_of_control_characters_is_cut_between_two_escapes) {
    dbg_printf(chatty, 7, "%s", std::string(4000, '\x01').c_str());
    const std::string line = message();
    EXPECT_LT(text().size(), 8193U);
    EXPECT_THAT(line, EndsWith("\\x01...\n"));
    EXPECT_EQ((line.size() - 4) % 4, 0U);
}

TEST_F(dbg, an_unregistered_module_is_written_under_a_dash_at_the_usual_threshold) {
    dbg_printf(-1, 4, "silent\n");
    dbg_printf(99, 3, "heard\n");
    EXPECT_THAT(text(), EndsWith("] - 3: heard\n"));
    EXPECT_THAT(text(), Not(HasSubstr("silent")));
}

TEST_F(dbg, levels_below_0_are_written_as_0) {
    dbg_printf(quiet, -5, "urgent\n");
    EXPECT_THAT(text(), EndsWith("quiet 0: urgent\n"));
}

TEST_F(dbg, errno_is_for_the_caller_to_keep) {
    errno = ENOENT;
    dbg_printf(chatty, 7, "%m\n");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(message(), "No such file or directory\n");
}

TEST_F(dbg, a_known_name_keeps_its_number_and_a_bad_one_gets_none) {
    EXPECT_EQ(dbg_module_reg("quiet"), quiet);
    EXPECT_EQ(dbg_module_reg(nullptr), -1);
    EXPECT_EQ(dbg_module_reg(""), -1);
    EXPECT_EQ(dbg_module_reg("a.b"), -1);
    EXPECT_EQ(dbg_module_reg("line\n"), -1);
    EXPECT_EQ(dbg_module_reg(std::string(32, 'x').c_str()), -1);
}

TEST_F(dbg, there_is_room_for_32_modules) {
    int last = -1;
    for (int i = dbg_get_state().module_count; i < 32; ++i)
        last = dbg_module_reg(("m" + std::to_string(i)).c_str());
    EXPECT_EQ(last, 31);
    EXPECT_EQ(dbg_module_reg("one_too_many"), -1);
    EXPECT_EQ(dbg_module_reg("quiet"), quiet);
}

TEST_F(dbg, messages_lost_for_want_of_a_file_are_counted_and_told_when_there_is_one) {
    const std::string sub = folder.file("sub");
    EXPECT_EQ(dbg_init("tester", (sub + "/log").c_str(), 0), -1);
    // The previous file is still open; a path that cannot be opened must not fall back to it.
    dbg_printf(quiet, 3, "one\n");
    dbg_printf(quiet, 3, "two\n");
    std::filesystem::create_directory(sub);
    dbg_printf(quiet, 3, "three\n");
    EXPECT_EQ(text(), "");
    const std::string told = folder.text("sub/log");
    EXPECT_THAT(told, HasSubstr("] - 4: 2 messages lost\n"));
    EXPECT_THAT(told, EndsWith("quiet 3: three\n"));
}

TEST_F(dbg, an_error_that_repeats_is_written_once_and_counted_when_another_comes) {
    for (int i = 0; i < 4; ++i) dbg_printf(quiet, 3, "no lease file\n");
    const std::string once = text();
    EXPECT_EQ(std::count(once.begin(), once.end(), '\n'), 1);
    dbg_printf(quiet, 3, "another\n");
    const std::string all = text();
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 3);
    EXPECT_THAT(all, HasSubstr("quiet 3: last message repeated 3 times\n"));
    EXPECT_THAT(all, EndsWith("quiet 3: another\n"));
}

TEST_F(dbg, an_error_that_goes_on_repeating_is_counted_once_a_minute) {
    dbg_printf(quiet, 3, "no lease file\n");
    for (int i = 0; i < 3; ++i) dbg_printf(quiet, 3, "no lease file\n");
    seconds_passed += 61;
    dbg_printf(quiet, 3, "no lease file\n");
    dbg_printf(quiet, 3, "no lease file\n");
    const std::string all = text();
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 2);
    EXPECT_THAT(all, EndsWith("quiet 3: last message repeated 4 times\n"));
}

TEST_F(dbg, the_time_follows_a_change_of_the_time_zone) {
    ASSERT_EQ(setenv("TZ", "UTC0", 1), 0);
    dbg_printf(quiet, 3, "one\n");
    ASSERT_EQ(setenv("TZ", "EAST-5", 1), 0);
    ++seconds_passed; // the calendar is computed once a second
    dbg_printf(quiet, 3, "two\n");
    unsetenv("TZ");
    const std::string all = text();
    const auto hour = [](const std::string &line) { return std::stoi(line.substr(11, 2)); };
    const int east = hour(all.substr(all.find('\n') + 1)) - hour(all);
    EXPECT_TRUE(east == 5 || east == 6 || east == -19 || east == -18)
        << all; // an hour may have ended between them
}

TEST_F(dbg, messages_that_differ_in_level_module_or_text_are_all_written) {
    dbg_printf(quiet, 3, "one\n");
    dbg_printf(quiet, 2, "one\n");
    dbg_printf(chatty, 2, "one\n");
    dbg_printf(chatty, 2, "two\n");
    dbg_logfile(chatty, "two\n");
    const std::string all = text();
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 5);
    EXPECT_THAT(all, Not(HasSubstr("repeated")));
}

TEST_F(dbg, who_follows_every_step_gets_every_line) {
    for (int i = 0; i < 3; ++i) dbg_printf(chatty, 7, "step\n");
    const std::string all = text();
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 3);
}

TEST_F(dbg, a_message_that_could_not_be_written_is_not_taken_for_repeated) {
    const std::string sub = folder.file("sub");
    EXPECT_EQ(dbg_init("tester", (sub + "/log").c_str(), 0), -1);
    dbg_printf(quiet, 3, "same\n");
    std::filesystem::create_directory(sub);
    dbg_printf(quiet, 3, "same\n");
    EXPECT_THAT(folder.text("sub/log"), EndsWith("quiet 3: same\n"));
}

TEST_F(dbg, the_limit_counts_in_units_of_64_kib) {
    EXPECT_EQ(dbg_init("tester", folder.file("log").c_str(), 1), 0);
    const std::string kilobyte(1000, 'x');
    for (int i = 0; i < 70; ++i) dbg_printf(quiet, 3, "%s\n", kilobyte.c_str());
    EXPECT_GT(std::filesystem::file_size(folder.file("log.0")), 64'000U);
    EXPECT_LE(std::filesystem::file_size(folder.file("log.0")), 65'536U);
    EXPECT_LT(std::filesystem::file_size(folder.file("log")), 10'000U);
}

} // namespace
