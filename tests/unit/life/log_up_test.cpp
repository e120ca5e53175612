// The periodic and the single log-up.
#include <gmock/gmock.h>

#include "support/house.h"

#include "life/log_up.h"
#include "model/members.h"
#include "model/table.h"
#include "support/driver_tables.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <sys/sysinfo.h>

// The linker redirects the program's calls to these: the uptime stands still, so that tests can meet its limits exactly.
extern "C" {
int __wrap_sysinfo(struct sysinfo *system);
int __wrap_sysinfo(struct sysinfo *system) {
    *system = {};
    system->uptime = 1000;
    return 0;
}
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char *first_mac = "02:00:00:00:00:01";
constexpr const char *second_mac = "02:00:00:00:00:02";
constexpr const char *third_mac = "02:00:00:00:00:03";

class log_up : public House {
protected:
    sta_info_t *station_on(const char *mac, std::int32_t radio, const char *ifname,
                           std::uint16_t status = sta_status_online) {
        sta_info_t *sta = put_station(mac, status);
        sta->radio_id = radio;
        sta->load_uptime = sta_uptime_seconds();
        sta_put_text(sta->ifname, ifname);
        return sta;
    }
    // MACs of the reports that came, in order.
    std::vector<std::string> reported() {
        std::vector<std::string> macs;
        for (const collected_report &one : box.reports())
            macs.push_back(std::to_string(one.image.at(296)) + " " +
                           reinterpret_cast<const char *>(one.image.data() + 156));
        return macs;
    }
    static std::size_t notifications() { return lines_of("sta_ubus_log_info_notify").size(); }

    collector box;
};

using periodic = log_up;

TEST_F(periodic, station_on_line_is_refreshed_reported_and_notified) {
    sta_info_t *sta = station_on(first_mac, 0, "ath0");
    sta->load_uptime = -1000;
    driver_lists({{"ath0", {table_entry(first_mac).basic64(104, 777).extended32(56, 88)}}});
    sta_sta_log_byioctl_update();
    EXPECT_EQ(sta->load_uptime, 1000);
    EXPECT_EQ(sta->wifi_up, 777U);
    EXPECT_EQ(sta->txPkt, 88U); // both sections
    const auto reports = box.reports();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].image[296], 3);
    EXPECT_EQ(reports[0].image[264], 777 & 0xff);
    EXPECT_EQ(notifications(), 1U);
    EXPECT_EQ(driver_requests().at(1).bytes.at(4), 3); // sections asked for
}

TEST_F(periodic, station_that_waits_for_its_first_pass_is_left_out) {
    station_on(first_mac, 0, "ath0", sta_status_added);
    driver_lists({{"ath0", {table_entry(first_mac)}}});
    sta_sta_log_byioctl_update();
    EXPECT_THAT(driver_requests(), IsEmpty());
    EXPECT_THAT(reported(), IsEmpty());
    EXPECT_EQ(notifications(), 0U);
}

TEST_F(periodic, driver_is_asked_once_per_radio_through_the_first_stations_interface) {
    station_on(first_mac, 0, "ath0");
    station_on(second_mac, 0, "ath01");
    station_on(third_mac, 1, "ath1");
    station_on("02:00:00:00:00:04", 1, "ath11");
    driver_lists({{"ath0", {table_entry(first_mac)}}, {"ath1", {table_entry(third_mac)}}});
    sta_sta_log_byioctl_update();
    ASSERT_THAT(driver_commands(), ElementsAre(5, 1, 5, 1));
    EXPECT_EQ(driver_requests()[1].ifname, "ath0");
    EXPECT_EQ(driver_requests()[3].ifname, "ath1");
    EXPECT_EQ(reported().size(), 4U);
}

TEST_F(periodic, refusing_driver_is_asked_once_per_radio_too) {
    station_on(first_mac, 0, "");
    station_on(second_mac, 0, "ath0");
    sta_sta_log_byioctl_update();
    EXPECT_THAT(driver_commands(), ElementsAre(5));
    EXPECT_THAT(reported(), ElementsAre("3 02:00:00:00:00:01", "3 02:00:00:00:00:02"));
}

