// Notifications as they come, and a kick.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/wsm/canned_bus.h"
#include "wsm/watch.h"

using testing::EndsWith;
using testing::StartsWith;

namespace {

constexpr const char *mac = "02:00:00:00:00:0a";

shown watched(std::vector<canned_bus::notification> notifications, bool json = false, int width = 100) {
    canned_bus bus;
    bus.notifications = std::move(notifications);
    return screen_of([&] { return watch_stations(bus.context(), {json, width}); });
}

shown kicked(canned_bus &bus, bool json = false) {
    return screen_of([&] { return kick_station(bus.context(), {json, 80}, mac); });
}

// The line of one notification, without its time.
std::string line_of(const char *kind, const std::string &message) {
    const std::string out = watched({{kind, content_of(message.c_str())}}).out;
    return out.size() > 10 ? out.substr(10) : out;
}

TEST(wsm_watch, each_kind_says_what_matters_of_it) {
    EXPECT_EQ(line_of("joined", R"({"mac":"m","station":{"interface":"ath0","ssid":"Lobby"}})"),
              "joined   m                  ath0 at Lobby\n");
    EXPECT_EQ(line_of("joined", R"({"mac":"m","again":true,"station":{"interface":"ath0","ssid":""}})"),
              "joined   m                  ath0 again \n");
    EXPECT_EQ(
        line_of(
            "left",
            R"({"mac":"m","departure":{"interface":"ath0","lasted":61,"ended_by":"idle","reason":4,"name":"x"}})"),
        "left     m                  ath0 after 1m, ended by idle  x\n");
    EXPECT_EQ(line_of("roamed", R"({"mac":"m","from":{"interface":"ath0"},"to":{"interface":"ath1"}})"),
              "roamed   m                  from ath0 to ath1\n");
    EXPECT_EQ(line_of("changed", R"({"mac":"m","address":"10.0.0.1","origin":"lease"})"),
              "changed  m                  address 10.0.0.1 (lease)\n");
    EXPECT_EQ(line_of("changed", R"({"mac":"m","name":"tv","origin":"event"})"),
              "changed  m                  name tv (event)\n");
    EXPECT_EQ(line_of("resync", R"({"arrived":2,"departed":-1})"),
              "resync                      events were lost: 2 had come, -1 had gone\n");
    EXPECT_EQ(line_of("other", R"({"mac":"m"})"), "other    m                  \n");
}

TEST(wsm_watch, a_place_of_any_length_stays_within_its_line) {
    for (const std::size_t length : {490U, 503U, 504U, 505U, 506U, 507U, 508U, 509U, 2000U}) {
        const std::string name(length, 'i');
        const std::string line = line_of("roamed", R"({"mac":"m","from":{"interface":")" + name +
                                                       R"("},"to":{"interface":")" + name + "\"}}");
        EXPECT_THAT(line, StartsWith("roamed   m                  from iii")) << length;
        EXPECT_THAT(line, EndsWith("~\n")) << length;
    }
}

TEST(wsm_watch, a_gap_in_the_numbers_is_printed) {
    const shown whole =
        watched({{"joined", content_of(R"({"seq":4})")}, {"left", content_of(R"({"seq":5})")}});
    EXPECT_EQ(whole.error, "wsm: wsmd has gone\n");
    EXPECT_EQ(whole.status, exit_no_daemon);
    const shown torn =
        watched({{"joined", content_of(R"({"seq":4})")}, {"left", content_of(R"({"seq":6})")}});
    EXPECT_EQ(torn.error, "wsm: some were missed: wsm list says how it is now\nwsm: wsmd has gone\n");
}

TEST(wsm_watch, as_json_each_line_is_one_object_whatever_the_kind_is_called) {
    for (const char *kind : {"joined", "a\"b\\c", "\x1b[2J", "\xff", "\u202e"}) {
        const shown told = watched({{kind, content_of(R"({"mac":"m"})")}}, true);
        EXPECT_EQ(unfit_for_a_terminal(told.out), "");
        EXPECT_THAT(told.out, EndsWith(":{\"mac\":\"m\"}}\n"));
        content_of(told.out.c_str()); // which ends the test when it is no JSON
    }
    EXPECT_THAT(watched({{"a\"b\\c", {}}}, true).out, StartsWith(R"({"a\"b\\c":)"));
}

TEST(wsm_kick, asks_where_the_station_is_and_waits_until_it_has_gone) {
    canned_bus bus;
    bus.answers = {content_of(R"({"mac":"02:00:00:00:00:0a","radio":1})"),
                   content_of(R"({"total":3})"),
                   {},
                   {},
                   content_of(R"({"total":4,"departed":[{"mac":"02:00:00:00:00:0a"}]})")};
    const shown told = kicked(bus);
    EXPECT_EQ(told.status, exit_done);
    EXPECT_EQ(told.out, "02:00:00:00:00:0a is disconnected\n");
    EXPECT_THAT(bus.asked(),
                testing::ElementsAre(R"(wsmd station {"mac":"02:00:00:00:00:0a"})", "wsmd departed {}",
                                     R"(sta delete {"mac":"02:00:00:00:00:0a","radio":1})",
                                     R"(wsmd station {"mac":"02:00:00:00:00:0a"})", "wsmd departed {}"));
}

TEST(wsm_kick, a_station_that_stays_is_no_success) {
    canned_bus bus;
    bus.answers.assign(
        200, content_of(R"({"mac":"02:00:00:00:00:0a","total":3,"departed":[{"mac":"02:00:00:00:00:0a"}]})"));
    const shown told = kicked(bus, true);
    EXPECT_EQ(told.status, exit_failed);
    EXPECT_EQ(told.out, "{\"mac\":\"02:00:00:00:00:0a\",\"gone\":false}\n");
}

TEST(wsm_kick, departures_are_counted_even_by_a_daemon_that_counts_as_it_likes) {
    canned_bus bus;
    bus.answers = {content_of(R"({"radio":1})"),
                   content_of(R"({"total":9223372036854775807})"),
                   {},
                   {},
                   content_of(R"({"total":-9223372036854775807,"departed":[{"mac":"02:00:00:00:00:0a"}]})")};
    EXPECT_EQ(kicked(bus).out, "02:00:00:00:00:0a is disconnected\n");
}

TEST(wsm_kick, a_silent_daemon_is_reported_once_and_not_waited_for_again) {
    canned_bus bus;
    bus.answers.assign(4, content_of(R"({"radio":1,"total":3})"));
    const shown told = kicked(bus);
    EXPECT_EQ(told.status, exit_failed);
    EXPECT_EQ(told.error, "wsm: the daemon does not answer: wsm-check may say why\n");
    EXPECT_EQ(bus.questions.size(), 5U);
}

} // namespace
