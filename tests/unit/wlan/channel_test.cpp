// The netlink channel: real sockets in the program's own network namespace, the family controller of the real kernel, and
// a kernel played by the test where a failure is wanted.
#include "support/calls.h"

#include "life/driver_events.h"
#include "life/listen.h"
#include "model/table.h"
#include "wlan/channel.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <sys/socket.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using netlink = Channel;

sockaddr_nl bound_address(int fd) {
    sockaddr_nl address{};
    socklen_t size = sizeof(address);
    EXPECT_EQ(getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size), 0);
    return address;
}

int option_of(int fd, int option) {
    int value = -1;
    socklen_t size = sizeof(value);
    getsockopt(fd, SOL_SOCKET, option, &value, &size);
    return value;
}

std::size_t open_sockets() {
    std::size_t count = 0;
    for (int fd = 3; fd < 256; ++fd)
        if (option_of(fd, SO_TYPE) >= 0) ++count;
    return count;
}

TEST_F(netlink, socket_is_bound_to_a_port_of_the_kernel_and_a_member_of_the_announcements) {
    std::uint32_t port = 0;
    const int fd = sta_nl_socket(&port, 1);
    ASSERT_GE(fd, 0);
    const sockaddr_nl address = bound_address(fd);
    EXPECT_EQ(address.nl_groups, 0x8000U);
    EXPECT_NE(port, 0U);
    EXPECT_EQ(address.nl_pid, port);
    EXPECT_EQ(option_of(fd, SO_TYPE), SOCK_RAW);
    EXPECT_EQ(option_of(fd, SO_PROTOCOL), NETLINK_GENERIC);
    EXPECT_EQ(fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
    EXPECT_EQ(fcntl(fd, F_GETFD), FD_CLOEXEC);
    const int fresh = socket(AF_NETLINK, SOCK_RAW, NETLINK_GENERIC);
    EXPECT_EQ(option_of(fd, SO_RCVBUF), option_of(fresh, SO_RCVBUF)) << "the system's default";
    EXPECT_EQ(option_of(fd, SO_SNDBUF), option_of(fresh, SO_SNDBUF));
    close(fresh);
    close(fd);
    EXPECT_THAT(log_records(), IsEmpty());
}

TEST_F(netlink, socket_without_membership_needs_no_place_for_its_port) {
    const int fd = sta_nl_socket(nullptr, 0);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(bound_address(fd).nl_groups, 0U);
    close(fd);
}

TEST_F(netlink, each_failing_call_has_its_line_and_leaves_no_socket) {
    const std::size_t before = open_sockets();
    std::uint32_t port = 77;
    fail_socket = EMFILE;
    EXPECT_EQ(sta_nl_socket(&port, 1), -1);
    fail_socket = 0;
    fail_bind = EPERM;
    EXPECT_EQ(sta_nl_socket(&port, 1), -1);
    fail_bind = 0;
    fail_getsockname = ENOBUFS;
    EXPECT_EQ(sta_nl_socket(&port, 1), -1);
    EXPECT_THAT(log_lines(),
                ElementsAre("sta_nl_socket: open netlink socket failed.",
                            "sta_nl_socket: client bind failed.", "sta_nl_socket: client local failed."));
    EXPECT_EQ(port, 77U);
    EXPECT_EQ(open_sockets(), before);
}

long take_all(const byte_vector &bytes) { return static_cast<long>(bytes.size()); }

TEST_F(netlink, look_up_of_the_family_is_32_bytes) {
    answer_sendto = take_all;
    receive({});
    sta_nl_get_family_id(5, "TK_STA");
    ASSERT_EQ(sent_messages().size(), 1U);
    EXPECT_EQ(sent_messages()[0].bytes,
              from_hex("20000000 1000 0100 00000000 00000000 03 01 0000 0c00 0200 54 4b 5f 53 54 41 00 00"));
    EXPECT_EQ(sent_messages()[0].fd, 5);
}

TEST_F(netlink, registration_is_40_bytes_with_port_and_limit) {
    answer_sendto = take_all;
    sta_nl = {6, 0x1c, 0x11223344};
    EXPECT_EQ(sta_nl_register(192), 0);
    ASSERT_EQ(sent_messages().size(), 1U);
    EXPECT_EQ(sent_messages()[0].bytes, from_hex("28000000 1c00 0100 00000000 44332211 01 01 0000 1100 0100"
                                                 "01000000 44332211 c0000000 00 000000"));
    EXPECT_EQ(sent_messages()[0].fd, 6);
    sta_nl = {-1, -1, 0};
}

TEST_F(netlink, notice_is_28_bytes_without_payload) {
    answer_sendto = take_all;
    sta_nl = {6, 0x1c, 0x11223344};
    EXPECT_EQ(sta_nl_send_notice(), 0);
    ASSERT_EQ(sent_messages().size(), 1U);
    EXPECT_EQ(sent_messages()[0].bytes,
              from_hex("1c000000 1c00 0100 00000000 44332211 01 01 0000 0500 0400 00000000"));
    sta_nl = {-1, -1, 0};
}

TEST_F(netlink, notice_needs_socket_family_and_port_and_gives_back_what_is_missing) {
    answer_sendto = take_all;
    sta_nl = {-3, -2, 0};
    EXPECT_EQ(sta_nl_send_notice(), -3);
    sta_nl = {6, -2, 0};
    EXPECT_EQ(sta_nl_send_notice(), -2);
    sta_nl = {6, 0x1c, 0};
    EXPECT_EQ(sta_nl_send_notice(), 0);
    sta_nl = {6, 0, 0x11};
    EXPECT_EQ(sta_nl_send_notice(), 0);
    EXPECT_THAT(sent_messages(), IsEmpty());
    sta_nl = {-1, -1, 0};
}

TEST_F(netlink, every_message_goes_to_the_kernel) {
    answer_sendto = take_all;
    EXPECT_EQ(sta_nl_send_msg(5, 0x1c, 1, 2, 3, 4, "ab", 2), 0);
    EXPECT_EQ(sent_messages()[0].address,
              from_hex("1000 0000 00000000 00000000")); // family, padding, port, groups
    EXPECT_EQ(sent_messages()[0].flags, 0);
}

TEST_F(netlink, payload_length_decides_lengths_and_padding) {
    answer_sendto = take_all;
    const std::uint8_t bytes[] = {0xa1, 0xa2, 0xa3, 0xa4};
    const char *expected[] = {
        "1c000000 0700 0100 00000000 09000000 02 03 0000 0500 0600 00000000",
        "1c000000 0700 0100 00000000 09000000 02 03 0000 0600 0600 a1000000",
        "1c000000 0700 0100 00000000 09000000 02 03 0000 0700 0600 a1a20000",
        "1c000000 0700 0100 00000000 09000000 02 03 0000 0800 0600 a1a2a300",
        "20000000 0700 0100 00000000 09000000 02 03 0000 0900 0600 a1a2a3a4 00000000",
    };
    for (int length = 0; length <= 4; ++length) {
        EXPECT_EQ(sta_nl_send_msg(5, 7, 9, 2, 3, 6, bytes, length), 0);
        EXPECT_EQ(sent_messages().back().bytes, from_hex(expected[length])) << length;
    }
}

TEST_F(netlink, missing_payload_travels_as_zeros) {
    answer_sendto = take_all;
    EXPECT_EQ(sta_nl_send_msg(5, 7, 9, 2, 3, 6, nullptr, 5), 0);
    EXPECT_EQ(sent_messages()[0].bytes,
              from_hex("20000000 0700 0100 00000000 09000000 02 03 0000 0a00 0600 00000000 00000000"));
}

TEST_F(netlink, longest_payload_is_sent_and_longer_or_negative_ones_are_refused) {
    answer_sendto = take_all;
    const byte_vector payload(1024, 0xab);
    EXPECT_EQ(sta_nl_send_msg(5, 7, 9, 2, 3, 6, payload.data(), 1024), 0);
    EXPECT_EQ(sent_messages()[0].bytes.size(), 20U + 1032U);
    EXPECT_EQ(sta_nl_send_msg(5, 7, 9, 2, 3, 6, payload.data(), 1025), -1);
    EXPECT_EQ(sta_nl_send_msg(5, 7, 9, 2, 3, 6, payload.data(), -1), -1);
    EXPECT_EQ(sent_messages().size(), 1U);
}

TEST_F(netlink, type_0_sends_nothing) {
    EXPECT_EQ(sta_nl_send_msg(5, 0, 1, 1, 1, 1, "x", 1), 0);
    EXPECT_THAT(sent_messages(), IsEmpty());
}

// Gives these results, one per call; a negative one is an errno.
void play(std::vector<long> results) {
    answer_sendto = [results = std::move(results),
                     next = std::size_t{0}](const byte_vector &) mutable -> long {
        const long one = results.at(next++);
        if (one >= 0) return one;
        errno = static_cast<int>(-one);
        return -1;
    };
}

TEST_F(netlink, busy_kernel_is_asked_again_at_once) {
    play({-EAGAIN, -EAGAIN, -EAGAIN, 28});
    EXPECT_EQ(sta_nl_send_msg(5, 7, 9, 2, 3, 6, nullptr, 0), 0);
    EXPECT_EQ(sent_messages().size(), 4U);
    EXPECT_THAT(log_records(), IsEmpty());
}

TEST_F(netlink, rest_of_a_short_send_follows) {
    play({10, -EAGAIN, 18});
    EXPECT_EQ(sta_nl_send_msg(5, 7, 9, 2, 3, 6, "abc", 3), 0);
    ASSERT_EQ(sent_messages().size(), 3U);
    const byte_vector &whole = sent_messages()[0].bytes;
    EXPECT_EQ(sent_messages()[1].bytes, byte_vector(whole.begin() + 10, whole.end()));
    EXPECT_EQ(sent_messages()[2].bytes, byte_vector(whole.begin() + 10, whole.end()));
}

TEST_F(netlink, any_other_failure_ends_the_sending) {
    for (const int reason : {ENOBUFS, EINTR, EBADF, ECONNREFUSED}) {
        forget_log();
        play({-reason});
        EXPECT_EQ(sta_nl_send_msg(5, 7, 9, 2, 3, 6, nullptr, 0), -1);
        EXPECT_THAT(log_lines(), ElementsAre("sta_nl_send_msg: send msg to kernel failed.\n"));
    }
}

// An earlier value of errno must not make it try for ever.
TEST_F(netlink, send_of_nothing_is_a_failure) {
    play({0});
    errno = EAGAIN;
    EXPECT_EQ(sta_nl_send_msg(5, 7, 9, 2, 3, 6, nullptr, 0), -1);
}

TEST_F(netlink, kernel_s_controller_knows_itself_and_not_the_driver) {
    const int fd = sta_nl_socket(nullptr, 0);
    EXPECT_EQ(sta_nl_get_family_id(fd, "nlctrl"), 0x10);
    EXPECT_EQ(sta_nl_get_family_id(fd, "TK_STA"), 0);
    close(fd);
}

// The controller's answer: "name, then identifier".
byte_vector answer(const std::string &name_hex = "0b00 0200 54 4b 5f 53 54 41 00 00",
                   const std::string &id_hex = "0600 0100 1c00 0000",
                   const std::string &length = "28000000") {
    return from_hex(length + " 1000 0000 00000000 00000000 01 02 0000 " + name_hex + " " + id_hex);
}

int family_of(const byte_vector &message) {
    answer_sendto = take_all;
    receive({message});
    return sta_nl_get_family_id(5, "TK_STA");
}

TEST_F(netlink, identifier_stands_behind_the_name) {
    EXPECT_EQ(family_of(answer()), 0x1c);
    EXPECT_EQ(family_of(answer("0b00 0200 54 4b 5f 53 54 41 00 00", "0600 0100 ffff 0000")), 0xffff);
}

TEST_F(netlink, more_attributes_behind_the_identifier_do_not_matter) {
    byte_vector longer = answer("0b00 0200 54 4b 5f 53 54 41 00 00", "0600 0100 1c00 0000", "30000000");
    const byte_vector version = from_hex("0800 0300 01000000");
    longer.insert(longer.end(), version.begin(), version.end());
    EXPECT_EQ(family_of(longer), 0x1c);
}

TEST_F(netlink, other_names_are_refused) {
    EXPECT_EQ(family_of(answer("0c00 0200 54 4b 5f 53 54 41 58 00")), 0) << "TK_STAX";
    EXPECT_EQ(family_of(answer("0a00 0200 54 4b 5f 53 54 00 00 00")), 0) << "TK_ST";
    EXPECT_EQ(family_of(answer("0400 0200 54 4b 5f 53 54 41 00 00")), 0) << "empty attribute";
}

TEST_F(netlink, other_orders_are_refused) {
    EXPECT_EQ(family_of(answer("0600 0100 1c00 0000", "0b00 0200 54 4b 5f 53 54 41 00 00")), 0);
    EXPECT_EQ(family_of(answer("0b00 0200 54 4b 5f 53 54 41 00 00", "0600 0300 1c00 0000")), 0);
}

TEST_F(netlink, broken_answers_are_refused) {
    byte_vector error = answer();
    error[4] = 2;
    EXPECT_EQ(family_of(error), 0);
    for (const char *length : {"0f000000", "29000000", "ffffffff", "00000000"})
        EXPECT_EQ(family_of(answer("0b00 0200 54 4b 5f 53 54 41 00 00", "0600 0100 1c00 0000", length)), 0)
            << length;
    EXPECT_EQ(family_of({}), 0);
    receive({}); // recv fails
    EXPECT_EQ(sta_nl_get_family_id(5, "TK_STA"), 0);
}

// Every length from none to all, in memory that ends where the message ends.
TEST_F(netlink, answer_that_is_cut_anywhere_is_refused_without_reading_behind_it) {
    const byte_vector whole = answer();
    for (std::size_t length = 0; length < whole.size(); ++length) {
        const byte_vector cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        const int id = sta_nl_family_in(cut.data(), cut.size(), "TK_STA");
        EXPECT_EQ(id, length < 38 ? 0 : 0x1c) << length;
    }
}

TEST_F(netlink, a_family_name_may_lack_its_terminating_zero_and_nothing_else) {
    const byte_vector bare = answer("0a00 0200 54 4b 5f 53 54 41 00 00");
    EXPECT_EQ(sta_nl_family_in(bare.data(), bare.size(), "TK_STA"), 0x1c);
    const byte_vector longer = answer("0b00 0200 54 4b 5f 53 54 41 42 00");
    EXPECT_EQ(sta_nl_family_in(longer.data(), longer.size(), "TK_STA"), 0) << "TK_STAB";
    const byte_vector shorter = answer("0900 0200 54 4b 5f 53 54 00 00 00");
    EXPECT_EQ(sta_nl_family_in(shorter.data(), shorter.size(), "TK_STA"), 0) << "TK_ST";
}

TEST_F(netlink, lying_attribute_lengths_lead_nowhere) {
    for (const char *name : {"ffff 0200 54 4b 5f 53 54 41 00 00", "0000 0200 54 4b 5f 53 54 41 00 00",
                             "0300 0200 54 4b 5f 53 54 41 00 00", "2000 0200 54 4b 5f 53 54 41 00 00"}) {
        const byte_vector message = answer(name);
        EXPECT_EQ(sta_nl_family_in(message.data(), message.size(), "TK_STA"), 0) << name;
    }
    const byte_vector message = answer("0b00 0200 54 4b 5f 53 54 41 00 00", "0500 0100 1c00 0000");
    EXPECT_EQ(sta_nl_family_in(message.data(), message.size(), "TK_STA"), 0) << "an identifier of one byte";
}

TEST_F(netlink, interrupted_wait_for_the_answer_goes_on) {
    answer_sendto = take_all;
    int calls_made = 0;
    answer_recv = [&](void *buffer, std::size_t size) -> long {
        EXPECT_EQ(size, 2068U);
        if (++calls_made < 3) {
            errno = EINTR;
            return -1;
        }
        const byte_vector message = answer();
        std::memcpy(buffer, message.data(), message.size());
        return static_cast<long>(message.size());
    };
    EXPECT_EQ(sta_nl_get_family_id(5, "TK_STA"), 0x1c);
    EXPECT_EQ(calls_made, 3);
}

TEST_F(netlink, look_up_that_cannot_be_sent_waits_for_no_answer) {
    play({-ENOBUFS});
    answer_recv = [](void *, std::size_t) -> long {
        ADD_FAILURE();
        return 0;
    };
    EXPECT_EQ(sta_nl_get_family_id(5, "TK_STA"), 0);
}

TEST_F(netlink, start_registers_with_the_driver_and_watches_the_socket) {
    answer_sendto = take_all;
    receive({answer()});
    sta_max_num = 192;
    EXPECT_EQ(sta_netlink_init(), 0);
    EXPECT_EQ(sta_nl.family, 0x1c);
    ASSERT_EQ(sent_messages().size(), 2U);
    byte_vector expected = from_hex("28000000 1c00 0100 00000000 00000000 01 01 0000 1100 0100"
                                    "01000000 00000000 c0000000 00 000000");
    std::memcpy(&expected[12], &sta_nl.port, 4);
    std::memcpy(&expected[28], &sta_nl.port, 4);
    EXPECT_EQ(sent_messages()[1].bytes, expected);
    EXPECT_TRUE(sta_netlink_watcher.registered);
    EXPECT_EQ(sta_netlink_watcher.fd, sta_nl.socket);
    EXPECT_TRUE(sta_netlink_watcher.cb == g_sta_recv_msg);
    EXPECT_EQ(sta_netlink_watcher.flags & (ULOOP_READ | ULOOP_WRITE | ULOOP_EDGE_TRIGGER | ULOOP_BLOCKING),
              9);
    EXPECT_EQ(fcntl(sta_nl.socket, F_GETFL) & O_NONBLOCK, 0) << "watched, and still blocking";
    EXPECT_EQ(bound_address(sta_nl.socket).nl_groups, 0x8000U);
    EXPECT_THAT(log_lines(), ElementsAre("sta_netlink_init: sta netlink init\n"));
}

// With the real kernel, which has no such family.
TEST_F(netlink, start_without_the_driver_s_family_watches_all_the_same) {
    EXPECT_EQ(sta_netlink_init(), 0);
    EXPECT_LE(sta_nl.family, 0);
    EXPECT_EQ(sent_messages().size(), 1U) << "the look-up only";
    EXPECT_TRUE(sta_netlink_watcher.registered);
    EXPECT_THAT(log_lines(), ElementsAre("sta_netlink_init: sta netlink init\n",
                                         "sta_netlink_init: get sta family id failed.\n",
                                         "level 3 NOTICE: no driver has announced the family TK_STA yet: no "
                                         "station can be seen\n"));
}

TEST_F(netlink, registration_that_cannot_be_sent_fails_the_start_and_leaves_the_socket_open) {
    int sends = 0;
    answer_sendto = [&sends](const byte_vector &bytes) -> long {
        if (++sends == 1) return static_cast<long>(bytes.size());
        errno = ENOBUFS;
        return -1;
    };
    receive({answer()});
    EXPECT_EQ(sta_netlink_init(), -1);
    EXPECT_TRUE(logged("sta_netlink_init", "send pid msg failed.\n"));
    EXPECT_FALSE(sta_netlink_watcher.registered);
    EXPECT_EQ(option_of(sta_nl.socket, SO_TYPE), SOCK_RAW) << "still open";
}

TEST_F(netlink, start_fails_without_a_socket) {
    fail_socket = EMFILE;
    EXPECT_EQ(sta_netlink_init(), -1);
    EXPECT_TRUE(logged("sta_netlink_init", "create socket failed.\n"));
    EXPECT_FALSE(sta_netlink_watcher.registered);
    EXPECT_THAT(sent_messages(), IsEmpty());
}

} // namespace