TEST_F(periodic, station_unlisted_for_less_than_300_seconds_is_reported_with_its_old_figures) {
    sta_info_t *sta = station_on(first_mac, 0, "ath0");
    sta->load_uptime = sta_uptime_seconds() - 299;
    const std::int32_t seen = sta->load_uptime;
    sta->wifi_up = 5;
    driver_lists({{"ath0", {table_entry(second_mac).basic64(104, 9)}}});
    sta_sta_log_byioctl_update();
    EXPECT_THAT(reported(), ElementsAre("3 02:00:00:00:00:01"));
    EXPECT_EQ(sta->wifi_up, 5U);
    EXPECT_EQ(sta->load_uptime, seen);
}

TEST_F(periodic, station_unlisted_for_300_seconds_is_logged_off_and_deleted_without_a_log_up) {
    sta_info_t *gone = station_on(first_mac, 0, "ath0");
    gone->load_uptime = sta_uptime_seconds() - 300;
    sta_info_t *stays = station_on(second_mac, 0, "ath0");
    write_file("/tmp/sta_sta.info", "- 02:00:00:00:00:01 0.0.0.0 0 0 0 0 net 0 0 1 11\n"
                                    "- 02:00:00:00:00:02 0.0.0.0 0 0 0 0 net 0 0 1 11\n");
    driver_lists({{"ath0", {table_entry(second_mac)}}});
    sta_sta_log_byioctl_update();
    EXPECT_THAT(reported(), ElementsAre("2 02:00:00:00:00:01", "3 02:00:00:00:00:02"));
    EXPECT_THAT(stations(), ElementsAre(stays));
    EXPECT_EQ(g_sta_sta_master.online, 1);
    EXPECT_EQ(read_file("/tmp/sta_sta.info"), "- 02:00:00:00:00:02 0.0.0.0 0 0 0 0 net 0 0 1 11\n");
    EXPECT_EQ(notifications(), 2U);
}

TEST_F(periodic, last_station_can_be_retired) {
    station_on(first_mac, 0, "ath0")->load_uptime = sta_uptime_seconds() - 100000;
    sta_sta_log_byioctl_update();
    EXPECT_THAT(stations(), IsEmpty());
    EXPECT_EQ(g_sta_sta_master.online, 0);
    EXPECT_THAT(reported(), ElementsAre("2 02:00:00:00:00:01"));
}

TEST_F(periodic, station_of_a_third_radio_is_reported_and_retired_like_an_unlisted_one) {
    sta_info_t *sta = station_on(first_mac, 2, "ath2");
    sta_sta_log_byioctl_update();
    EXPECT_TRUE(logged("sta_sta_log_byioctl_update", "sta:02:00:00:00:00:01 radio is inexistence \n"));
    EXPECT_THAT(driver_requests(), IsEmpty());
    EXPECT_THAT(reported(), ElementsAre("3 02:00:00:00:00:01"));
    sta->load_uptime -= 300;
    sta_sta_log_byioctl_update();
    EXPECT_THAT(reported(), ElementsAre("2 02:00:00:00:00:01"));
    EXPECT_THAT(stations(), IsEmpty());
}

TEST_F(periodic, station_of_a_negative_radio_is_no_index_into_anything) {
    station_on(first_mac, -1, "ath0");
    station_on(second_mac, INT32_MIN, "ath0");
    station_on(third_mac, INT32_MAX, "ath0");
    sta_sta_log_byioctl_update();
    EXPECT_EQ(reported().size(), 3U);
    EXPECT_THAT(driver_requests(), IsEmpty());
}

