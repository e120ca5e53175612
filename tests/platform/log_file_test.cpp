#include "debug/log_file.h"
#include "tests/temporary_folder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

struct open_log : log_file {
    open_log(const std::string &name, std::int64_t bytes) : log_file{} {
        opened = log_file_open(*this, name.c_str(), bytes);
    }
    ~open_log() {
        if (fd >= 0) close(fd);
    }
    open_log(open_log &&) = delete;
    bool opened = false;
};

TEST(log_file, appends_to_what_is_there) {
    const temporary_folder folder;
    std::ofstream(folder.file("log")) << "before\n";
    open_log log(folder.file("log"), 0);
    EXPECT_TRUE(log.opened);
    EXPECT_TRUE(log_file_append(log, "one\n"));
    EXPECT_TRUE(log_file_append(log, "two\n"));
    EXPECT_EQ(folder.text("log"), "before\none\ntwo\n");
}

TEST(log_file, a_line_that_would_pass_the_limit_starts_a_new_file_and_the_old_one_is_kept) {
    const temporary_folder folder;
    open_log log(folder.file("log"), 10);
    EXPECT_TRUE(log_file_append(log, "aaaa\n"));
    EXPECT_TRUE(log_file_append(log, "bbbb\n"));
    EXPECT_EQ(folder.text("log"), "aaaa\nbbbb\n") << "exactly at the limit is within it";
    EXPECT_TRUE(log_file_append(log, "c\n"));
    EXPECT_EQ(folder.text("log"), "c\n");
    EXPECT_EQ(folder.text("log.0"), "aaaa\nbbbb\n");
}

TEST(log_file, only_one_old_generation_is_kept) {
    const temporary_folder folder;
    open_log log(folder.file("log"), 4);
    for (const char *line : {"1\n", "22\n", "333\n"}) EXPECT_TRUE(log_file_append(log, line));
    EXPECT_EQ(folder.text("log"), "333\n");
    EXPECT_EQ(folder.text("log.0"), "22\n");
    EXPECT_FALSE(std::filesystem::exists(folder.file("log.0.0")));
}

TEST(log_file, a_line_longer_than_the_limit_is_written_whole) {
    const temporary_folder folder;
    open_log log(folder.file("log"), 4);
    EXPECT_TRUE(log_file_append(log, "long line\n"));
    EXPECT_EQ(folder.text("log"), "long line\n");
}

TEST(log_file, without_a_limit_it_never_rotates) {
    const temporary_folder folder;
    open_log log(folder.file("log"), 0);
    for (int i = 0; i < 100; ++i) EXPECT_TRUE(log_file_append(log, "line\n"));
    EXPECT_EQ(folder.text("log").size(), 500U);
    EXPECT_FALSE(std::filesystem::exists(folder.file("log.0")));
}

TEST(log_file, is_opened_anew_when_somebody_deleted_it) {
    const temporary_folder folder;
    open_log log(folder.file("log"), 0);
    EXPECT_TRUE(log_file_append(log, "lost\n"));
    std::filesystem::remove(folder.file("log"));
    EXPECT_TRUE(log_file_append(log, "kept\n"));
    EXPECT_EQ(folder.text("log"), "kept\n");
}

TEST(log_file, is_opened_anew_when_somebody_renamed_it) {
    const temporary_folder folder;
    open_log log(folder.file("log"), 0);
    EXPECT_TRUE(log_file_append(log, "old\n"));
    std::filesystem::rename(folder.file("log"), folder.file("log.1"));
    EXPECT_TRUE(log_file_append(log, "new\n"));
    EXPECT_EQ(folder.text("log.1"), "old\n");
    EXPECT_EQ(folder.text("log"), "new\n");
}

TEST(log_file, goes_on_behind_the_start_when_somebody_emptied_it) {
    const temporary_folder folder;
    open_log log(folder.file("log"), 0);
    EXPECT_TRUE(log_file_append(log, "gone\n"));
    std::filesystem::resize_file(folder.file("log"), 0);
    EXPECT_TRUE(log_file_append(log, "first\n"));
    EXPECT_EQ(folder.text("log"), "first\n");
}

