// Messages as such: cut and broken ones, those of other families, the family's announcements; and their socket.
#include "support/events.h"

#include "life/listen.h"
#include "life/pass.h"
#include "model/table.h"

#include <cstring>
#include <gmock/gmock.h>
#include <linux/netlink.h>
#include <sys/socket.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using message = Events;

// Bytes that were not received are read as zero: a header alone is a disassociation of 00:00:00:00:00:00.
TEST_F(message, short_event_is_completed_with_zeros) {
    byte_vector shorter = association();
    shorter.resize(24);
    shorter[0] = 24;
    shorter[1] = 0;
    handle(shorter);
    EXPECT_EQ(event_lines()[0], "assoc 0 mac 00:00:00:00:00:00\n");
    shorter.resize(16);
    shorter[0] = 16;
    forget_log();
    handle(shorter);
    EXPECT_THAT(event_lines(), ElementsAre("Creat a new g_sta.\n")) << "no command, so no event";
    EXPECT_THAT(stations(), IsEmpty());
}

// A cut MAC ends in zeros: six different stations come; 00:00:00:00:00:00 leaves only when the kind is cut off as well.
TEST_F(message, every_length_of_a_message_is_survived) {
    byte_vector bytes = association();
    while (!bytes.empty()) {
        bytes[0] = static_cast<std::uint8_t>(bytes.size());
        if (bytes.size() > 1) bytes[1] = static_cast<std::uint8_t>(bytes.size() >> 8);
        handle(bytes);
        bytes.pop_back();
    }
    EXPECT_EQ(stations().size(), 5U);
}

TEST_F(message, only_the_first_of_several_messages_in_one_datagram_counts) {
    byte_vector two = association();
    const byte_vector second = association({{at::mac_bytes, {9, 9, 9, 9, 9, 9}}});
    two.insert(two.end(), second.begin(), second.end());
    handle(two);
    ASSERT_EQ(stations().size(), 1U);
    EXPECT_STREQ(stations()[0]->mac, event_mac);
}

TEST_F(message, broken_messages_are_dropped_with_a_line) {
    byte_vector short_one = association();
    short_one.resize(10);
    for (const byte_vector &bytes :
         {association({{at::type, {2, 0}}}), short_one, association({{0, from_hex("0f000000")}}),
          association({{0, from_hex("e9010000")}}), association({{0, from_hex("ffffffff")}}),
          byte_vector{}}) {
        forget_log();
        handle(bytes);
        EXPECT_THAT(log_lines(), ElementsAre("g_sta_recv_msg: The message contains an error.\n"));
    }
    forget_log();
    std::array<std::uint8_t, sta_nl_message_max> nothing{};
    sta_nl_handle(nothing, -1);
    EXPECT_THAT(log_lines(), ElementsAre("g_sta_recv_msg: The message contains an error.\n"));
    EXPECT_THAT(stations(), IsEmpty());
}

TEST_F(message, other_commands_and_families_are_no_events) {
    for (const byte_vector &bytes :
         {association({{at::command, {3}}}), association({{at::type, {0x1d, 0}}}),
          association({{at::type, {0x1c, 1}}}), association({{at::type, {0xff, 0xff}}})}) {
        forget_log();
        handle(bytes);
        EXPECT_THAT(log_lines(), ElementsAre("g_sta_recv_msg: Creat a new g_sta.\n"));
    }
    EXPECT_THAT(stations(), IsEmpty());
}

TEST_F(message, unknown_family_matches_nothing) {
    for (const int unknown : {0, -1}) {
        sta_nl.family = unknown;
        for (const byte_vector &bytes :
             {association({{at::type, {0, 0}}}), association({{at::type, {0xff, 0xff}}})}) {
            forget_log();
            handle(bytes);
            EXPECT_THAT(log_lines(), ElementsAre("g_sta_recv_msg: Creat a new g_sta.\n"));
        }
    }
}

// The controller's announcement of a family that has come.
byte_vector announcement(const std::string &name_hex = "0b00 0200 54 4b 5f 53 54 41 00 00",
                         const std::string &cmd = "01") {
    return from_hex("28000000 1000 0000 00000000 00000000 " + cmd + " 02 0000 " + name_hex +
                    " 0600 0100 2a00 0000");
}

