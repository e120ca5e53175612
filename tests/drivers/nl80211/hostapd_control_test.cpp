// hostapd is played by a datagram socket.
#include "nl80211/hostapd_control.h"
#include "tests/temporary_folder.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

class hostapds_socket : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_EQ(uloop_init(), 0);
        control = std::make_unique<hostapd_control>(
            hostapd_control::handlers{
                [](void *self, std::uint32_t network, const control_line &line) {
                    static_cast<hostapds_socket *>(self)->happened.push_back(
                        "heard " + std::to_string(network) + " " + std::to_string(line.kind));
                },
                [](void *self, std::uint32_t, bool attached, bool frames) {
                    static_cast<hostapds_socket *>(self)->happened.push_back(!attached ? "lost"
                                                                             : frames ? "attached with frames"
                                                                                      : "attached");
                },
                this},
            hostapd_control::place{7, "wlan0", folder.path.c_str(), global.c_str()});
    }
    void TearDown() override {
        control.reset();
        stop();
        uloop_done();
    }
    // hostapd has its global socket alone.
    void start_global() {
        path = global;
        start();
    }
    void start() {
        hostapd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof(address.sun_path) - 1);
        ASSERT_EQ(bind(hostapd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)), 0);
    }
    void stop() {
        if (hostapd >= 0) close(hostapd);
        hostapd = -1;
        unlink(path.c_str());
    }
    // The next command; "" when there is none.
    std::string command() {
        char text[256];
        length = sizeof(client);
        const ssize_t got =
            recvfrom(hostapd, text, sizeof(text), 0, reinterpret_cast<sockaddr *>(&client), &length);
        return got < 0 ? std::string() : std::string(text, static_cast<std::size_t>(got));
    }
    void say(const std::string &text) {
        ASSERT_EQ(
            sendto(hostapd, text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&client), length),
            static_cast<ssize_t>(text.size()));
        run();
    }
    // Reads what is waiting: the timer is set to fire after it.
    static void run() {
        // Late it fires before the sockets are looked at: so it fires twice.
        struct : uloop_timeout {
            bool again = true;
        } end{};
        end.cb = [](uloop_timeout *timer) {
            auto *self = static_cast<decltype(end) *>(timer);
            if (std::exchange(self->again, false))
                uloop_timeout_set(timer, 1);
            else
                uloop_end();
        };
        uloop_timeout_set(&end, 20);
        uloop_run();
    }
    void attach(const std::string &frames = "OK\n") {
        control->tend();
        ASSERT_EQ(command(), "ATTACH");
        say("OK\n");
        ASSERT_EQ(command(), "SET notify_mgmt_frames 1");
        say(frames);
    }
    void attach_global(const std::string &frames = "OK\n") {
        start_global();
        control->tend();
        ASSERT_EQ(command(), "ATTACH");
        say("OK\n");
        ASSERT_EQ(command(), "IFNAME=wlan0 SET notify_mgmt_frames 1");
        say(frames);
    }

    const temporary_folder folder;
    std::string path = folder.file("wlan0");
    const std::string global = folder.file("global");
    int hostapd = -1;
    sockaddr_un client{};
    socklen_t length = 0;
    std::vector<std::string> happened;
    std::unique_ptr<hostapd_control> control;
};

using lines = std::vector<std::string>;

TEST_F(hostapds_socket, is_attached_to_and_asked_for_the_stations_frames) {
    start();
    attach();
    EXPECT_EQ(happened, lines{"attached with frames"});
    EXPECT_TRUE(control->is_attached());
}

TEST_F(hostapds_socket, may_know_nothing_of_frames) {
    start();
    attach("FAIL\n");
    EXPECT_EQ(happened, lines{"attached"});
}

TEST_F(hostapds_socket, that_is_not_there_yet_is_tried_again) {
    control->tend();
    start();
    attach();
    EXPECT_TRUE(control->is_attached());
}

TEST_F(hostapds_socket, tells_what_its_stations_do) {
    start();
    attach();
    happened.clear();
    say("<3>AP-STA-CONNECTED 02:00:00:00:00:01");
    say("<3>something else");
    say("<3>AP-STA-DISCONNECTED 02:00:00:00:00:01");
    EXPECT_EQ(happened, (lines{"heard 7 " + std::to_string(control_line::connected),
                               "heard 7 " + std::to_string(control_line::disconnected)}));
}

