#include "tests/temporary_folder.h"
#include "was/was_request.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

// A driver that takes one connection and does with it what the test says.
struct driver {
    explicit driver(std::function<void(int)> talk)
        : listener(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        if (bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
            listen(listener, 4) != 0)
            std::abort();
        thread = std::thread([this, talk = std::move(talk)] {
            const int peer = accept(listener, nullptr, nullptr);
            talk(peer);
            close(peer);
        });
    }
    ~driver() {
        thread.join();
        close(listener);
    }
    driver(driver &&) = delete;

    temporary_folder folder;
    std::string path = folder.file("was.sock");
    int listener;
    std::thread thread;
};

std::string received(int fd, std::size_t size) {
    std::string bytes(size, '\0');
    std::size_t got = 0;
    while (got < size) {
        const ssize_t n = recv(fd, bytes.data() + got, size - got, 0);
        if (n <= 0) break;
        got += static_cast<std::size_t>(n);
    }
    bytes.resize(got);
    return bytes;
}

void answer(int fd, std::string_view bytes) { (void)send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

using namespace std::string_literals;

TEST(was_request, the_request_on_the_wire_is_command_argument_size_interface_and_bytes) {
    std::string seen;
    char buffer[4] = {'a', 'b', 'c', 'd'};
    {
        const driver peer([&seen](int fd) {
            seen = received(fd, 52);
            answer(fd, "\0\0\0\0\0\0\0\0"s);
        });
        EXPECT_EQ(was_request(peer.path.c_str(), buffer, 4, "ath0", 5, 7), 0);
    }
    EXPECT_EQ(seen, "\5\0\0\0\7\0\0\0\4\0\0\0ath0"s + std::string(32, '\0') + "abcd");
}

TEST(was_request, the_request_comes_in_one_piece) {
    ssize_t first = 0;
    char buffer[4] = {'a', 'b', 'c', 'd'};
    {
        const driver peer([&first](int fd) {
            char piece[100];
            first = recv(fd, piece, sizeof(piece), 0);
            answer(fd, "\0\0\0\0\0\0\0\0"s);
        });
        EXPECT_EQ(was_request(peer.path.c_str(), buffer, 4, "ath0", 5, 7), 0);
    }
    EXPECT_EQ(first, 52);
}

TEST(was_request, the_answer_overwrites_the_front_of_the_buffer) {
    char buffer[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
    const driver peer([](int fd) {
        received(fd, 56);
        answer(fd, "\0\0\0\0\3\0\0\0"
                   "12\0"s);
    });
    EXPECT_EQ(was_request(peer.path.c_str(), buffer, 8, "ath0", 5, 0), 0);
    EXPECT_EQ(std::string(buffer, 8), "12\0xxxxx"s);
}

TEST(was_request, the_drivers_own_result_is_passed_on) {
    char buffer[1] = {};
    const driver peer([](int fd) {
        received(fd, 49);
        answer(fd, "\xea\xff\xff\xff\0\0\0\0"s);
    });
    EXPECT_EQ(was_request(peer.path.c_str(), buffer, 1, "ath0", 1, 0), -22);
}

TEST(was_request, an_answer_in_pieces_is_put_together) {
    char buffer[3] = {};
    const driver peer([](int fd) {
        received(fd, 51);
        for (const char byte : "\0\0\0\0\3\0\0\0xyz"s) answer(fd, {&byte, 1});
    });
    EXPECT_EQ(was_request(peer.path.c_str(), buffer, 3, "ath0", 1, 0), 0);
    EXPECT_EQ(std::string(buffer, 3), "xyz");
}

TEST(was_request, an_answer_longer_than_the_buffer_is_an_error_and_writes_nothing) {
    char buffer[5] = {'a', 'b', 'c', 'd', 'e'};
    const driver peer([](int fd) {
        received(fd, 52);
        answer(fd, "\0\0\0\0\5\0\0\0vwxyz"s);
    });
    EXPECT_EQ(was_request(peer.path.c_str(), buffer, 4, "ath0", 1, 0), -1);
    EXPECT_EQ(std::string(buffer, 5), "abcde");
}

TEST(was_request, a_driver_that_goes_away_is_an_error_at_every_point) {
    char buffer[4] = {};
    const auto asked = [&buffer](std::function<void(int)> talk) {
        const driver peer(std::move(talk));
        return was_request(peer.path.c_str(), buffer, 4, "ath0", 1, 0);
    };
    EXPECT_EQ(asked([](int) {}), -1) << "before the request";
    EXPECT_EQ(asked([](int fd) { received(fd, 52); }), -1) << "before the answer";
    EXPECT_EQ(asked([](int fd) { received(fd, 52), answer(fd, "\0\0\0\0"s); }), -1) << "in the header";
    EXPECT_EQ(asked([](int fd) { received(fd, 52), answer(fd, "\0\0\0\0\4\0\0\0ab"s); }), -1)
        << "in the bytes";
}

TEST(was_request, without_a_driver_it_fails_at_once) {
    const temporary_folder folder;
    char buffer[4] = {};
    EXPECT_EQ(was_request(folder.file("nobody").c_str(), buffer, 4, "ath0", 1, 0), -1);
    EXPECT_EQ(was_request(std::string(200, 'x').c_str(), buffer, 4, "ath0", 1, 0), -1)
        << "no such long socket path";
}

TEST(was_request, wrong_arguments_are_refused) {
    char buffer[4] = {};
    EXPECT_EQ(was_request("/nowhere", buffer, 4, nullptr, 1, 0), -1);
    EXPECT_EQ(was_request("/nowhere", buffer, -1, "ath0", 1, 0), -1);
    EXPECT_EQ(was_request("/nowhere", nullptr, 4, "ath0", 1, 0), -1);
    EXPECT_EQ(was_request("/nowhere", buffer, 0x7fffffff, "ath0", 1, 0), -1);
}

TEST(was_request, a_request_without_bytes_needs_no_buffer) {
    const driver peer([](int fd) {
        received(fd, 48);
        answer(fd, "\0\0\0\0\0\0\0\0"s);
    });
    EXPECT_EQ(was_request(peer.path.c_str(), nullptr, 0, "ath0", 1, 0), 0);
}

TEST(was_request, an_interface_name_that_fills_its_field_travels_without_terminator) {
    std::string seen;
    {
        const driver peer([&seen](int fd) {
            seen = received(fd, 48);
            answer(fd, "\0\0\0\0\0\0\0\0"s);
        });
        EXPECT_EQ(was_request(peer.path.c_str(), nullptr, 0, std::string(40, 'i').c_str(), 1, 0), 0);
    }
    EXPECT_EQ(seen.substr(12), std::string(36, 'i'));
}

TEST(was_request, a_signal_while_it_waits_changes_nothing) {
    struct sigaction ignore {};
    struct sigaction before {};
    ignore.sa_handler = [](int) {}; // interrupts blocking calls: no restart
    sigaction(SIGUSR1, &ignore, &before);
    const pthread_t asker = pthread_self();
    char buffer[3] = {};
    {
        const driver peer([asker](int fd) {
            received(fd, 51);
            pthread_kill(asker, SIGUSR1);
            answer(fd, "\0\0\0\0\3\0"s);
            pthread_kill(asker, SIGUSR1);
            answer(fd, "\0\0abc"s);
        });
        EXPECT_EQ(was_request(peer.path.c_str(), buffer, 3, "ath0", 1, 0), 0);
    }
    EXPECT_EQ(std::string(buffer, 3), "abc");
    sigaction(SIGUSR1, &before, nullptr);
}

} // namespace