TEST_F(message, announced_family_is_registered_with_without_the_limit) {
    sta_nl.family = 0;
    sta_max_num = 192;
    handle(announcement());
    EXPECT_EQ(sta_nl.family, 0x2a);
    ASSERT_EQ(sent_messages().size(), 1U);
    const byte_vector &sent = sent_messages()[0].bytes;
    ASSERT_EQ(sent.size(), 40U);
    EXPECT_EQ(byte_vector(sent.begin(), sent.begin() + 24),
              from_hex("28000000 2a00 0100 00000000 44332211 01 01 0000 1100 0100"));
    std::array<std::uint32_t, 3> words; // in the machine's own order
    std::memcpy(words.data(), &sent[24], sizeof(words));
    EXPECT_THAT(words, ElementsAre(1, 0x11223344, 0));
    EXPECT_EQ(byte_vector(sent.begin() + 36, sent.end()), from_hex("00 000000"));
    EXPECT_THAT(event_lines(), ElementsAre("Creat a new g_sta.\n"));
}

TEST_F(message, known_family_is_registered_with_again) {
    handle(announcement());
    handle(announcement());
    EXPECT_EQ(sta_nl.family, 0x2a);
    EXPECT_EQ(sent_messages().size(), 2U);
}

TEST_F(message, other_announcements_change_nothing) {
    for (const byte_vector &bytes : {announcement("0b00 0200 6f 74 68 65 72 00 00 00"), // another family
                                     announcement("0b00 0200 54 4b 5f 53 54 41 00 00", "02"), // it has gone
                                     announcement("ffff 0200 54 4b 5f 53 54 41 00 00")}) { // a wrong length
        forget_log();
        handle(bytes);
        EXPECT_EQ(sta_nl.family, driver_family);
        EXPECT_THAT(log_lines(), ElementsAre("g_sta_recv_msg: Creat a new g_sta.\n"));
    }
    EXPECT_THAT(sent_messages(), IsEmpty());
}

TEST_F(message, registration_that_cannot_be_sent_is_logged_and_survived) {
    answer_sendto = [](const byte_vector &) -> long {
        errno = ENOBUFS;
        return -1;
    };
    handle(announcement());
    EXPECT_THAT(log_lines(), ElementsAre("level 3 NOTICE: the driver has announced the family TK_STA\n",
                                         "sta_nl_send_msg: send msg to kernel failed.\n",
                                         "g_sta_recv_msg: Creat a new g_sta.\n"));
}

// The loop's callback, on a real socket.
struct channel_socket : Events {
    channel_socket() {
        answer_sendto = nullptr;
        EXPECT_EQ(sta_netlink_init(), 0);
        sta_nl.family = driver_family;
        forget_log();
    }
    // What the driver sends to the daemon's port.
    static void driver_sends(const byte_vector &bytes) {
        const int driver = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);
        sockaddr_nl to{};
        to.nl_family = AF_NETLINK;
        to.nl_pid = sta_nl.port;
        const auto *address = reinterpret_cast<const sockaddr *>(&to);
        EXPECT_EQ(::sendto(driver, bytes.data(), bytes.size(), 0, address, sizeof(to)),
                  static_cast<ssize_t>(bytes.size()))
            << std::strerror(errno);
        close(driver);
    }
};

TEST_F(channel_socket, event_that_arrives_is_handled_by_the_loop) {
    driver_sends(association());
    EXPECT_TRUE(loop_until([] { return !stations().empty(); }));
    EXPECT_EQ(event_lines().at(0), "Run in function g_sta_recv_msg\n");
    EXPECT_EQ(event_lines().at(1), "assoc 1 mac 00:11:22:33:44:ab\n");
    driver_sends(disassociation());
    EXPECT_TRUE(loop_until([] { return stations().empty(); }));
}

TEST_F(channel_socket, many_events_in_one_go_are_all_handled_in_order) {
    for (std::uint8_t i = 0; i < 50; ++i) driver_sends(association({{at::mac_bytes, {2, 0, 0, 0, 0, i}}}));
    EXPECT_TRUE(loop_until([] { return stations().size() == 50; }));
    EXPECT_STREQ(stations()[0]->mac, "02:00:00:00:00:00");
    EXPECT_STREQ(stations()[49]->mac, "02:00:00:00:00:31");
}

