// What happens to a report when the collector makes the daemon wait.
#include "support/bus_house.h"
#include "support/collector.h"

#include "model/record.h"
#include "outputs/collector.h"

#include <csignal>
#include <gtest/gtest.h>
#include <memory>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

// Counts how often a socket is prepared for waiting.
static int preparations = 0;
extern "C" {
int __real_setsockopt(int fd, int level, int name, const void *value, socklen_t size);
int __wrap_setsockopt(int fd, int level, int name, const void *value, socklen_t size);
int __wrap_setsockopt(int fd, int level, int name, const void *value, socklen_t size) {
    ++preparations;
    return __real_setsockopt(fd, level, name, value, size);
}
}

namespace {

int send_one() {
    const auto sta = std::make_unique<sta_info_t>();
    return sta_domain_socket_send(sta.get());
}

// A stop before the loop runs, when its signal is blocked. If the process waited for ever the alarm would end it.
void hold_a_stop() {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGTERM);
    sigprocmask(SIG_BLOCK, &stop, nullptr);
    alarm(60);
}

using a_report = House;

TEST_F(a_report, waits_no_longer_for_a_collector_once_a_stop_is_pending) {
    const collector box{1};
    const child_end end = run_in_child([] {
        hold_a_stop();
        const int first = send_one();
        std::signal(SIGALRM, [](int) { kill(getpid(), SIGTERM); });
        const itimerval soon{{0, 0}, {0, 50'000}};
        setitimer(ITIMER_REAL, &soon, nullptr);
        const int second = send_one(); // waits when the stop comes
        const int third = send_one();
        std::exit(first == 0 && second == -1 && third == -1 ? 7 : 8);
    });
    EXPECT_TRUE(end.exited);
    EXPECT_EQ(end.status, 7);
}

TEST_F(a_report, prepares_no_wait_for_a_collector_that_has_room) {
    collector box{1};
    preparations = 0;
    EXPECT_EQ(send_one(), 0);
    EXPECT_EQ(preparations, 0);
    EXPECT_EQ(box.reports().size(), 1U);
}

TEST_F(a_report, goes_to_a_collector_that_has_room_when_a_stop_is_pending) {
    collector box{1};
    const child_end end = run_in_child([] {
        hold_a_stop();
        kill(getpid(), SIGTERM);
        std::exit(send_one() == 0 ? 7 : 8);
    });
    EXPECT_EQ(end.status, 7);
    EXPECT_EQ(box.reports().size(), 1U);
}

} // namespace
