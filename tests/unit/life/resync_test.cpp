// The table is compared with the driver's after events were lost.
#include <gmock/gmock.h>

#include "support/events.h"

#include "inputs/interfaces.h"
#include "life/resync.h"
#include "model/departures.h"
#include "model/table.h"
#include "outputs/collector.h"
#include "support/collector.h"
#include "support/driver_tables.h"
#include "tools/health.h"
#include "tools/text.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using texts = std::vector<std::string>;

constexpr const char *first_mac = "02:00:00:00:00:01";
constexpr const char *second_mac = "02:00:00:00:00:02";
constexpr const char *third_mac = "02:00:00:00:00:03";

struct comparing : Events {
    comparing() {
        write_file("/etc/config/wireless",
                   "config wifi-iface\n\toption device 'wifi0'\n\toption ifname 'ath0'\n"
                   "config wifi-iface\n\toption device 'wifi1'\n\toption ifname 'ath1'\n");
    }
    static sta_info_t *put(const char *mac, const char *ifname, int radio) {
        sta_info_t *sta = put_station(mac);
        sta_put_text(sta->ifname, ifname);
        sta->radio_id = radio;
        return sta;
    }
    // An entry of the driver's on `ifname`.
    static table_entry listed(const char *mac, const char *ifname) {
        return table_entry(mac).basic_text(16, "lobby").basic_text(49, ifname);
    }
    static texts macs() {
        texts found;
        for (const sta_info_t *sta : stations()) found.emplace_back(sta->mac);
        return found;
    }
    static texts gone() {
        texts found;
        while (const station_departure *one = sta_departures_newest(found.size()))
            found.push_back(std::string{one->mac} + " " + departure_cause_name(one->ended_by) + " " +
                            departure_known_from(*one));
        return found;
    }
};

TEST_F(comparing, a_station_that_is_not_listed_any_more_departs_for_a_reason_unknown) {
    put(first_mac, "ath0", 0);
    put(second_mac, "ath0", 0);
    driver_lists({{"ath0", {listed(second_mac, "ath0")}}, {"ath1", {}}});
    sta_resync();
    EXPECT_THAT(macs(), ElementsAre(second_mac));
    EXPECT_THAT(gone(), ElementsAre(std::string{first_mac} + " unknown inferred"));
    EXPECT_EQ(sta_health.resyncs, 1U);
}

TEST_F(comparing, a_station_that_is_listed_and_not_known_arrives_with_the_drivers_figures) {
    driver_lists(
        {{"ath0", {}},
         {"ath1",
          {listed(third_mac, "ath1").basic32(120, 36).basic8(125, -60).basic32(128, 100).basic32(84, 50)}}});
    sta_resync();
    ASSERT_THAT(macs(), ElementsAre(third_mac));
    const sta_info_t *sta = stations().at(0);
    EXPECT_STREQ(sta->ifname, "ath1");
    EXPECT_STREQ(sta->ssid, "lobby");
    EXPECT_EQ(sta->radio_id, 1);
    EXPECT_EQ(sta->channel, 36);
    EXPECT_EQ(sta->rssi, -60);
    EXPECT_EQ(sta->utilization, 50);
    EXPECT_NEAR(static_cast<double>(sta->online_ts.sec), static_cast<double>(std::time(nullptr) - 100), 5);
    EXPECT_EQ(sta->status, sta_status_added);
    EXPECT_THAT(gone(), IsEmpty());
}

TEST_F(comparing, arrivals_and_departures_are_reported_as_always) {
    put(first_mac, "ath0", 0);
    driver_lists({{"ath0", {listed(second_mac, "ath0")}}, {"ath1", {}}});
    collector reports;
    sta_resync();
    EXPECT_EQ(reports.reports().size(), 2U);
}

TEST_F(comparing, what_agrees_stays_as_it_is) {
    sta_info_t *sta = put(first_mac, "ath0", 0);
    sta->status = sta_status_online;
    g_sta_sta_master.online = 1;
    driver_lists({{"ath0", {listed(first_mac, "ath0")}}, {"ath1", {}}});
    sta_resync();
    EXPECT_THAT(stations(), ElementsAre(sta));
    EXPECT_EQ(sta->status, sta_status_online);
    EXPECT_THAT(gone(), IsEmpty());
}

TEST_F(comparing, a_station_that_has_moved_unseen_is_on_its_new_interface) {
    put(first_mac, "ath0", 0);
    driver_lists({{"ath0", {}}, {"ath1", {listed(first_mac, "ath1")}}});
    sta_resync();
    ASSERT_THAT(macs(), ElementsAre(first_mac));
    EXPECT_STREQ(stations().at(0)->ifname, "ath1");
    EXPECT_EQ(stations().at(0)->radio_id, 1);
    EXPECT_THAT(gone(), IsEmpty());
}

TEST_F(comparing, a_station_that_is_listed_twice_is_where_it_came_last) {
    put(first_mac, "ath0", 0);
    driver_lists({{"ath0", {listed(first_mac, "ath0").basic32(128, 50)}},
                  {"ath1", {listed(first_mac, "ath1").basic32(128, 51)}}});
    sta_resync();
    EXPECT_STREQ(stations().at(0)->ifname, "ath0");
    driver_lists({{"ath0", {listed(first_mac, "ath0").basic32(128, 51)}},
                  {"ath1", {listed(first_mac, "ath1").basic32(128, 50)}}});
    sta_resync();
    EXPECT_STREQ(stations().at(0)->ifname, "ath1");
    EXPECT_EQ(stations().size(), 1U);
}

