#include "support/house.h"

#include "compat/log_write.h"
#include "core/log_settings.h"
#include "tools/memory.h"

#include <gmock/gmock.h>
#include <regex>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

// The linker redirects the program's calls to these functions, since a test cannot read a system log.
extern "C" {
void __wrap_openlog(const char *identity, int options, int facility);
void __wrap_syslog(int level, const char *format, ...) __attribute__((format(printf, 2, 3)));
void __wrap___syslog_chk(int level, int flag, const char *format, ...) __attribute__((format(printf, 3, 4)));
void __wrap_closelog(void);
}

namespace {
std::vector<std::string> g_syslog;
}

void __wrap_openlog(const char *identity, int options, int facility) {
    g_syslog.push_back(std::string("open ") + identity + " " + std::to_string(options) + " " +
                       std::to_string(facility));
}

namespace {
__attribute__((format(printf, 2, 0))) void note_syslog(int level, const char *format, va_list arguments) {
    char text[4096];
    std::vsnprintf(text, sizeof(text), format, arguments);
    g_syslog.push_back(std::to_string(level) + " " + text);
}
} // namespace

void __wrap_syslog(int level, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    note_syslog(level, format, arguments);
    va_end(arguments);
}

// The function that a fortified build calls for syslog().
void __wrap___syslog_chk(int level, int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    note_syslog(level, format, arguments);
    va_end(arguments);
}

void __wrap_closelog() { g_syslog.emplace_back("close"); }

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

struct log_settings : House {};
struct log_writer : House {
    log_writer() { g_syslog.clear(); }
};

TEST_F(log_settings, without_a_configuration_they_are_the_defaults) {
    sta_log = {9, 9, 9, 9, 9, 9, "x"};
    sta_debug_cfg_read();
    EXPECT_EQ(sta_log.log_console, 0);
    EXPECT_EQ(sta_log.log_syslog, 0);
    EXPECT_EQ(sta_log.log_level, 5);
    EXPECT_EQ(sta_log.log_file, 1);
    EXPECT_EQ(sta_log.log_file_level, 6);
    EXPECT_EQ(sta_log.log_file_size, 65536);
    EXPECT_STREQ(sta_log.log_file_name, "/tmp/sta.log");
    EXPECT_THAT(lines_of("sta_debug_cfg_read"),
                ElementsAre("log_console: 0", "log_syslog: 0", "log_level: 5", "log_file: 1",
                            "log_file_level: 6", "log_file_size: 65536", "log_file_name: /tmp/sta.log"));
    EXPECT_EQ(log_records().size(), 7U);
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(log_settings, values_come_from_the_configuration_file) {
    write_file("/etc/config/wsmd",
               "config wsmd 'main'\n\toption debug 1\n\toption syslog 1\n\toption loglevel 7\n"
               "\toption log_file 0\n\toption log_file_level 3\n\toption log_file_size 100\n"
               "\toption log_file_name '/tmp/x.log'\n");
    sta_debug_cfg_read();
    EXPECT_THAT(lines_of("sta_debug_cfg_read"),
                ElementsAre("log_console: 1", "log_syslog: 1", "log_level: 7", "log_file: 0",
                            "log_file_level: 3", "log_file_size: 100", "log_file_name: /tmp/x.log"));
    EXPECT_STREQ(sta_log.log_file_name, "/tmp/x.log");
    EXPECT_EQ(sta_log.log_file_size, 100);
}

TEST_F(log_settings, commands_run_in_a_fixed_order) {
    write_command("uci", "true");
    sta_debug_cfg_read();
    EXPECT_THAT(calls(),
                ElementsAre("uci -q get wsmd.main.debug", "uci -q get wsmd.main.syslog",
                            "uci -q get wsmd.main.loglevel", "uci -q get wsmd.main.log_file",
                            "uci -q get wsmd.main.log_file_level", "uci -q get wsmd.main.log_file_size",
                            "uci -q get wsmd.main.log_file_name"));
}

TEST_F(log_settings, what_is_no_number_is_0_and_blanks_do_not_matter) {
    write_command("uci", R"(case "$3" in
        *.log_file_size) echo abc ;;
        *.loglevel) echo ' 4 ' ;;
        esac)");
    sta_debug_cfg_read();
    EXPECT_EQ(sta_log.log_file_size, 0);
    EXPECT_EQ(sta_log.log_level, 4);
}

TEST_F(log_settings, removed_file_name_falls_back) {
    write_file("/etc/config/wsmd", "config wsmd 'main'\n\toption log_file_name '/tmp/x.log'\n");
    sta_debug_cfg_read();
    EXPECT_STREQ(sta_log.log_file_name, "/tmp/x.log");
    write_file("/etc/config/wsmd", "config wsmd 'main'\n");
    sta_debug_cfg_read();
    EXPECT_STREQ(sta_log.log_file_name, "/tmp/sta.log");
}

