#include "support/house.h"

#include "tools/command.h"
#include "tools/memory.h"

#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <sys/resource.h>
#include <unistd.h>

// The linker leads the program's calls here.
extern "C" {
pid_t __real_fork(void);
pid_t __wrap_fork(void);
}

namespace {
bool g_forks = true;
}

pid_t __wrap_fork() {
    if (g_forks) return __real_fork();
    errno = EAGAIN;
    return -1;
}

namespace {

using command = House;

// The first line that the command prints; "(null)" when there is none.
std::string first_line(const std::string &text) {
    const std::unique_ptr<char, void (*)(void *)> line{sta_execute_buf("%s", text.c_str()), sta_free};
    return line ? line.get() : "(null)";
}

TEST_F(command, exit_status_is_the_result) {
    EXPECT_EQ(sta_execute("true"), 0);
    EXPECT_EQ(sta_execute("exit 3"), 3);
    EXPECT_EQ(sta_execute("exit 255"), 255);
    EXPECT_EQ(sta_execute("no-such-command 2>/dev/null"), 127);
}

// Deliberate: only an exit code counts as a failure.
TEST_F(command, command_killed_by_a_signal_counts_as_success) { EXPECT_EQ(sta_execute("kill -9 $$"), 0); }

TEST_F(command, text_is_a_format) {
    EXPECT_EQ(sta_execute("test %d -eq %d", 4, 4), 0);
    EXPECT_EQ(sta_execute("test %s = %s", "a", "b"), 1);
}

TEST_F(command, text_is_cut_at_511_characters) {
    write_command("count", "printf %s \"$1\" | wc -c > /tmp/count");
    sta_execute("count %s", times(600, 'x').c_str());
    EXPECT_EQ(read_file("/tmp/count"), "505\n"); // with the six characters in front of it 511
    EXPECT_EQ(first_line("count " + times(600, 'x') + "; echo no"), "(null)");
    EXPECT_EQ(read_file("/tmp/count"), "505\n");
}

TEST_F(command, child_that_cannot_run_the_shell_ends_with_127_and_flushes_nothing) {
    const child_end end = run_in_child([] {
        std::fputs("once", stdout);        // in the buffer while the child is made
        if (chroot("/tmp") != 0) _exit(1); // no shell in there
        const int status = sta_execute("true");
        std::fflush(stdout);
        _exit(status);
    });
    EXPECT_TRUE(end.exited);
    EXPECT_EQ(end.status, 127);
    EXPECT_EQ(end.output, "once");
}

TEST_F(command, first_line_of_the_output_is_a_counted_text) {
    char *line = sta_execute_buf("printf 'a\\nb\\n'");
    EXPECT_STREQ(line, "a");
    EXPECT_EQ(mem_total_cnt, 1U);
    sta_free(line);
    EXPECT_EQ(first_line("printf a"), "a");
    EXPECT_EQ(first_line("echo x; exit 9"), "x");
}

TEST_F(command, output_without_a_first_line_is_null) {
    EXPECT_EQ(first_line("true"), "(null)");
    EXPECT_EQ(first_line("echo"), "(null)");
    EXPECT_EQ(first_line("printf '\\nmore\\n'"), "(null)");
    EXPECT_EQ(first_line("no-such-command 2>/dev/null"), "(null)");
}

TEST_F(command, first_line_of_blanks_is_a_line) { EXPECT_EQ(first_line("echo '  '"), "  "); }

TEST_F(command, first_line_is_cut_at_1023_characters) {
    write_file("/tmp/long", times(2000, 'x') + "\nnext\n");
    EXPECT_EQ(first_line("cat /tmp/long"), times(1023, 'x'));
    write_file("/tmp/exact", times(1023, 'y') + "\nnext\n");
    EXPECT_EQ(first_line("cat /tmp/exact"), times(1023, 'y'));
}

TEST_F(command, only_the_line_feed_goes) { EXPECT_EQ(first_line("printf 'x\\r\\n'"), "x\r"); }

TEST_F(command, a_nul_ends_the_line) { EXPECT_EQ(first_line("printf 'a\\000b\\n'"), "a"); }

TEST_F(command, line_in_pieces_is_put_together) {
    EXPECT_EQ(first_line("printf a; sleep 0.05; echo b"), "ab");
}

// The shell's end interrupts the reader while a process that it left behind still holds the pipe.
TEST_F(command, line_without_a_line_feed_survives_the_end_of_the_shell) {
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(first_line("printf early; (sleep 0.01; printf late) & exit 0"), "earlylate");
}

TEST_F(command, a_command_that_writes_for_ever_ends_with_the_first_line) {
    EXPECT_EQ(first_line("yes"), "y");
}

TEST_F(command, without_memory_for_the_line_there_is_none) {
    fail_allocation(1);
    EXPECT_EQ(sta_execute_buf("echo a"), nullptr);
    EXPECT_TRUE(allocation_failed());
}

TEST_F(command, children_get_their_signals_back) {
    const child_end end = run_in_child([] {
        std::signal(SIGHUP, SIG_DFL); // the tests may have been started with it ignored
        std::signal(SIGPIPE, SIG_IGN);
        std::signal(SIGINT, SIG_IGN);
        std::signal(SIGTERM, SIG_IGN);
        sigset_t held;
        sigemptyset(&held);
        sigaddset(&held, SIGTERM);
        sigprocmask(SIG_BLOCK, &held, nullptr);
        sta_execute("grep -E '^Sig(Blk|Ign):' /proc/self/status > /tmp/direct");
        sta_free(sta_execute_buf("grep -E '^Sig(Blk|Ign):' /proc/self/status > /tmp/piped; echo"));
    });
    EXPECT_EQ(end.status, 0);
    for (const char *path : {"/tmp/direct", "/tmp/piped"})
        EXPECT_EQ(read_file(path), "SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000\n") << path;
}

TEST_F(command, children_get_no_descriptor_of_ours_but_the_standard_ones) {
    // 3 is the folder that ls reads.
    const child_end end = run_in_child([] {
        close_range(3, ~0U, 0);
        sta_free(sta_execute_buf("echo $(ls /proc/self/fd) > /tmp/descriptors"));
    });
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(read_file("/tmp/descriptors"), "0 1 2 3\n");
}

TEST_F(command, no_descriptor_is_left_open) {
    const auto open_descriptors = [] {
        int count = 0;
        DIR *folder = opendir("/proc/self/fd");
        while (readdir(folder)) ++count;
        closedir(folder);
        return count;
    };
    const int before = open_descriptors();
    sta_execute("true");
    first_line("echo a");
    first_line("true");
    EXPECT_EQ(open_descriptors(), before);
}

TEST_F(command, output_is_read_with_a_closed_standard_output) {
    const child_end end = run_in_child([] {
        close(STDOUT_FILENO);
        char *line = sta_execute_buf("echo a");
        const bool right = line && std::string_view(line) == "a";
        sta_free(line);
        _exit(right ? 0 : 1);
    });
    EXPECT_EQ(end.status, 0);
}

TEST_F(command, without_a_process_the_result_is_minus_1_and_logged) {
    g_forks = false;
    EXPECT_EQ(sta_execute("true"), -1);
    EXPECT_EQ(sta_execute_buf("echo a"), nullptr);
    EXPECT_EQ(sta_fork(), -1);
    g_forks = true;
    EXPECT_EQ(
        lines_of("sta_fork"),
        std::vector<std::string>(3, "Failed to fork: Resource temporarily unavailable.  Bailing out\n"));
}

TEST_F(command, without_a_pipe_there_is_no_line) {
    const child_end end = run_in_child([] {
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_NOFILE, &none);
        _exit(sta_execute_buf("echo a") ? 1 : 0);
    });
    EXPECT_EQ(end.status, 0);
}

// With SIGCHLD ignored a child leaves no status.
TEST_F(command, status_is_0_when_the_system_reaps_the_child) {
    const child_end end = run_in_child([] {
        std::signal(SIGCHLD, SIG_IGN);
        std::exit(sta_execute("exit 5"));
    });
    EXPECT_TRUE(end.exited);
    EXPECT_EQ(end.status, 0);
}

} // namespace