TEST_F(periodic, report_shows_the_previous_address_once) {
    sta_info_t *sta = station_on(first_mac, 0, "ath0");
    sta_put_text(sta->ip, "10.0.0.2");
    sta_put_text(sta->before_ip, "10.0.0.1");
    sta_sta_log_byioctl_update();
    sta_sta_log_byioctl_update();
    const auto reports = box.reports();
    ASSERT_EQ(reports.size(), 2U);
    EXPECT_STREQ(reinterpret_cast<const char *>(reports[0].image.data() + 431), "10.0.0.1");
    EXPECT_STREQ(reinterpret_cast<const char *>(reports[1].image.data() + 431), "10.0.0.2");
    EXPECT_STREQ(sta->before_ip, "10.0.0.2");
}

TEST_F(periodic, each_station_is_notified_between_its_report_and_the_next_ones) {
    station_on(first_mac, 0, "ath0");
    station_on(second_mac, 0, "ath0");
    sta_sta_log_byioctl_update();
    std::vector<std::string> order;
    for (const std::string &line : log_lines())
        for (const char *step : {"sta_domain_socket_send", "sta_ubus_log_info_notify"})
            if (line.starts_with(step)) order.push_back(step);
    EXPECT_THAT(order, ElementsAre("sta_domain_socket_send", "sta_ubus_log_info_notify",
                                   "sta_domain_socket_send", "sta_ubus_log_info_notify"));
}

TEST_F(periodic, lost_report_is_logged_and_the_notification_goes_out) {
    sta_info_t *sta = station_on(first_mac, 0, "ath0");
    remove("/tmp/sta_server_domain");
    sta_put_text(sta->ip, "10.0.0.2");
    sta_sta_log_byioctl_update();
    EXPECT_TRUE(logged("sta_sta_log_byioctl_update", "sta_domain_socket_send error!!!\n"));
    EXPECT_EQ(notifications(), 1U);
    EXPECT_STREQ(sta->before_ip, "10.0.0.2");
}

TEST_F(periodic, tables_are_given_back_whatever_the_driver_does) {
    station_on(first_mac, 0, "ath0");
    station_on(second_mac, 1, "ath1");
    const std::uint32_t before = mem_total_cnt;
    sta_sta_log_byioctl_update();
    EXPECT_EQ(mem_total_cnt, before);
    driver_lists({{"ath0", {table_entry(first_mac)}}, {"ath1", {table_entry(second_mac)}}});
    sta_sta_log_byioctl_update();
    EXPECT_EQ(mem_total_cnt, before);
    for (unsigned nth = 1; nth <= 4; ++nth) {
        fail_allocation(nth);
        sta_sta_log_byioctl_update();
        EXPECT_TRUE(allocation_failed());
        EXPECT_EQ(mem_total_cnt, before);
    }
}

TEST_F(periodic, empty_table_asks_and_reports_nothing) {
    sta_sta_log_byioctl_update();
    EXPECT_THAT(driver_requests(), IsEmpty());
    EXPECT_THAT(log_lines(), IsEmpty());
}

using single = log_up;

TEST_F(single, third_pass_after_the_association_sends_the_one_report) {
    sta_info_t *sta = station_on(first_mac, 0, "ath0", sta_status_added); // whatever its status
    driver_lists({{"ath0", {table_entry(first_mac).basic32(120, 36)}}});
    sta_sta_log_single_byioctl_update();
    sta_sta_log_single_byioctl_update();
    EXPECT_EQ(sta->single_log_up_cnt, 2);
    EXPECT_THAT(driver_requests(), IsEmpty());
    EXPECT_THAT(reported(), IsEmpty());
    sta_sta_log_single_byioctl_update();
    EXPECT_EQ(sta->single_log_up_cnt, 3);
    EXPECT_THAT(reported(), ElementsAre("3 02:00:00:00:00:01"));
    EXPECT_EQ(sta->channel, 36);
    EXPECT_EQ(driver_requests().at(1).bytes.at(4), 3);
    for (int i = 0; i < 3; ++i) sta_sta_log_single_byioctl_update();
    EXPECT_EQ(sta->single_log_up_cnt, 3);
    EXPECT_THAT(reported(), IsEmpty());
    EXPECT_EQ(notifications(), 0U);
}