TEST_F(hostapds_socket, is_emptied_at_once_however_much_it_says) {
    start();
    attach();
    happened.clear();
    const std::string line = "<3>AP-STA-CONNECTED 02:00:00:00:00:01";
    std::size_t said = 0;
    for (int round = 0; round < 20; ++round) {
        while (sendto(hostapd, line.data(), line.size(), 0, reinterpret_cast<const sockaddr *>(&client),
                      length) > 0)
            ++said;
        run();
    }
    EXPECT_GT(said, 40U);
    EXPECT_EQ(happened.size(), said);
}

TEST_F(hostapds_socket, that_died_silently_is_noticed_at_a_command_and_found_again) {
    start();
    attach();
    stop();
    EXPECT_FALSE(control->is_alive());
    EXPECT_EQ(happened, (lines{"attached with frames", "lost"}));
    control->tend();
    start();
    attach();
    EXPECT_EQ(happened.back(), "attached with frames");
}

TEST_F(hostapds_socket, is_pinged_when_silent_and_given_up_without_an_answer) {
    start();
    attach();
    for (int second = 1; second < 5; ++second) control->tend();
    EXPECT_EQ(command(), "");
    control->tend();
    EXPECT_EQ(command(), "PING");
    say("PONG\n");
    for (int second = 1; second < 15; ++second) control->tend();
    EXPECT_TRUE(control->is_attached());
    control->tend();
    EXPECT_FALSE(control->is_attached());
}

TEST_F(hostapds_socket, is_told_to_send_a_station_away_with_a_frame_or_without) {
    start();
    EXPECT_FALSE(control->send_away({{2, 0, 0, 0, 0, 1}}, true)) << "not attached";
    attach();
    EXPECT_TRUE(control->send_away({{2, 0, 0, 0, 0, 1}}, true));
    EXPECT_EQ(command(), "DEAUTHENTICATE 02:00:00:00:00:01");
    EXPECT_TRUE(control->send_away({{2, 0, 0, 0, 0, 0xff}}, false));
    EXPECT_EQ(command(), "DEAUTHENTICATE 02:00:00:00:00:ff tx=0");
}

TEST_F(hostapds_socket, of_all_networks_is_used_where_the_network_has_none) {
    attach_global();
    EXPECT_EQ(happened, lines{"attached with frames"});
    EXPECT_TRUE(control->send_away({{2, 0, 0, 0, 0, 1}}, false));
    EXPECT_EQ(command(), "IFNAME=wlan0 DEAUTHENTICATE 02:00:00:00:00:01 tx=0");
    control->detach();
    EXPECT_EQ(command(), "IFNAME=wlan0 SET notify_mgmt_frames 0");
    EXPECT_EQ(command(), "DETACH");
}

TEST_F(hostapds_socket, of_all_networks_tells_of_this_one_among_them) {
    attach_global();
    happened.clear();
    say("IFNAME=wlan0 <3>AP-STA-CONNECTED 02:00:00:00:00:01");
    say("IFNAME=wlan1 <3>AP-STA-CONNECTED 02:00:00:00:00:02");
    say("IFNAME=wlan00 <3>CTRL-EVENT-TERMINATING ");
    say("<3>AP-STA-CONNECTED 02:00:00:00:00:03");
    EXPECT_EQ(happened, lines{"heard 7 " + std::to_string(control_line::connected)});
}

TEST_F(hostapds_socket, of_all_networks_may_be_of_a_hostapd_without_this_one) {
    attach_global("FAIL-NO-IFNAME-MATCH\n");
    EXPECT_FALSE(control->is_attached());
    EXPECT_EQ(happened, lines{});
}

TEST_F(hostapds_socket, of_all_networks_loses_one_that_has_been_removed) {
    attach_global();
    for (int second = 1; second <= 5; ++second) control->tend();
    EXPECT_EQ(command(), "IFNAME=wlan0 PING");
    say("FAIL-NO-IFNAME-MATCH\n");
    EXPECT_EQ(happened, (lines{"attached with frames", "lost"}));
}

TEST_F(hostapds_socket, is_the_networks_own_where_there_are_both) {
    start();
    const int its_own = hostapd;
    const std::string its_path = path;
    start_global();
    control->tend();
    EXPECT_EQ(command(), "");
    close(hostapd);
    unlink(global.c_str());
    hostapd = its_own;
    path = its_path;
    EXPECT_EQ(command(), "ATTACH");
}

TEST_F(hostapds_socket, is_left_as_it_was) {
    start();
    attach();
    control->detach();
    EXPECT_EQ(command(), "SET notify_mgmt_frames 0");
    EXPECT_EQ(command(), "DETACH");
    EXPECT_EQ(command(), "");
}

} // namespace
