// Departures, and what is known of their reasons.
#include <gmock/gmock.h>

#include "support/events.h"

#include "life/departure.h"
#include "life/log_up.h"
#include "life/sweep.h"
#include "model/departures.h"
#include "model/table.h"
#include "tools/text.h"

namespace {

struct departing : Events {
    static byte_vector reason(int code) {
        return {static_cast<std::uint8_t>(code), static_cast<std::uint8_t>(code >> 8), 0, 0};
    }
    // Lets a station come and go with this reason; returns what is remembered of it.
    const station_departure *leave(int code) {
        associate();
        handle(disassociation({{at::off_reason_code, reason(code)}}));
        return sta_departures_newest(0);
    }
};

std::string cause(const station_departure *one) {
    return one ? departure_cause_name(one->ended_by) : "nobody has left";
}

TEST_F(departing, by_an_event_is_remembered_with_its_final_figures) {
    const station_departure *one = leave(307);
    ASSERT_TRUE(one);
    EXPECT_STREQ(one->mac, event_mac);
    EXPECT_EQ(cause(one), "station");
    EXPECT_STREQ(departure_known_from(*one), "event");
    EXPECT_EQ(one->reason_code, 307);
    EXPECT_STREQ(one->reason, "OW_STA_DEAUTH_RECV");
    EXPECT_STREQ(one->ifname, "ath12");
    EXPECT_STREQ(one->name, ""); // "-" is none
    EXPECT_GT(one->left, 0);
    EXPECT_GT(one->rx_bytes, 0U);
    EXPECT_FALSE(sta_departures_newest(1));
}

TEST_F(departing, has_the_cause_that_its_reason_says) {
    const std::pair<int, const char *> causes[] = {
        {300, "idle"},    {301, "access-point"}, {303, "access-point"}, {307, "station"},
        {308, "station"}, {309, "access-point"}, {310, "access-point"}, {313, "access-point"},
        {0, "unknown"},   {299, "unknown"},      {314, "unknown"},      {111, "unknown"}};
    for (const auto &[code, wanted] : causes) EXPECT_EQ(cause(leave(code)), wanted) << code;
}

TEST_F(departing, after_a_kick_says_so_unless_it_left_by_itself) {
    sta_departures_kick(event_mac);
    EXPECT_EQ(cause(leave(309)), "kick");
    EXPECT_EQ(cause(leave(309)), "access-point"); // once
    sta_departures_kick(event_mac);
    EXPECT_EQ(cause(leave(307)), "station");
    EXPECT_EQ(cause(leave(309)), "access-point"); // the cause was forgotten with the first departure
}

TEST_F(departing, from_an_interface_on_which_it_is_not_is_none) {
    associate();
    handle(disassociation({{at::ifname, text_bytes("ath3", 20)}}));
    EXPECT_FALSE(sta_departures_newest(0));
    EXPECT_EQ(stations().size(), 1U);
}

TEST_F(departing, of_an_unknown_station_is_none) {
    handle(disassociation());
    EXPECT_FALSE(sta_departures_newest(0));
}

TEST_F(departing, by_five_minutes_unlisted_is_inferred) {
    sta_info_t *sta = associate();
    sta->status = sta_status_online;
    sta->load_uptime = sta_uptime_seconds() - 300;
    g_sta_sta_master.online = 1;
    sta_sta_log_byioctl_update();
    EXPECT_TRUE(stations().empty());
    EXPECT_EQ(cause(sta_departures_newest(0)), "unlisted");
    EXPECT_STREQ(departure_known_from(*sta_departures_newest(0)), "inferred");
    EXPECT_EQ(sta_departures_newest(0)->reason_code, 0);
}

TEST_F(departing, to_another_access_point_is_known_when_it_does_not_come_back) {
    sta_info_t *sta = associate();
    handle(disassociation({{at::is_reassoc, {2}}}));
    EXPECT_FALSE(sta_departures_newest(0)); // it stays until the driver has not listed it for long enough
    sta->status = sta_status_online;
    sta->load_uptime = sta_uptime_seconds() - 300;
    g_sta_sta_master.online = 1;
    sta_sta_log_byioctl_update();
    EXPECT_EQ(cause(sta_departures_newest(0)), "roam");
}

TEST_F(departing, of_a_restored_station_that_nobody_has_seen_is_swept) {
    put_station("02:00:00:00:00:01", sta_status_online);
    sta_info_t *restored = put_station("02:00:00:00:00:02");
    restored->restored = 1;
    restored->online_clock = {};
    sta_sta_restored_sweep(nullptr);
    EXPECT_EQ(cause(sta_departures_newest(0)), "swept");
    EXPECT_EQ(sta_departures_newest(0)->lasted, -1); // it does not know when it came
    EXPECT_FALSE(sta_departures_newest(1));
}

TEST_F(departing, without_memory_is_counted_and_the_station_is_gone) {
    associate();
    for (unsigned nth = 1;; ++nth) {
        fail_allocation(nth);
        handle(disassociation());
        const bool failed = allocation_failed();
        fail_allocation(0);
        EXPECT_TRUE(stations().empty());
        EXPECT_EQ(sta_departures_total(), nth);
        if (!failed) break;
        associate();
    }
}

} // namespace
