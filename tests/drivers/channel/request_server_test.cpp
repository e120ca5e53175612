// Our libwas asks, on a thread of its own, as the daemon does.
#include "channel/request_server.h"
#include "tests/temporary_folder.h"
#include "was/was_request.h"

#include <cerrno>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

class request_server_socket : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(uloop_init(), 0); }
    void TearDown() override { uloop_done(); }
    // Runs the loop while `asker` asks; it ends the loop.
    void while_serving(const std::function<void()> &asker) {
        std::thread thread([&] {
            asker();
            const char byte = 0;
            ASSERT_EQ(write(pipe_[1], &byte, 1), 1);
        });
        ASSERT_EQ(pipe(pipe_), 0);
        uloop_fd done{};
        done.fd = pipe_[0];
        done.cb = [](uloop_fd *, unsigned) { uloop_end(); };
        uloop_fd_add(&done, ULOOP_READ);
        uloop_run();
        thread.join();
        uloop_fd_delete(&done);
        close(pipe_[0]);
        close(pipe_[1]);
    }
    int raw_connection() const {
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
        return fd;
    }

    const temporary_folder folder;
    const std::string path = folder.file("was.sock");
    int asked = 0;
    int pipe_[2] = {-1, -1};
    request_server server{[](void *self, was_question &question) {
                              ++static_cast<request_server_socket *>(self)->asked;
                              if (question.command == 9) return -EIO;
                              for (std::size_t i = 0; i < question.size; ++i)
                                  question.bytes[i] =
                                      static_cast<std::uint8_t>(question.bytes[i] + question.argument);
                              if (question.size > 3) std::memcpy(question.bytes, question.ifname, 3);
                              return 0;
                          },
                          this};
};

TEST_F(request_server_socket, turns_the_askers_buffer_into_the_answer) {
    ASSERT_EQ(server.listen(path.c_str()), 0);
    std::vector<std::uint8_t> buffer(300'000, 5); // more than a socket holds
    int result = 1;
    while_serving([&] {
        result = was_request(path.c_str(), buffer.data(), static_cast<int>(buffer.size()), "ath0", 1, 2);
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(0, std::memcmp(buffer.data(), "ath", 3));
    EXPECT_EQ(buffer[3], 7);
    EXPECT_EQ(buffer.back(), 7);
}

TEST_F(request_server_socket, tells_the_result_alone_when_it_failed) {
    ASSERT_EQ(server.listen(path.c_str()), 0);
    std::uint8_t buffer[8] = {};
    int result = 0;
    while_serving([&] { result = was_request(path.c_str(), buffer, sizeof(buffer), "ath0", 9, 0); });
    EXPECT_EQ(result, -EIO);
}

TEST_F(request_server_socket, answers_others_after_one_hung_up_in_a_request) {
    ASSERT_EQ(server.listen(path.c_str()), 0);
    std::uint8_t buffer[8] = {};
    int result = 1;
    while_serving([&] {
        const int half = raw_connection();
        ASSERT_EQ(send(half, "half of it", 10, 0), 10);
        result = was_request(path.c_str(), buffer, sizeof(buffer), "ath0", 5, 0);
        close(half);
    });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(asked, 1);
}

TEST_F(request_server_socket, hangs_up_on_a_request_larger_than_any_may_be) {
    ASSERT_EQ(server.listen(path.c_str()), 0);
    ssize_t got = -1;
    while_serving([&] {
        const int fd = raw_connection();
        std::uint8_t header[was_request_header] = {};
        wire::put<std::uint32_t>(header + was_request_size, was_size_max + 1);
        ASSERT_EQ(send(fd, header, sizeof(header), MSG_NOSIGNAL), static_cast<ssize_t>(sizeof(header)));
        char byte = 0;
        got = recv(fd, &byte, 1, 0);
        close(fd);
    });
    EXPECT_EQ(got, 0);
    EXPECT_EQ(asked, 0);
}

TEST_F(request_server_socket, replaces_only_a_socket_without_a_listener) {
    {
        request_server before(nullptr, nullptr);
        ASSERT_EQ(before.listen(path.c_str()), 0);
        EXPECT_EQ(server.listen(path.c_str()), EADDRINUSE);
    }
    EXPECT_NE(access(path.c_str(), F_OK), 0) << "it takes its own away";
    const int dead = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof(address.sun_path) - 1);
    ASSERT_EQ(bind(dead, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
    close(dead);
    EXPECT_EQ(server.listen(path.c_str()), 0);
    EXPECT_EQ(request_server(nullptr, nullptr).listen(folder.path.c_str()), ENOTSOCK);
    EXPECT_EQ(request_server(nullptr, nullptr).listen(std::string(108, 'x').c_str()), ENAMETOOLONG);
}

TEST_F(request_server_socket, may_be_asked_by_its_owner_and_its_group_alone) {
    ASSERT_EQ(server.listen(path.c_str()), 0);
    struct stat about {};
    ASSERT_EQ(stat(path.c_str(), &about), 0);
    EXPECT_EQ(about.st_mode & 0777, 0660U);
}

} // namespace
