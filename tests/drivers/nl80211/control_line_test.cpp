#include "nl80211/control_line.h"

#include <gtest/gtest.h>
#include <string>

namespace {

class control_line_text : public testing::Test {
protected:
    control_line decode(std::string_view line) { return control_line_decode(line, room); }
    std::uint8_t room[control_frame_max];
};

constexpr mac_address anna{{2, 0, 0, 0, 0x0a, 1}};

TEST_F(control_line_text, of_an_answer) {
    EXPECT_EQ(decode("OK\n").kind, control_line::ok);
    EXPECT_EQ(decode("FAIL\n").kind, control_line::fail);
    EXPECT_EQ(decode("PONG\n").kind, control_line::pong);
    EXPECT_EQ(decode("UNKNOWN COMMAND\n").kind, control_line::other);
}

TEST_F(control_line_text, of_a_station_has_its_address_and_may_have_more_words) {
    for (const char *line : {"<3>AP-STA-CONNECTED 02:00:00:00:0a:01",
                             "<3>AP-STA-CONNECTED 02:00:00:00:0A:01 keyid=x auth_alg=sae",
                             "<12>AP-STA-CONNECTED 02:00:00:00:0a:01 vlanid=1"}) {
        const control_line one = decode(line);
        EXPECT_EQ(one.kind, control_line::connected) << line;
        EXPECT_EQ(one.mac, anna) << line;
    }
    EXPECT_EQ(decode("<3>AP-STA-DISCONNECTED 02:00:00:00:0a:01").kind, control_line::disconnected);
}

TEST_F(control_line_text, of_the_global_socket_names_its_network) {
    const control_line one = decode("IFNAME=wlan1 <3>AP-STA-DISCONNECTED 02:00:00:00:0a:01");
    EXPECT_EQ(one.kind, control_line::disconnected);
    EXPECT_EQ(one.ifname, "wlan1");
}

TEST_F(control_line_text, of_a_frame_has_its_bytes) {
    const control_line one = decode("<3>AP-MGMT-FRAME-RECEIVED buf=b0000aFf");
    ASSERT_EQ(one.kind, control_line::frame_received);
    ASSERT_EQ(one.frame.size(), 4U);
    EXPECT_EQ(one.frame[0], 0xb0);
    EXPECT_EQ(one.frame[3], 0xff);
}

TEST_F(control_line_text, of_a_network) {
    EXPECT_EQ(decode("<3>AP-DISABLED ").kind, control_line::disabled);
    EXPECT_EQ(decode("<3>INTERFACE-DISABLED ").kind, control_line::disabled);
    EXPECT_EQ(decode("<3>AP-ENABLED ").kind, control_line::enabled);
    EXPECT_EQ(decode("<3>CTRL-EVENT-TERMINATING ").kind, control_line::terminating);
}

TEST_F(control_line_text, of_a_repeater) {
    const control_line one =
        decode("<3>WDS-STA-INTERFACE-ADDED ifname=wlan1.sta1 sta_addr=02:00:00:00:0a:01");
    EXPECT_EQ(one.kind, control_line::wds_interface);
    EXPECT_EQ(one.mac, anna);
}

TEST_F(control_line_text, that_is_not_as_it_must_be_is_nothing) {
    for (const char *line : {"", "<", "<3", "<3>", "<3>AP-STA-CONNECTED", "<3>AP-STA-CONNECTED ",
                             "<3>AP-STA-CONNECTED 02:00:00:00:0a", "<3>AP-STA-CONNECTED 02:00:00:00:0a:0g",
                             "<3>AP-STA-CONNECTED 02:00:00:00:0a:011", "AP-STA-CONNECTED 02:00:00:00:0a:01",
                             "<3>AP-STA-CONNECTEDX 02:00:00:00:0a:01", "<3>AP-MGMT-FRAME-RECEIVED buf=abc",
                             "<3>AP-MGMT-FRAME-RECEIVED buf=zz", "<3>AP-MGMT-FRAME-RECEIVED abcd",
                             "<3>WDS-STA-INTERFACE-ADDED ifname=wlan1.sta1", "IFNAME=", "IFNAME=wlan1"})
        EXPECT_EQ(decode(line).kind, control_line::other) << line;
    const std::string long_frame =
        "<3>AP-MGMT-FRAME-RECEIVED buf=" + std::string(2 * control_frame_max + 2, '0');
    EXPECT_EQ(decode(long_frame).kind, control_line::other);
    EXPECT_EQ(decode(std::string("<3>AP-STA-CONNECTED 02:00:00:00:0a:01\0", 38)).kind, control_line::other);
}

} // namespace
