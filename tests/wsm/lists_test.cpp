// Answers of the daemon as lines and as JSON.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/wsm/canned_bus.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace {

constexpr const char *mac = "02:00:00:00:00:0a";
constexpr const char *hostile = R"("\u001b]0;owned\u0007\u001b[2J\n\u202e\u009b31m")";

TEST(wsm_list, goes_from_page_to_page_until_there_is_no_next) {
    canned_bus bus;
    bus.answers = {content_of(R"({"stations":[{"mac":"02:00:00:00:00:01"}],"next":"02:00:00:00:00:01"})"),
                   content_of(R"({"stations":[{"mac":"02:00:00:00:00:02"}]})")};
    const shown told = screen_of([&] { return list_stations(bus.context(), {true, 80}, false); });
    EXPECT_EQ(told.status, exit_done);
    EXPECT_EQ(told.out, "{\"mac\":\"02:00:00:00:00:01\"}\n{\"mac\":\"02:00:00:00:00:02\"}\n");
    EXPECT_THAT(bus.asked(), ElementsAre(R"(wsmd stations {"limit":128})",
                                         R"(wsmd stations {"after":"02:00:00:00:00:01","limit":128})"));
}

TEST(wsm_list, a_daemon_that_leads_in_a_circle_is_asked_no_more) {
    canned_bus bus;
    bus.answers.assign(5, content_of(R"({"stations":[],"next":"02:00:00:00:00:01"})"));
    const shown told = screen_of([&] { return list_stations(bus.context(), {false, 80}, false); });
    EXPECT_EQ(told.status, exit_done);
    EXPECT_EQ(bus.questions.size(), 2U);
}

TEST(wsm_list, a_station_has_the_address_of_its_record_or_a_routable_one) {
    canned_bus bus;
    bus.answers = {content_of(R"({"stations":[
        {"mac":"a","ip":"10.0.0.1","addresses":[{"address":"10.0.0.9"}]},
        {"mac":"b","addresses":[{"address":"fe80::1"},{"address":"2001:db8::1"},{"address":"10.0.0.2"}]},
        {"mac":"c","addresses":[{"address":"fe80::2"},{"address":"2001:db8::2"}]},
        {"mac":"d","addresses":[{"address":"fe80::3"}]}]})")};
    const shown told = screen_of([&] { return list_stations(bus.context(), {false, 200}, false); });
    EXPECT_EQ(told.status, exit_done);
    EXPECT_EQ(told.out, "STATION  NAME  ADDRESS      NETWORK  IFACE  BAND  DBM  FROM  TO  TIME\n"
                        "a              10.0.0.1                                   0   0      \n"
                        "b              10.0.0.2                                   0   0      \n"
                        "c              2001:db8::2                                0   0      \n"
                        "d                                                         0   0      \n");
}

TEST(wsm_show, long_tables_continue_on_the_next_line_within_the_terminal) {
    for (int width = 20; width < 60; ++width) {
        canned_bus bus;
        bus.answers = {
            content_of(R"({"mac":"02:00:00:00:00:0a","steps":{"auth":1,"assoc":22,"four_way":333,"dhcp":4444},
            "signal":-50,"connected":3661,"private":true,"a member of a long name":"and a text that is long, too",
            "addresses":[{"address":"10.0.0.1","origin":"lease","since":1,"seen":2}],"names":"none","bridges":["br-lan"]})")};
        const shown told = screen_of([&] { return show_station(bus.context(), {false, width}, mac); });
        EXPECT_EQ(told.status, exit_done);
        EXPECT_LE(widest_line(told.out), width) << told.out;
    }
}

TEST(wsm_show, units_follow_figures) {
    canned_bus bus;
    bus.answers = {content_of(R"({"signal":-50,"rx_bytes":12,"connected":3661,"private":true})")};
    const shown told = screen_of([&] { return show_station(bus.context(), {false, 80}, mac); });
    EXPECT_EQ(told.status, exit_done);
    EXPECT_EQ(told.out, "signal            -50 dBm\nrx_bytes          12 bytes\nconnected         "
                        "1h01m\nprivate           yes\n");
}

TEST(wsm_show, an_absent_station_differs_from_a_missing_right) {
    canned_bus bus;
    bus.answers = {{}, {}};
    bus.status = UBUS_STATUS_NOT_FOUND;
    const shown told = screen_of([&] { return show_station(bus.context(), {false, 80}, mac); });
    EXPECT_EQ(told.status, exit_no_rights) << "nor may it ask for the health";
    EXPECT_THAT(told.error, HasSubstr("no right to ask"));
    EXPECT_THAT(bus.asked(), ElementsAre(R"(wsmd station {"mac":"02:00:00:00:00:0a"})", "wsmd health {}"));
}

// Answers with any content: members of a wrong type, texts and member names with control sequences for a terminal.
TEST(wsm_answers, of_any_kind_are_shown_without_harm) {
    const std::string h = hostile;
    const std::string odd[] = {
        "{}",
        R"({"stations":"none","departed":7,"next":[],"total":"x","addresses":{},"names":[]})",
        R"({"stations":["x",1,null,[],{}],"departed":["x",1,null,[],{}]})",
        R"({"stations":[{"mac":1,"name":[],"ip":{},"addresses":"x","signal":"x","rx_bytes":null,"connected":-9223372036854775807}]})",
        R"({"stations":[{"mac":)" + h + R"(,"name":)" + h + R"(,"ip":)" + h + R"(,"ssid":)" + h + "}]}",
        R"({"departed":[{"mac":)" + h + R"(,"name":)" + h + R"(,"ended_by":)" + h + R"(,"reason":)" + h +
            R"(,"left":9223372036854775807}]})",
        "{" + h + ":" + h + R"(,"addresses":[{"address":)" + h + R"(,"origin":)" + h + "}]," + h + ":{" + h +
            ":" + h + "}}",
        R"({"version":)" + h + R"(,"uptime":-1,"stations":{"known":"x"},"family":"x"})"};
    for (const std::string &answer : odd)
        for (const bool json : {false, true})
            for (int command = 0; command < 5; ++command) {
                canned_bus bus;
                bus.answers.assign(2, content_of(answer.c_str()));
                const wanted_output to{json, 80};
                const shown told = screen_of([&] {
                    switch (command) {
                    case 0: return list_stations(bus.context(), to, false);
                    case 1: return list_stations(bus.context(), to, true);
                    case 2: return list_departed(bus.context(), to, 64);
                    case 3: return show_station(bus.context(), to, mac);
                    default: return show_health(bus.context(), to);
                    }
                });
                EXPECT_EQ(unfit_for_a_terminal(told.out), "") << command << " " << answer;
            }
}

TEST(wsm_answers, bytes_that_are_no_message_are_nothing) {
    for (const content &bytes :
         {content{0xff}, content{0, 0, 0, 0}, content{0x83, 0xff, 0xff, 0xff, 0, 1, 'x', 0},
          content{0x06, 0, 0, 8, 1, 2, 3, 4}, // a number that has no name
          content{0x83, 0, 0, 12, 0xff, 0xff, 'x', 0, 'y', 'y', 'y', 'y'}}) {
        canned_bus bus;
        bus.answers.assign(3, bytes);
        const shown told = screen_of([&] { return list_stations(bus.context(), {false, 80}, true); });
        EXPECT_EQ(told.status, exit_done);
        EXPECT_EQ(unfit_for_a_terminal(told.out), "");
    }
}

} // namespace
