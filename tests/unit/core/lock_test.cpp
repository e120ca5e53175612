#include "support/house.h"

#include "core/lock.h"
#include "tools/command.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using lock = House;
constexpr const char *path = "/tmp/.sta_file_lockpath";

// The process that holds a write lock on the whole file, or 0.
pid_t holder() {
    const int fd = open(path, O_RDWR | O_CLOEXEC);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    const bool asked = fd >= 0 && fcntl(fd, F_GETLK, &whole) == 0;
    close(fd);
    return asked && whole.l_type == F_WRLCK && whole.l_start == 0 && whole.l_len == 0 ? whole.l_pid : 0;
}

// Runs the daemon with exec in this process: a child of a shell would not find itself below the house's /proc.
[[noreturn]] void become_the_daemon() {
    execl(WSMD_PROGRAM, WSMD_PROGRAM, nullptr);
    _exit(127);
}

TEST_F(lock, write_lock_over_the_whole_file_is_held) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const pid_t child = fork();
    if (child == 0) {
        const char taken = sta_file_lock() ? 'y' : 'n';
        (void)!write(ends[1], &taken, 1);
        pause();
    }
    char taken = 0;
    EXPECT_EQ(read(ends[0], &taken, 1), 1);
    EXPECT_EQ(taken, 'y');
    EXPECT_EQ(holder(), child);
    EXPECT_FALSE(sta_file_lock()) << "somebody else holds it";
    EXPECT_EQ(holder(), child);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(holder(), 0);
    EXPECT_TRUE(file_exists(path)) << "the file stays";
    close(ends[0]);
    close(ends[1]);
}

TEST_F(lock, new_file_has_mode_0700_as_far_as_the_mask_allows) {
    EXPECT_EQ(run_in_child([] {
                  umask(0);
                  sta_file_lock();
              }).status,
              0);
    struct stat file {};
    ASSERT_EQ(stat(path, &file), 0);
    EXPECT_EQ(file.st_mode & 07777U, 0700U);
}

TEST_F(lock, folder_in_the_file_s_place_cannot_be_locked) {
    std::filesystem::create_directory(path);
    EXPECT_FALSE(sta_file_lock());
}

TEST_F(lock, content_of_the_file_is_left_alone) {
    write_file(path, "somebody's");
    EXPECT_EQ(run_in_child([] { std::exit(sta_file_lock() ? 0 : 1); }).status, 0);
    EXPECT_EQ(read_file(path), "somebody's");
}

TEST_F(lock, commands_neither_get_the_descriptor_nor_drop_the_lock) {
    const child_end end = run_in_child([] {
        if (!sta_file_lock()) std::exit(1);
        if (sta_execute("ls -l /proc/self/fd | grep -q lockpath") == 0) std::exit(2);
        // Another process still finds it locked.
        const pid_t other = fork();
        if (other == 0) _exit(sta_file_lock() ? 1 : 0);
        int status = 0;
        waitpid(other, &status, 0);
        std::exit(WEXITSTATUS(status) == 0 ? 0 : 3);
    });
    EXPECT_EQ(end.status, 0);
}

TEST_F(lock, second_instance_ends_with_255_and_without_a_trace) {
    write_command("iptables", "true");
    write_command("uci", "true");
    const child_end end = run_in_child([] {
        if (!sta_file_lock()) std::exit(1);
        const pid_t second = fork();
        if (second == 0) become_the_daemon();
        int status = 0;
        waitpid(second, &status, 0);
        std::exit(WEXITSTATUS(status) == 255 ? 0 : 2);
    });
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.output, "");
    EXPECT_TRUE(calls().empty());
    EXPECT_FALSE(file_exists("/tmp/sta.log"));
}

TEST_F(lock, instance_that_cannot_open_its_lock_ends_with_255) {
    std::filesystem::create_directory(path);
    const child_end end = run_in_child(become_the_daemon);
    EXPECT_EQ(end.status, 255);
    EXPECT_EQ(end.output, "");
}

} // namespace