TEST_F(log_settings, file_name_is_cut_at_299_characters) {
    write_command("uci", "echo " + times(400, 'n'));
    sta_debug_cfg_read();
    EXPECT_EQ(std::string(sta_log.log_file_name), times(299, 'n'));
}

TEST_F(log_settings, blank_file_name_is_an_empty_one) {
    write_command("uci", "echo ' '");
    sta_debug_cfg_read();
    EXPECT_STREQ(sta_log.log_file_name, "");
    sta_log.log_console = sta_log.log_syslog = 0;
    sta_log.log_file = 1;
    sta_log_write("T", 0, "x");
}

// "[Thu Nov 20 19:44:29 2026][123][T] a=5\n"
const std::string time_pattern = "\\[[A-Z][a-z][a-z] [A-Z][a-z][a-z] [ 0-9]?[0-9]+ [0-9:]+ [0-9]+\\]";

std::string own_pid() { return std::to_string(getpid()); }

TEST_F(log_writer, line_has_time_process_tag_and_message) {
    sta_log_write("T", 6, "a=%d", 5);
    const std::string line = read_file("/tmp/sta.log");
    ASSERT_GT(line.size(), 26U);
    EXPECT_EQ(line.substr(26), "[" + own_pid() + "][T] a=5\n");
    EXPECT_THAT(line.substr(0, 26), MatchesRegex(time_pattern));
}

TEST_F(log_writer, level_above_the_threshold_writes_nothing) {
    sta_log_write("T", 7, "x");
    EXPECT_FALSE(file_exists("/tmp/sta.log"));
    sta_log.log_file = 0;
    sta_log_write("T", 0, "x");
    EXPECT_FALSE(file_exists("/tmp/sta.log"));
}

TEST_F(log_writer, missing_tag_is_empty) {
    sta_log_write(nullptr, 6, "x");
    EXPECT_EQ(read_file("/tmp/sta.log").substr(26), "[" + own_pid() + "][] x\n");
}

TEST_F(log_writer, line_feed_of_the_message_is_kept) {
    sta_log_write("T", 6, "x\n");
    EXPECT_EQ(read_file("/tmp/sta.log").substr(26), "[" + own_pid() + "][T] x\n\n");
}

TEST_F(log_writer, line_is_cut_at_2047_bytes) {
    sta_log_write("T", 6, "%s", times(5000, 'm').c_str());
    const std::string line = read_file("/tmp/sta.log");
    const std::string prefix = "[" + own_pid() + "][T] ";
    EXPECT_EQ(line.size(), 2048U);
    EXPECT_EQ(line.substr(26), prefix + times(2047 - 26 - prefix.size(), 'm') + "\n");
}

TEST_F(log_writer, tag_longer_than_a_line_is_cut_as_well) {
    sta_log.log_syslog = 1;
    sta_log_write(times(5000, 't').c_str(), 5, "x");
    EXPECT_EQ(read_file("/tmp/sta.log").size(), 2048U);
    ASSERT_EQ(g_syslog.size(), 3U);
    EXPECT_EQ(g_syslog[1].size(), 2U + 2047U);
}

TEST_F(log_writer, lines_are_appended) {
    sta_log_write("T", 6, "first");
    sta_log_write("T", 6, "second");
    EXPECT_THAT(read_file("/tmp/sta.log"), MatchesRegex(".*first\n.*second\n"));
    EXPECT_FALSE(file_exists("/tmp/sta.log.orig"));
}

TEST_F(log_writer, larger_file_is_kept_as_one_old_generation) {
    sta_log.log_file_size = 10;
    write_file("/tmp/sta.log", "01234567890");
    sta_log_write("T", 6, "new");
    EXPECT_EQ(read_file("/tmp/sta.log.orig"), "01234567890");
    const std::string line = read_file("/tmp/sta.log");
    EXPECT_EQ(line.substr(26), "[" + own_pid() + "][T] new\n");
    sta_log_write("T", 6, "newer");
    EXPECT_EQ(read_file("/tmp/sta.log.orig"), line);
}

TEST_F(log_writer, file_of_exactly_the_limit_is_not_rotated) {
    sta_log.log_file_size = 10;
    write_file("/tmp/sta.log", "0123456789");
    sta_log_write("T", 6, "new");
    EXPECT_FALSE(file_exists("/tmp/sta.log.orig"));
    EXPECT_TRUE(read_file("/tmp/sta.log").starts_with("0123456789["));
}