TEST(log_file, a_missing_folder_loses_lines_until_it_is_there) {
    const temporary_folder folder;
    open_log log(folder.file("sub/log"), 0);
    EXPECT_FALSE(log.opened);
    EXPECT_FALSE(log_file_append(log, "lost\n"));
    std::filesystem::create_directory(folder.file("sub"));
    EXPECT_TRUE(log_file_append(log, "kept\n"));
    EXPECT_EQ(folder.text("sub/log"), "kept\n");
}

TEST(log_file, writes_nothing_to_a_file_that_has_lost_its_name) {
    const temporary_folder folder;
    open_log log(folder.file("log"), 100);
    EXPECT_TRUE(log_file_append(log, "seen\n"));
    std::filesystem::remove(folder.file("log"));
    std::filesystem::create_directory(folder.file("log"));
    EXPECT_FALSE(log_file_append(log, "lost\n")) << "a file without a name would grow beyond the limit";
    std::filesystem::remove(folder.file("log"));
    EXPECT_TRUE(log_file_append(log, "kept\n"));
    EXPECT_EQ(folder.text("log"), "kept\n");
}

TEST(log_file, without_a_descriptor_for_a_new_file_the_old_one_begins_anew) {
    const temporary_folder folder;
    open_log log(folder.file("log"), 10);
    EXPECT_TRUE(log_file_append(log, "aaaa\n"));
    EXPECT_TRUE(log_file_append(log, "bbbb\n"));
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none{0, limit.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_TRUE(log_file_append(log, "cccc\n"));
    EXPECT_TRUE(log_file_append(log, "dddd\n"));
    const auto both = std::filesystem::file_size(folder.file("log.0"));
    EXPECT_TRUE(log_file_append(log, "e\n"));
    setrlimit(RLIMIT_NOFILE, &limit);
    EXPECT_EQ(both, 20U);
    EXPECT_EQ(folder.text("log.0"), "e\n");
    EXPECT_TRUE(log_file_append(log, "f\n"));
    EXPECT_EQ(folder.text("log"), "f\n");
}

TEST(log_file, a_full_disk_loses_the_line_and_nothing_else) {
    open_log log("/dev/full", 10);
    EXPECT_TRUE(log.opened);
    EXPECT_FALSE(log_file_append(log, "line\n"));
    EXPECT_FALSE(log_file_append(log, "line\n"));
}

TEST(log_file, a_line_that_was_cut_by_a_full_disk_is_ended_before_the_next) {
    const temporary_folder folder;
    open_log log(folder.file("log"), 0);
    EXPECT_TRUE(log_file_append(log, "hal"));
    log.torn = true; // as a short write leaves it
    EXPECT_TRUE(log_file_append(log, "next\n"));
    EXPECT_TRUE(log_file_append(log, "last\n"));
    EXPECT_EQ(folder.text("log"), "hal\nnext\nlast\n");
}

TEST(log_file, a_pipe_is_refused_rather_than_waited_for) {
    const temporary_folder folder;
    ASSERT_EQ(mkfifo(folder.file("pipe").c_str(), 0600), 0);
    const int reader = open(folder.file("pipe").c_str(), O_RDONLY | O_NONBLOCK);
    EXPECT_FALSE(open_log(folder.file("pipe"), 0).opened);
    close(reader);
    EXPECT_FALSE(open_log(folder.file("pipe"), 0).opened);
}

TEST(log_file, the_descriptor_is_not_inherited_by_programs_that_are_started) {
    const temporary_folder folder;
    open_log log(folder.file("log"), 0);
    EXPECT_EQ(fcntl(log.fd, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
}

TEST(log_file, an_empty_or_endless_path_is_refused) {
    EXPECT_FALSE(open_log("", 0).opened);
    EXPECT_FALSE(open_log("/tmp/" + std::string(300, 'x'), 0).opened);
}

} // namespace
