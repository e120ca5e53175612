// The supervisor is played by a datagram socket.
#include "nl80211/supervisor.h"
#include "tests/temporary_folder.h"

#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// A socket of the name, whose first byte '@' stands for an abstract one.
class supervisors_socket {
public:
    explicit supervisors_socket(const std::string &name)
        : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        name.copy(address.sun_path, sizeof(address.sun_path) - 1);
        if (name[0] == '@') address.sun_path[0] = '\0';
        EXPECT_EQ(bind(fd_, reinterpret_cast<const sockaddr *>(&address),
                       static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size())),
                  0);
        setenv("NOTIFY_SOCKET", name.c_str(), 1);
    }
    ~supervisors_socket() {
        unsetenv("NOTIFY_SOCKET");
        close(fd_);
    }
    std::string sign() const {
        char text[64];
        const ssize_t got = recv(fd_, text, sizeof(text), 0);
        return got < 0 ? std::string() : std::string(text, static_cast<std::size_t>(got));
    }

private:
    int fd_;
};

TEST(supervisor, is_told_of_the_start_and_that_the_bridge_is_alive) {
    const supervisors_socket told("@wsm-bridge-supervisor-" + std::to_string(getpid()));
    supervisor_started();
    supervisor_alive();
    EXPECT_EQ(told.sign(), "READY=1");
    EXPECT_EQ(told.sign(), "WATCHDOG=1");
    EXPECT_EQ(told.sign(), "");
}

TEST(supervisor, may_have_a_socket_with_a_file) {
    const temporary_folder folder;
    const supervisors_socket told(folder.file("supervisor"));
    supervisor_started();
    EXPECT_EQ(told.sign(), "READY=1");
}

TEST(supervisor, that_does_not_read_is_not_waited_for) {
    const supervisors_socket told("@wsm-bridge-supervisor-" + std::to_string(getpid()));
    for (int i = 0; i < 5000; ++i) supervisor_alive(); // many more than any queue takes
    EXPECT_EQ(told.sign(), "WATCHDOG=1");
}

TEST(supervisor, may_be_nobody) {
    unsetenv("NOTIFY_SOCKET");
    supervisor_alive();
    for (const char *name : {"", "@", "relative", "/nowhere/at/all"}) {
        setenv("NOTIFY_SOCKET", name, 1);
        supervisor_alive();
    }
    setenv("NOTIFY_SOCKET", std::string(200, '/').c_str(), 1);
    supervisor_alive();
    unsetenv("NOTIFY_SOCKET");
}

} // namespace
