// The broker when the system refuses it memory, buffers or descriptors. It runs within the test.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "bus_fixture.h"

#include <broker.h>
#include <connection.h>
#include <listener.h>
#include <send.h>

namespace {

bool g_no_memory;
int g_send_error;   // of every sendmsg; 0 = none
int g_accept_error; // of every accept4; 0 = none
int g_accepts;      // how often clients were asked for

} // namespace

extern "C" {
void *__real_malloc(size_t size);
ssize_t __real_sendmsg(int sock, const msghdr *msg, int flags);
int __real_accept4(int sock, sockaddr *address, socklen_t *size, int flags);

void *__wrap_malloc(size_t size) { return g_no_memory ? nullptr : __real_malloc(size); }
ssize_t __wrap_sendmsg(int sock, const msghdr *msg, int flags) {
    if (g_send_error == 0) return __real_sendmsg(sock, msg, flags);
    errno = g_send_error;
    return -1;
}
int __wrap_accept4(int sock, sockaddr *address, socklen_t *size, int flags) {
    ++g_accepts;
    if (g_accept_error == 0) return __real_accept4(sock, address, size, flags);
    errno = g_accept_error;
    return -1;
}
}

namespace {

constexpr std::size_t large = 900000; // more than a socket takes at once

class broker_faults : public testing::Test {
protected:
    void SetUp() override {
        g_no_memory = false;
        g_send_error = g_accept_error = g_accepts = 0;
        uloop_init();
        ubusd::broker_init(bus_, "/nonexistent");
        int ends[2];
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        peer_ = ends[0];
        client_ = ubusd::client_add(bus_, ends[1], {0, 0, strdup("root"), strdup("root"), nullptr, 0});
        ASSERT_NE(client_, nullptr);
    }
    void TearDown() override {
        ubusd::broker_done(bus_);
        uloop_done();
        close(peer_);
    }
    ubusd::broker &bus() { return bus_; }
    // A message that its peer will know by its number.
    void send(std::uint16_t seq, std::size_t size, int fd = -1) {
        const std::vector<char> content(size);
        ubusd::builder b(bus_.out);
        b.bytes(UBUS_ATTR_DATA, content.data(), content.size());
        const blob_attr *root = b.root();
        ASSERT_NE(root, nullptr);
        g_no_memory = memory_fails_;
        ubusd::client_send(*client_, UBUS_MSG_DATA, seq, 0, root, fd);
        g_no_memory = false;
    }
    // Reads and runs the broker until there is no more. True if the connection has ended.
    bool read_all() {
        std::vector<char> some(65536);
        for (;;) {
            const ssize_t n = recv(peer_, some.data(), some.size(), MSG_DONTWAIT);
            if (n == 0) return true;
            if (n > 0) got_.insert(got_.end(), some.begin(), some.begin() + n);
            for (int turn = 0; turn < 5; ++turn) uloop_run_timeout(0);
            if (n < 0 && recv(peer_, some.data(), 1, MSG_DONTWAIT | MSG_PEEK) < 0) return false;
        }
    }
    // The numbers of the messages that were read.
    std::vector<int> numbers() const {
        std::vector<int> seqs;
        for (std::size_t at = 0; at + ubus_wire::header_size <= got_.size();) {
            ubus_msghdr hdr;
            blob_attr root;
            std::memcpy(&hdr, &got_[at], sizeof hdr);
            std::memcpy(&root, &got_[at + sizeof hdr], sizeof root);
            seqs.push_back(be16_to_cpu(hdr.seq));
            at += sizeof hdr + blob_raw_len(&root);
        }
        return seqs;
    }
    bool memory_fails_ = false;
    std::vector<char> got_;
    int peer_;

private:
    ubusd::broker bus_;
    ubusd::client *client_;
};

} // namespace

TEST_F(broker_faults, a_message_whose_rest_cannot_be_kept_ends_the_connection) {
    memory_fails_ = true;
    send(1, large);
    EXPECT_TRUE(read_all()) << "the next message would be taken for the rest of this one";
    EXPECT_GT(got_.size(), 0u);
    EXPECT_LT(got_.size(), large);
}

