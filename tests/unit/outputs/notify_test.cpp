// What the daemon sends to the bus without being asked.
#include <gmock/gmock.h>

#include "support/bus_house.h"

#include "life/log_up.h"
#include "life/pass.h"
#include "life/reports.h"
#include "model/table.h"
#include "outputs/notify.h"
#include "tools/memory.h"
#include "tools/text.h"

// The linker leads the program's calls here.
extern "C" {
std::time_t __real_time(std::time_t *result);
std::time_t __wrap_time(std::time_t *result);
}

namespace {
std::time_t g_now = 0; // 0: the system's
}

std::time_t __wrap_time(std::time_t *result) {
    if (g_now == 0) return __real_time(result);
    if (result) *result = g_now;
    return g_now;
}

namespace {

using testing::Contains;
using testing::ElementsAre;
using lines = std::vector<std::string>;

constexpr const char *first_mac = "02:00:00:00:00:01";

class unconnected : public House {};

TEST_F(unconnected, event_is_refused_at_level_3) {
    EXPECT_EQ(dhcp_ubus_send_ip_change_event(first_mac, "10.0.0.2", "0.0.0.0"), -1);
    EXPECT_EQ(log_lines(), lines{"ERROR in sta_ubus: sta_ubus_ctx is NULL!\n"});
}

TEST_F(unconnected, notification_is_dropped_and_changes_nothing) {
    sta_info_t *sta = put_station(first_mac);
    sta->maxRate = 3000;
    sta_ubus_log_info_notify(sta);
    sta_ubus_log_info_notify(nullptr);
    EXPECT_EQ(log_lines(), lines(2, "sta_ubus_log_info_notify: sta_ubus_log_info_notify\n"));
    EXPECT_EQ(sta->maxRate, 3000U);
}

TEST_F(unconnected, period_request_is_dropped_with_0) {
    EXPECT_EQ(sta_ubus_update_log_time_request(), 0);
    EXPECT_EQ(log_lines(), lines{"sta_ubus_update_log_time_request: sta_ubus_update_log_time_request\n"});
}

using event = ConnectedHouse;

// The local time differs from UTC, and all its fields except the year have a leading zero.
class clock_at_seven {
public:
    clock_at_seven() {
        setenv("TZ", "TEST-3:30", 1); // east of Greenwich
        tzset();
        g_now = 1746243249; // 03:34:09 in Greenwich
    }
    ~clock_at_seven() {
        g_now = 0;
        unsetenv("TZ");
        tzset();
    }
    clock_at_seven(clock_at_seven &&) = delete;
};

TEST_F(event, of_an_address_has_four_texts_in_order) {
    const clock_at_seven clock;
    other.listen("ip_change");
    EXPECT_EQ(dhcp_ubus_send_ip_change_event(first_mac, "10.0.0.2", "0.0.0.0"), 0);
    EXPECT_EQ(log_lines(), lines{"dhcp_ubus_send_ip_change_event: Send [ip_change] notify.\n"});
    ASSERT_TRUE(soon([&] { return !other.events.empty(); }));
    EXPECT_EQ(other.events.at(0),
              (lines{"ip_change", "mac STRING 02:00:00:00:00:01", "before_ip STRING 0.0.0.0",
                     "changed_ip STRING 10.0.0.2", "changed_time STRING 2025-05-03 07:04:09"}));
}

TEST_F(event, of_a_pass_goes_out_with_the_lease) {
    other.listen("ip_change");
    put_station(first_mac);
    write_file("/tmp/dhcp.leases", "1700000000 02:00:00:00:00:01 192.168.1.20 phone *\n");
    sta_sta_flow_count_proc();
    ASSERT_TRUE(soon([&] { return !other.events.empty(); }));
    EXPECT_EQ(other.events.at(0).at(2), "before_ip STRING 0.0.0.0");
    EXPECT_EQ(other.events.at(0).at(3), "changed_ip STRING 192.168.1.20");
}

TEST_F(event, sent_by_somebody_else_in_the_daemons_words_is_dropped) {
    sta_info_t *sta = put_station(first_mac, sta_status_online);
    other.send_event("ip_change",
                     "{\"mac\":\"02:00:00:00:00:01\",\"before_ip\":\"0.0.0.0\",\"changed_ip\":\"10.0.0.2\"}");
    ASSERT_TRUE(soon([] { return !log_lines().empty(); }));
    EXPECT_EQ(log_lines(), (lines{"sta_sta_ip_change_event_cb: Receive ip change event.\n",
                                  "sta_sta_ip_change_event_cb: before_ip is 0.0.0.0.\n"}));
    EXPECT_STREQ(sta->ip, "");
}

using notification = ConnectedHouse;

TEST_F(notification, of_a_station_begins_with_its_mark_and_has_57_members_behind_it) {
    sta_info_t *sta = put_station(first_mac);
    sta->name = sta_strdup("phone");
    sta_put_text(sta->ifname, "ath0");
    sta_put_text(sta->before_ip, "10.0.0.9");
    sta->maxRate = 3000;
    other.subscribe("sta");
    sta_ubus_log_info_notify(sta);
    ASSERT_TRUE(soon([&] { return !other.notifications.empty(); }));
    const lines got = other.notifications.at(0);
    ASSERT_EQ(got.size(), 2U + 57U);
    EXPECT_EQ(got[0], "notify");
    EXPECT_EQ(got[1], "notify_sta_status STRING 1");
    EXPECT_EQ(got[2], "ssid STRING net");
    EXPECT_EQ(got[19], "off_reason_code INT32 0");
    EXPECT_EQ(got[31], "before_ip STRING 10.0.0.9");
    EXPECT_EQ(got[56], "maxRate INT16 0");
    EXPECT_EQ(got.back(), "repeater_type INT32 0");
    EXPECT_EQ(sta->maxRate, 0U);
}

TEST_F(notification, of_log_on_and_log_off_goes_out_without_a_collector) {
    sta_info_t *sta = put_station(first_mac);
    other.subscribe("sta");
    sta_sta_log_on(sta);
    sta_sta_log_off(sta);
    ASSERT_TRUE(soon([&] { return other.notifications.size() == 2; }));
    EXPECT_THAT(other.notifications[0], Contains("log_type INT32 1"));
    EXPECT_THAT(other.notifications[1], Contains("log_type INT32 2"));
}

TEST_F(notification, of_a_log_up_shows_the_previous_address_once) {
    sta_info_t *sta = put_station(first_mac, sta_status_online);
    sta->load_uptime = sta_uptime_seconds();
    sta_put_text(sta->ip, "10.0.0.2");
    sta_put_text(sta->before_ip, "10.0.0.1");
    other.subscribe("sta");
    sta_sta_log_byioctl_update();
    sta_sta_log_byioctl_update();
    ASSERT_TRUE(soon([&] { return other.notifications.size() == 2; }));
    EXPECT_THAT(other.notifications[0], Contains("before_ip STRING 10.0.0.1"));
    EXPECT_THAT(other.notifications[1], Contains("before_ip STRING 10.0.0.2"));
}

TEST_F(notification, report_to_the_collector_shows_the_rate_that_the_bus_does_not) {
    collector box;
    sta_info_t *sta = put_station(first_mac);
    sta->maxRate = 3000;
    sta_sta_log_on(sta);
    const auto reports = box.reports();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].image[380] | reports[0].image[381] << 8, 3000);
    EXPECT_EQ(sta->maxRate, 0U);
}

TEST_F(notification, asking_for_the_period_has_one_member) {
    other.subscribe("sta");
    EXPECT_EQ(sta_ubus_update_log_time_request(), 0);
    ASSERT_TRUE(soon([&] { return !other.notifications.empty(); }));
    EXPECT_THAT(other.notifications, ElementsAre(lines{"notify", "request_update_log_period STRING 1"}));
}

TEST_F(notification, after_the_brokers_end_harms_nobody) {
    sta_info_t *sta = put_station(first_mac);
    stop_bus();
    sta_ubus_log_info_notify(sta);
    sta_ubus_update_log_time_request();
    EXPECT_EQ(dhcp_ubus_send_ip_change_event(first_mac, "10.0.0.2", "0.0.0.0"), 0);
    collector box;
    sta_sta_log_on(sta); // reports go on
    EXPECT_THAT(box.kinds(), ElementsAre(1));
}

} // namespace