TEST_F(log_writer, with_limit_0_a_new_file_is_not_rotated_and_the_next_line_does_it) {
    sta_log.log_file_size = 0;
    sta_log_write("T", 6, "first");
    EXPECT_FALSE(file_exists("/tmp/sta.log.orig"));
    sta_log_write("T", 6, "second");
    EXPECT_THAT(read_file("/tmp/sta.log.orig"), testing::EndsWith("first\n"));
    EXPECT_THAT(read_file("/tmp/sta.log"), testing::Not(testing::HasSubstr("first")));
}

TEST_F(log_writer, two_long_names_fit_into_the_rotation) {
    const std::string folder = "/tmp/" + times(200, 'd') + "/";
    const std::string name = folder + times(299 - folder.size(), 'n');
    write_file(name, "old");
    std::snprintf(sta_log.log_file_name, sizeof(sta_log.log_file_name), "%s", name.c_str());
    sta_log.log_file_size = 1;
    sta_log_write("T", 6, "new");
    EXPECT_EQ(read_file(name + ".orig"), "old");
}

TEST_F(log_writer, new_file_has_the_mode_that_the_mask_allows) {
    const mode_t before = umask(022);
    sta_log_write("T", 6, "x");
    umask(before);
    struct stat file {};
    ASSERT_EQ(stat("/tmp/sta.log", &file), 0);
    EXPECT_EQ(file.st_mode & 07777U, 0755U);
}

TEST_F(log_writer, file_that_cannot_be_opened_is_skipped) {
    std::snprintf(sta_log.log_file_name, sizeof(sta_log.log_file_name), "/tmp/no/folder/x.log");
    sta_log_write("T", 6, "x");
    EXPECT_FALSE(file_exists("/tmp/no"));
    EXPECT_TRUE(log_records().empty());
}

TEST_F(log_writer, system_log_gets_tag_and_message_below_its_threshold) {
    sta_log.log_syslog = 1;
    sta_log_write("T", 5, "a=%d %%", 5);
    sta_log_write("T", 6, "not");
    EXPECT_THAT(g_syslog, ElementsAre("open WSMD " + std::to_string(LOG_CONS | LOG_PID) + " " +
                                          std::to_string(LOG_USER),
                                      "5 [T] a=5 %", "close"));
}

TEST_F(log_writer, system_log_takes_a_message_as_text_and_a_missing_tag_as_empty) {
    sta_log.log_syslog = 1;
    sta_log_write(nullptr, 5, "%s", "%s%n");
    EXPECT_EQ(g_syslog[1], "5 [] %s%n");
    sta_log_write("T", 5, "%s", times(5000, 'm').c_str());
    EXPECT_EQ(g_syslog[4], "5 [T] " + times(2043, 'm'));
}

TEST_F(log_writer, silent_system_log_is_not_opened) {
    sta_log_write("T", 0, "x");
    EXPECT_THAT(g_syslog, IsEmpty());
}

TEST_F(log_writer, each_sink_gets_all_arguments) {
    sta_log.log_syslog = 1;
    sta_log.log_console = 1;
    sta_log_write("T", 5, "%s %d %s", "one", 2, "three");
    EXPECT_EQ(g_syslog[1], "5 [T] one 2 three");
    EXPECT_THAT(read_file("/tmp/sta.log"), testing::EndsWith("[T] one 2 three\n"));
}

TEST_F(log_writer, console_gets_every_level) {
    sta_log.log_console = 1;
    write_file("/dev/console", "");
    sta_log_write("T", 99, "a=%d", 5);
    const std::string line = read_file("/dev/console");
    ASSERT_GT(line.size(), 26U);
    EXPECT_EQ(line.substr(26), "WSMD[99][T]: a=5\n");
    EXPECT_THAT(line.substr(0, 26), MatchesRegex(time_pattern));
    EXPECT_FALSE(file_exists("/tmp/sta.log")) << "99 is above the file's threshold";
}

TEST_F(log_writer, console_gets_an_empty_text_for_a_missing_tag) {
    sta_log.log_console = 1;
    write_file("/dev/console", "");
    sta_log_write(nullptr, 1, "x");
    EXPECT_EQ(read_file("/dev/console").substr(26), "WSMD[1][]: x\n");
}

TEST_F(log_writer, silent_console_stays_empty) {
    write_file("/dev/console", "");
    sta_log_write("T", 0, "x");
    EXPECT_EQ(read_file("/dev/console"), "");
}

TEST_F(log_writer, console_that_cannot_be_opened_is_skipped) {
    sta_log.log_console = 1;
    write_file("/dev/console/x", ""); // a folder
    sta_log_write("T", 6, "x");
    EXPECT_THAT(read_file("/tmp/sta.log"), testing::EndsWith("[T] x\n"));
}

} // namespace