TEST_F(single, report_is_sent_also_of_a_station_that_the_driver_does_not_list) {
    sta_info_t *sta = station_on(first_mac, 0, "ath0");
    sta->single_log_up_cnt = 2;
    sta->load_uptime = -100000;
    sta_sta_log_single_byioctl_update();
    EXPECT_THAT(reported(), ElementsAre("3 02:00:00:00:00:01"));
    EXPECT_THAT(stations(), ElementsAre(sta));
    EXPECT_EQ(sta->load_uptime, -100000);
}

TEST_F(single, report_of_a_third_radio_is_sent_without_asking_the_driver) {
    station_on(first_mac, 2, "ath2")->single_log_up_cnt = 2;
    sta_sta_log_single_byioctl_update();
    EXPECT_THAT(driver_requests(), IsEmpty());
    EXPECT_THAT(reported(), ElementsAre("3 02:00:00:00:00:01"));
    EXPECT_THAT(lines_of("sta_sta_log_single_byioctl_update"), IsEmpty());
}

TEST_F(single, lost_report_is_logged_and_not_repeated) {
    sta_info_t *sta = station_on(first_mac, 2, "ath2");
    sta->single_log_up_cnt = 2;
    remove("/tmp/sta_server_domain");
    sta_sta_log_single_byioctl_update();
    EXPECT_TRUE(logged("sta_sta_log_single_byioctl_update", "sta_domain_socket_send error!!!\n"));
    EXPECT_EQ(sta->single_log_up_cnt, 3);
}

TEST_F(single, driver_is_asked_once_per_radio) {
    for (const char *mac : {first_mac, second_mac, third_mac})
        station_on(mac, 1, "ath1")->single_log_up_cnt = 2;
    driver_lists({{"ath1", {table_entry(second_mac)}}});
    const std::uint32_t before = mem_total_cnt;
    sta_sta_log_single_byioctl_update();
    EXPECT_THAT(driver_commands(), ElementsAre(5, 1));
    EXPECT_EQ(reported().size(), 3U);
    EXPECT_EQ(mem_total_cnt, before);
}

TEST_F(single, damaged_counters_are_counted_up_or_left_alone) {
    sta_info_t *low = station_on(first_mac, 0, "ath0");
    low->single_log_up_cnt = -128;
    sta_info_t *high = station_on(second_mac, 0, "ath0");
    high->single_log_up_cnt = 127;
    sta_sta_log_single_byioctl_update();
    EXPECT_EQ(low->single_log_up_cnt, -127);
    EXPECT_EQ(high->single_log_up_cnt, 127);
    EXPECT_THAT(reported(), IsEmpty());
}

// Otherwise 2,048 records would be read each second only to find that none waits.
TEST_F(single, table_is_not_walked_while_nobody_waits) {
    sta_info_t *sta = station_on(first_mac, 2, "ath2");
    for (int i = 0; i < 4; ++i) sta_sta_log_single_byioctl_update();
    EXPECT_EQ(reported().size(), 1U);
    sta->single_log_up_cnt = 2; // unknown to the daemon's count
    sta_sta_log_single_byioctl_update();
    EXPECT_EQ(sta->single_log_up_cnt, 2);
    sta_members_await_report(sta);
    for (int i = 0; i < 4; ++i) sta_sta_log_single_byioctl_update();
    EXPECT_EQ(reported().size(), 1U);
    EXPECT_EQ(sta->single_log_up_cnt, 3);
}

TEST_F(single, newcomer_is_waited_for_when_all_others_have_had_their_report) {
    station_on(first_mac, 2, "ath2");
    for (int i = 0; i < 4; ++i) sta_sta_log_single_byioctl_update();
    station_on(second_mac, 2, "ath2");
    EXPECT_THAT(reported(), ElementsAre("3 02:00:00:00:00:01"));
    for (int i = 0; i < 3; ++i) sta_sta_log_single_byioctl_update();
    EXPECT_THAT(reported(), ElementsAre("3 02:00:00:00:00:02"));
}

} // namespace