// Whichever interface the driver is asked for first.
TEST_F(comparing, an_unknown_station_that_is_listed_twice_arrives_once_where_it_came_last) {
    driver_lists(
        {{"ath0", {listed(first_mac, "ath0").basic32(128, 51), listed(second_mac, "ath0").basic32(128, 50)}},
         {"ath1",
          {listed(first_mac, "ath1").basic32(128, 50), listed(second_mac, "ath1").basic32(128, 51)}}});
    collector reports;
    sta_resync();
    EXPECT_EQ(reports.reports().size(), 2U);
    ASSERT_EQ(stations().size(), 2U);
    for (const sta_info_t *sta : stations())
        EXPECT_STREQ(sta->ifname, std::strcmp(sta->mac, first_mac) == 0 ? "ath1" : "ath0") << sta->mac;
}

TEST_F(comparing, a_table_that_both_interfaces_of_a_radio_give_counts_once) {
    driver_lists({{"ath0", {listed(first_mac, "ath01")}}, {"ath1", {listed(first_mac, "ath01")}}});
    sta_resync();
    EXPECT_THAT(macs(), ElementsAre(first_mac));
}

TEST_F(comparing, a_driver_that_does_not_answer_makes_nobody_leave) {
    put(first_mac, "ath0", 0);
    put(second_mac, "ath1", 1);
    driver_lists({{"ath1", {}}}); // it refuses requests for ath0
    sta_resync();
    EXPECT_THAT(macs(), ElementsAre(first_mac));
    EXPECT_EQ(gone().size(), 1U);
    set_driver([](const driver_request &, std::span<std::uint8_t>) { return -1; });
    sta_resync();
    EXPECT_THAT(macs(), ElementsAre(first_mac));
}

TEST_F(comparing, a_count_that_is_no_number_makes_nobody_leave) {
    put(first_mac, "ath0", 0);
    for (const char *count : {"", "-1", "x"}) {
        set_driver([=](const driver_request &, std::span<std::uint8_t> answer) {
            std::snprintf(reinterpret_cast<char *>(answer.data()), answer.size(), "%s", count);
            return 0;
        });
        sta_resync();
        EXPECT_THAT(macs(), ElementsAre(first_mac));
    }
}

TEST_F(comparing, without_a_configuration_goes_by_the_table_alone) {
    remove("/etc/config/wireless");
    put(first_mac, "ath0", 0);
    driver_lists({{"ath0", {listed(second_mac, "ath0")}}, {"ath1", {listed(third_mac, "ath1")}}});
    sta_resync();
    EXPECT_THAT(macs(), ElementsAre(second_mac));
}

TEST_F(comparing, without_memory_never_makes_somebody_leave_who_is_there) {
    for (unsigned nth = 1;; ++nth) {
        if (!sta_sta_peek(first_mac)) put(first_mac, "ath0", 0);
        driver_lists({{"ath0", {listed(first_mac, "ath0"), listed(second_mac, "ath0")}}, {"ath1", {}}});
        fail_allocation(nth);
        sta_resync();
        const bool failed = allocation_failed();
        fail_allocation(0);
        EXPECT_TRUE(sta_sta_peek(first_mac)) << nth;
        EXPECT_THAT(gone(), IsEmpty());
        if (!failed) break;
        ASSERT_LT(nth, 400U);
    }
}

TEST_F(comparing, is_asked_for_once_and_runs_by_itself) {
    driver_lists({{"ath0", {listed(first_mac, "ath0")}}, {"ath1", {}}});
    sta_resync_request();
    sta_resync_request();
    EXPECT_TRUE(sta_resync_timer.pending);
    EXPECT_LE(uloop_timeout_remaining64(&sta_resync_timer), 100);
}

TEST_F(comparing, begins_no_sooner_than_ten_seconds_after_the_one_before) {
    driver_lists({{"ath0", {}}, {"ath1", {}}});
    sta_resync();
    sta_resync_request();
    EXPECT_GT(uloop_timeout_remaining64(&sta_resync_timer), 1000);
    EXPECT_LE(uloop_timeout_remaining64(&sta_resync_timer), 10000);
}

TEST_F(comparing, is_asked_for_by_a_full_socket) {
    answer_recv = [](void *, std::size_t) {
        errno = ENOBUFS;
        return -1L;
    };
    uloop_fd watcher{};
    g_sta_recv_msg(&watcher, 0);
    EXPECT_EQ(sta_health.overruns, 1U);
    EXPECT_TRUE(sta_resync_timer.pending);
}

TEST(radio_of_an_interface, is_the_number_of_its_device_or_follows_its_name) {
    EXPECT_EQ(sta_radio_of("ath5", "wifi0"), 0);
    EXPECT_EQ(sta_radio_of("ath0", "wifi1"), 1);
    EXPECT_EQ(sta_radio_of("ath01", nullptr), 0);
    EXPECT_EQ(sta_radio_of("ath1", ""), 1);
    EXPECT_EQ(sta_radio_of("ath1", "radio"), 1);
}

} // namespace