// The backup file is written for all of them when nobody waits behind the last; each is reported and gone from the table at once.
TEST_F(channel_socket, crowd_that_leaves_at_once_is_gone_from_the_backup_file_when_nobody_waits) {
    constexpr std::uint8_t people = 20;
    const auto of = [](std::uint8_t number) { return change{at::mac_bytes, {2, 0, 0, 0, 0, number}}; };
    for (std::uint8_t i = 0; i < people; ++i) handle(association({of(i)}));
    sta_sta_flow_count_proc();
    const auto is_in_the_file = [](const char *mac) {
        return read_file("/tmp/sta_sta.info").find(mac) != std::string::npos;
    };
    for (const std::uint8_t leaver : std::initializer_list<std::uint8_t>{3, 7, 11})
        driver_sends(disassociation({of(leaver)}));
    driver_sends(association({of(30)}));
    for (int turn = 0; turn < 3; ++turn) g_sta_recv_msg(&sta_netlink_watcher, ULOOP_READ);
    EXPECT_EQ(stations().size(), people - 3U);
    EXPECT_TRUE(is_in_the_file("02:00:00:00:00:03")) << "somebody waits";
    g_sta_recv_msg(&sta_netlink_watcher, ULOOP_READ);
    for (const char *gone : {"02:00:00:00:00:03", "02:00:00:00:00:07", "02:00:00:00:00:0b"})
        EXPECT_FALSE(is_in_the_file(gone)) << gone;
    for (const char *here : {"02:00:00:00:00:00", "02:00:00:00:00:04", "02:00:00:00:00:13"})
        EXPECT_TRUE(is_in_the_file(here)) << here;
    driver_sends(disassociation({of(4)}));
    g_sta_recv_msg(&sta_netlink_watcher, ULOOP_READ);
    EXPECT_FALSE(is_in_the_file("02:00:00:00:00:04"));
}

TEST_F(channel_socket, message_longer_than_the_buffer_is_an_error) {
    byte_vector longer = association();
    longer.resize(3000);
    longer[0] = 0xb8; // 3000
    longer[1] = 0x0b;
    driver_sends(longer);
    EXPECT_TRUE(loop_until([] { return log_records().size() >= 2; }));
    EXPECT_THAT(event_lines(),
                ElementsAre("Run in function g_sta_recv_msg\n", "The message contains an error.\n"));
}

TEST_F(channel_socket, datagram_of_nothing_is_an_error) {
    answer_recv = [](void *, std::size_t size) -> long {
        EXPECT_EQ(size, 2068U);
        return 0;
    };
    g_sta_recv_msg(&sta_netlink_watcher, ULOOP_READ);
    EXPECT_THAT(event_lines(),
                ElementsAre("Run in function g_sta_recv_msg\n", "The message contains an error.\n"));
}

// The loop removes a descriptor in error before its callback runs.
TEST_F(channel_socket, failing_receive_is_logged_and_the_socket_watched_again) {
    uloop_fd_delete(&sta_netlink_watcher);
    answer_recv = [](void *, std::size_t) -> long {
        errno = ENOBUFS;
        return -1;
    };
    g_sta_recv_msg(&sta_netlink_watcher, 0);
    EXPECT_THAT(event_lines(), ElementsAre("Run in function g_sta_recv_msg\n",
                                           "Recv msg error. -1 [105] [No buffer space available]\n"));
    EXPECT_TRUE(sta_netlink_watcher.registered);
    EXPECT_EQ(sta_netlink_watcher.flags & (ULOOP_READ | ULOOP_WRITE | ULOOP_EDGE_TRIGGER | ULOOP_BLOCKING),
              9);
    answer_recv = nullptr;
    driver_sends(association());
    EXPECT_TRUE(loop_until([] { return !stations().empty(); }));
}

TEST_F(channel_socket, readable_socket_that_the_loop_let_go_of_is_watched_again) {
    uloop_fd_delete(&sta_netlink_watcher);
    driver_sends(association());
    g_sta_recv_msg(&sta_netlink_watcher, ULOOP_READ);
    EXPECT_TRUE(sta_netlink_watcher.registered);
    EXPECT_EQ(stations().size(), 1U);
}

// The kernel itself answers a request for a family that it does not know with an error message.
TEST_F(channel_socket, error_of_the_kernel_is_dropped_with_a_line) {
    sta_nl_register(1);
    EXPECT_TRUE(loop_until([] { return log_records().size() >= 2; }));
    EXPECT_THAT(event_lines(),
                ElementsAre("Run in function g_sta_recv_msg\n", "The message contains an error.\n"));
}

} // namespace