TEST_F(broker_faults, a_message_whose_rest_cannot_be_sent_ends_the_connection) {
    send(1, large);
    send(2, 4);
    g_send_error = ENOBUFS;
    EXPECT_TRUE(read_all());
    EXPECT_GT(got_.size(), 0u);
    EXPECT_LT(got_.size(), large);
}

TEST_F(broker_faults, a_message_that_cannot_be_kept_at_all_is_lost_alone) {
    send(1, large);
    memory_fails_ = true;
    send(2, 4);
    memory_fails_ = false;
    send(3, 4);
    EXPECT_FALSE(read_all());
    EXPECT_EQ(numbers(), (std::vector<int>{1, 3}));
}

TEST_F(broker_faults, a_message_whose_descriptor_cannot_be_kept_does_not_go_without_it) {
    send(1, large);
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    send(2, 4, STDERR_FILENO);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    send(3, 4, STDERR_FILENO);
    EXPECT_FALSE(read_all());
    EXPECT_EQ(numbers(), (std::vector<int>{1, 3}));
}

TEST_F(broker_faults, messages_that_came_together_are_answered_in_one_turn_but_for_a_limit) {
    std::vector<char> pings;
    for (std::uint16_t seq = 0; seq < 40; ++seq) {
        const ubus_msghdr hdr = ubus_wire::make_header(UBUS_MSG_PING, seq, 0);
        const std::uint32_t root[] = {cpu_to_be32(12), cpu_to_be32(UBUS_ATTR_OBJID << 24 | 8), 7};
        pings.insert(pings.end(), reinterpret_cast<const char *>(&hdr),
                     reinterpret_cast<const char *>(&hdr + 1));
        pings.insert(pings.end(), reinterpret_cast<const char *>(root),
                     reinterpret_cast<const char *>(root + 3));
    }
    ASSERT_EQ(::send(peer_, pings.data(), pings.size(), 0), static_cast<ssize_t>(pings.size()));
    std::vector<char> answers(65536);
    const auto answered_in_a_turn = [&] {
        uloop_run_timeout(0);
        const ssize_t n = recv(peer_, answers.data(), answers.size(), MSG_DONTWAIT);
        got_.assign(answers.begin(), answers.begin() + std::max<ssize_t>(n, 0));
        return numbers().size() / 2; // data and status
    };
    EXPECT_EQ(answered_in_a_turn(), 16u);
    EXPECT_EQ(answered_in_a_turn(), 16u);
    EXPECT_EQ(answered_in_a_turn(), 8u);
    EXPECT_EQ(answered_in_a_turn(), 0u);
}

TEST_F(broker_faults, clients_that_cannot_be_accepted_are_asked_for_seldom_until_they_can) {
    const temporary_folder folder;
    const std::string path = folder.file("ubus.sock");
    ubusd::listener listener;
    ASSERT_EQ(ubusd::listener_open(listener, bus(), path.c_str()), 0);
    for (const int error : {ENOMEM, ENOBUFS, EMFILE, ENFILE}) {
        g_accept_error = error;
        g_accepts = 0;
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strcpy(address.sun_path, path.c_str());
        const int newcomer = socket(AF_UNIX, SOCK_STREAM, 0);
        ASSERT_EQ(connect(newcomer, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
        EXPECT_TRUE(run_until([] { return g_accepts > 0; })) << error;
        const auto asked_first = std::chrono::steady_clock::now();
        for (int turn = 0; turn < 1000; ++turn) uloop_run_timeout(0);
        const auto pauses = (std::chrono::steady_clock::now() - asked_first) / std::chrono::milliseconds(50);
        EXPECT_LE(g_accepts, 2 * (pauses + 1)) << error;

        g_accept_error = 0;
        pollfd greeted{newcomer, POLLIN, 0};
        EXPECT_TRUE(run_until([&] { return poll(&greeted, 1, 0) == 1; })) << error;
        close(newcomer);
    }
    ubusd::listener_close(listener);
}
