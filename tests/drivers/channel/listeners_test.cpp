#include "channel/listeners.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

netlink_listener found;

TEST(netlink_listener, is_a_generic_netlink_socket_in_the_controllers_group) {
    ASSERT_TRUE(netlink_listener_in(
        "00000000f2f8ee1a 16  4711       00008000 0        0        0     2        0        188532\n",
        found));
    EXPECT_EQ(found.port, 4711U);
    EXPECT_EQ(found.inode, 188532U);
}

TEST(netlink_listener, may_have_a_port_above_two_thousand_million) {
    ASSERT_TRUE(netlink_listener_in("x 16 4294963135 0000ffff 0 0 0 2 0 7", found));
    EXPECT_EQ(found.port, 4294963135U);
}

TEST(netlink_listener, is_not_one_of_another_protocol_or_group_nor_the_heading) {
    for (const char *line :
         {"x 0 4711 00008000 0 0 0 2 0 1", "x 16 4711 00004000 0 0 0 2 0 1", "x 16 4711 00000000 0 0 0 2 0 1",
          "sk               Eth Pid        Groups   Rmem     Wmem     Dump  Locks    Drops    Inode", "",
          "x 16 4711 00008000 0 0"})
        EXPECT_FALSE(netlink_listener_in(line, found)) << line;
}

TEST(netlink_port, is_of_the_process_that_has_its_number) {
    const auto own = static_cast<std::uint32_t>(getpid());
    std::string name; // may differ from the program's: an emulator has its own
    std::getline(std::ifstream("/proc/self/comm"), name);
    EXPECT_TRUE(netlink_port_is_of(own, name.c_str()));
    EXPECT_FALSE(netlink_port_is_of(own, name.substr(1).c_str()));
    EXPECT_FALSE(netlink_port_is_of(own, ""));
    EXPECT_FALSE(netlink_port_is_of(4294963135U, name.c_str())) << "no process has this number";
}

// A process in a process namespace of its own, in which it has number 1.
class jailed_process {
public:
    jailed_process() {
        int up[2], down[2];
        if (pipe(up) != 0 || pipe(down) != 0) return;
        child_ = fork();
        if (child_ == 0) {
            close(down[1]);
            char byte = 0;
            if (unshare(CLONE_NEWUSER | CLONE_NEWPID) != 0) _exit(1);
            if (fork() == 0) {
                prctl(PR_SET_NAME, "a-jailed-one");
                (void)!write(up[1], "x", 1);
                (void)!read(down[0], &byte, 1); // until the test closes its end
                _exit(0);
            }
            close(up[1]);
            wait(nullptr);
            _exit(0);
        }
        close(up[1]);
        close(down[0]);
        char byte = 0;
        runs_ = read(up[0], &byte, 1) == 1;
        close(up[0]);
        hold_ = down[1];
    }
    ~jailed_process() {
        close(hold_);
        waitpid(child_, nullptr, 0);
    }
    bool runs() const { return runs_; }

private:
    pid_t child_ = -1;
    int hold_ = -1;
    bool runs_ = false;
};

TEST(netlink_port, is_of_the_jailed_process_that_has_its_number_in_its_jail) {
    const jailed_process jailed;
    if (!jailed.runs()) GTEST_SKIP() << "no process namespaces here";
    EXPECT_TRUE(netlink_port_is_of(1, "a-jailed-one"));
    EXPECT_FALSE(netlink_port_is_of(2, "a-jailed-one")) << "another number";
    EXPECT_FALSE(netlink_port_is_of(1, "another-one")) << "another name";
}

TEST(array, keeps_what_it_has_when_it_grows_and_fills_a_gap_with_the_last) {
    array<int> numbers;
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(numbers.push(i));
    numbers.remove(3);
    EXPECT_EQ(numbers.size(), 19U);
    EXPECT_EQ(numbers[3], 19);
    EXPECT_EQ(numbers[18], 18);
    ASSERT_TRUE(numbers.push(numbers[0])) << "a copy of one of its own";
    EXPECT_EQ(numbers[19], 0);
}

} // namespace
