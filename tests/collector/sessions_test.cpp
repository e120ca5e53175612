// Stays made from reports: each test plays one row of the table of rules in docs/collector.md.
#include "collector/sessions.h"
#include "reports.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class the_collector : public testing::Test {
protected:
    // A report that comes `seconds` after noon; what it changes.
    std::vector<std::string> hears(int seconds, const told &what) {
        done_.clear();
        people_.tick(noon + seconds * second, done_);
        people_.take(make_report(what), noon + seconds * second, done_);
        return kinds();
    }
    std::vector<std::string> waits_until(int seconds) {
        done_.clear();
        people_.tick(noon + seconds * second, done_);
        return kinds();
    }
    const stay &last() const { return done_.back().now; }

    sessions people_;
    std::vector<change> done_;

private:
    std::vector<std::string> kinds() const {
        std::vector<std::string> all;
        for (const change &one : done_) all.emplace_back(change_name(one.kind));
        return all;
    }
};
using rules = the_collector;

TEST_F(rules, a_station_comes_is_reported_and_leaves_after_the_grace_time) {
    EXPECT_THAT(hears(1, {.kind = report_online, .since = 0, .rssi = -60}), ElementsAre("joined"));
    EXPECT_EQ(last().began, noon);
    EXPECT_EQ(last().ap, "02:54:4b:00:00:01");
    EXPECT_THAT(hears(60, {.rssi = -40, .up = 10, .down = 100, .ip = "10.0.0.7"}), ElementsAre("updated"));
    EXPECT_THAT(hears(101, {.kind = report_offline,
                            .rssi = -50,
                            .up = 20,
                            .down = 200,
                            .left = 100,
                            .reason_code = 307,
                            .reason = "OW_STA_DEAUTH_RECV"}),
                ElementsAre("leaving"));
    EXPECT_THAT(waits_until(130), IsEmpty());
    EXPECT_THAT(waits_until(131), ElementsAre("left"));
    EXPECT_EQ(last().ended, noon + 100 * second);
    EXPECT_EQ(last().reason, "OW_STA_DEAUTH_RECV");
    EXPECT_EQ(last().ended_by, "station");
    EXPECT_EQ(last().reports, 3u);
    EXPECT_EQ(last().signal, (signal_range{-50, -60, -40, -150, 3}));
    EXPECT_EQ(last().up, (byte_counter{20, 20}));
    EXPECT_EQ(last().down, (byte_counter{200, 200}));
    EXPECT_EQ(last().addresses,
              (std::vector<stay_address>{{"10.0.0.7", noon + 60 * second, noon + 60 * second}}));
    EXPECT_EQ(people_.count(), 0u);
}

TEST_F(rules, who_comes_back_within_the_grace_time_has_not_left) {
    hears(0, {.kind = report_online});
    hears(50, {.kind = report_offline, .up = 7, .left = 50, .reason_code = 300});
    EXPECT_THAT(hears(79, {.kind = report_online, .since = 78, .up = 1}), ElementsAre("returned"));
    EXPECT_EQ(last().began, noon);
    EXPECT_EQ(last().ended, 0);
    EXPECT_EQ(last().returns, 1u);
    EXPECT_EQ(last().reason, "");
    EXPECT_EQ(last().up, (byte_counter{8, 1}));
    EXPECT_THAT(waits_until(200), IsEmpty());
}

TEST_F(rules, who_comes_back_after_the_grace_time_is_there_anew) {
    hears(0, {.kind = report_online});
    hears(50, {.kind = report_offline, .left = 50});
    const auto first = last().id;
    EXPECT_THAT(hears(81, {.kind = report_online, .since = 81}), ElementsAre("left", "joined"));
    EXPECT_EQ(last().id, first + 1);
    EXPECT_EQ(last().began, noon + 81 * second);
}

TEST_F(rules, a_roam_to_the_other_radio_joins_both_into_one_stay) {
    hears(0, {.kind = report_online, .radio = 0});
    EXPECT_THAT(hears(60, {.kind = report_roamed, .radio = 0, .up = 10}), ElementsAre("leaving"));
    EXPECT_EQ(last().state, presence::moving);
    EXPECT_THAT(hears(60, {.kind = report_online, .since = 60, .radio = 1, .up = 1}), ElementsAre("roamed"));
    EXPECT_EQ(done_.back().from_radio, 0);
    EXPECT_EQ(last().radio, 1);
    EXPECT_EQ(last().roams, 1u);
    EXPECT_EQ(last().began, noon);
    EXPECT_EQ(last().up, (byte_counter{11, 1}));
    EXPECT_EQ(last().state, presence::here);
}

TEST_F(rules, who_leaves_for_another_radio_and_never_arrives_has_left) {
    hears(0, {.kind = report_online});
    hears(60, {.kind = report_roamed});
    EXPECT_THAT(waits_until(90), ElementsAre("left"));
    EXPECT_EQ(last().reason, "roamed away");
}

TEST_F(rules, after_a_roam_the_daemon_goes_on_with_the_time_of_the_first_association) {
    hears(0, {.kind = report_online, .since = 0});
    hears(60, {.kind = report_roamed, .since = 0, .up = 10});
    EXPECT_THAT(hears(60, {.kind = report_online, .since = 60, .radio = 1}), ElementsAre("roamed"));
    EXPECT_THAT(hears(120, {.since = 0, .radio = 1, .up = 30}), ElementsAre("updated"));
    EXPECT_EQ(last().up, (byte_counter{40, 30}));
    people_.restore(last(), noon + 121 * second); // known already: nothing changes
    EXPECT_THAT(hears(130, {.kind = report_roamed, .since = 0, .radio = 1, .up = 35}),
                ElementsAre("leaving"));
    EXPECT_THAT(hears(130, {.kind = report_online, .since = 130, .radio = 0}), ElementsAre("roamed"));
    sessions after_a_restart;
    after_a_restart.restore(last(), noon + 140 * second);
    after_a_restart.take(make_report({.since = 0, .up = 5}), noon + 150 * second, done_);
    EXPECT_EQ(last().up, (byte_counter{50, 5}));
    EXPECT_THAT(hears(200, {.kind = report_offline, .since = 0, .up = 7, .left = 200}),
                ElementsAre("leaving"));
    EXPECT_EQ(last().up, (byte_counter{52, 7}));
    EXPECT_EQ(people_.late, 0u);
    EXPECT_THAT(hears(210, {.kind = report_online, .since = 210}), ElementsAre("returned"));
    hears(220, {.since = 0, .up = 9});
    EXPECT_EQ(people_.late, 1u) << "that association is over";
}

TEST_F(rules, after_a_second_association_the_daemon_goes_on_with_the_time_of_the_first) {
    hears(0, {.kind = report_online, .since = 0});
    EXPECT_THAT(hears(60, {.kind = report_online, .since = 60}), ElementsAre("returned"));
    EXPECT_THAT(hears(120, {.since = 0, .up = 30}), ElementsAre("updated"));
    EXPECT_THAT(hears(130, {.kind = report_offline, .since = 0, .up = 40, .left = 130}),
                ElementsAre("leaving"));
    EXPECT_EQ(last().up, (byte_counter{40, 40}));
    EXPECT_EQ(people_.late, 0u);
}

TEST_F(rules, a_roam_to_another_access_point_is_one_stay_whatever_the_old_one_says_late) {
    hears(0, {.kind = report_online, .ap = "02:54:4b:00:00:0a"});
    EXPECT_THAT(hears(60, {.kind = report_online, .since = 60, .ap = "02:54:4b:00:00:0b"}),
                ElementsAre("roamed"));
    EXPECT_EQ(done_.back().from_ap, "02:54:4b:00:00:0a");
    EXPECT_THAT(hears(70, {.kind = report_update, .ap = "02:54:4b:00:00:0a"}), IsEmpty());
    EXPECT_THAT(hears(90, {.kind = report_offline, .left = 90, .ap = "02:54:4b:00:00:0a"}), IsEmpty());
    EXPECT_EQ(people_.late, 2u);
    EXPECT_THAT(waits_until(200), IsEmpty());
    EXPECT_EQ(people_.count(), 1u);
}

TEST_F(rules, an_access_point_whose_clock_is_behind_is_believed_when_it_says_on_line) {
    hears(0, {.kind = report_online, .ap = "02:54:4b:00:00:0a"});
    EXPECT_THAT(hears(60, {.kind = report_online, .since = -3600, .ap = "02:54:4b:00:00:0b"}),
                ElementsAre("roamed"));
}

TEST_F(rules, counters_that_begin_again_are_added_up) {
    hears(0, {.kind = report_online, .up = 0});
    hears(60, {.up = 1000, .down = 5});
    hears(120, {.up = 300, .down = 6}); // the driver was restarted
    EXPECT_EQ(last().up, (byte_counter{1300, 300}));
    EXPECT_EQ(last().down, (byte_counter{6, 6}));
}

TEST_F(rules, a_departure_without_figures_keeps_those_that_were_reported) {
    hears(0, {.kind = report_online, .up = 500, .down = 600});
    hears(60, {.kind = report_offline, .rssi = 0, .up = 0, .down = 0, .left = 60});
    EXPECT_EQ(last().up.total, 500u);
    EXPECT_EQ(last().down.total, 600u);
    EXPECT_EQ(last().signal.count, 1);
}

TEST_F(rules, counters_never_overflow) {
    hears(0, {.kind = report_online, .up = ~std::uint64_t{0}});
    hears(1, {.up = 0});
    hears(2, {.up = ~std::uint64_t{0}});
    EXPECT_EQ(last().up.total, 0x7fffffffffffffffu);
}

TEST_F(rules, an_address_that_is_learned_later_is_part_of_the_stay) {
    hears(1, {.kind = report_online});
    EXPECT_THAT(hears(3, {.kind = report_online, .ip = "10.0.0.7"}), ElementsAre("updated"));
    hears(60, {.ip = "10.0.0.7"});
    hears(120, {.ip = "10.0.0.9"});
    EXPECT_EQ(last().addresses,
              (std::vector<stay_address>{{"10.0.0.7", noon + 3 * second, noon + 60 * second},
                                         {"10.0.0.9", noon + 120 * second, noon + 120 * second}}));
}

TEST_F(rules, a_collector_that_was_started_later_begins_the_stay_at_the_association) {
    EXPECT_THAT(hears(600, {.up = 77}), ElementsAre("joined"));
    EXPECT_EQ(last().began, noon);
    EXPECT_EQ(last().up.total, 77u);
}

TEST_F(rules, a_station_that_is_known_by_its_departure_alone_has_a_stay_as_well) {
    EXPECT_THAT(
        hears(
            600,
            {.kind = report_offline, .up = 77, .left = 599, .reason_code = 300, .reason = "OW_STA_TIMEOUT"}),
        ElementsAre("joined"));
    EXPECT_THAT(waits_until(630), ElementsAre("left"));
    EXPECT_EQ(last().began, noon);
    EXPECT_EQ(last().ended, noon + 599 * second);
    EXPECT_EQ(last().reason, "OW_STA_TIMEOUT");
    EXPECT_EQ(last().ended_by, "silence");
    EXPECT_EQ(last().reports, 1u);
}

TEST_F(rules, a_restart_of_the_daemon_breaks_no_stay) {
    hears(0, {.kind = report_online});
    hears(60, {.up = 100});
    // Restored from its backup file: the same association, and the driver's counters.
    EXPECT_THAT(hears(300, {.up = 120}), ElementsAre("updated"));
    EXPECT_EQ(last().began, noon);
    EXPECT_EQ(last().up.total, 120u);
}

TEST_F(rules, a_restart_of_the_collector_breaks_no_stay) {
    hears(0, {.kind = report_online});
    hears(60, {.up = 100});
    sessions again;
    again.restore(last(), noon + 5000 * second); // it was away for longer than the time of silence
    std::vector<change> done;
    again.tick(noon + 5001 * second, done);
    again.take(make_report({.up = 150}), noon + 5001 * second, done);
    ASSERT_EQ(done.size(), 1u);
    EXPECT_EQ(done[0].kind, change_kind::updated);
    EXPECT_EQ(done[0].now.id, last().id);
    EXPECT_EQ(done[0].now.up.total, 150u);
    EXPECT_EQ(again.next_id(), last().id + 1);
}

TEST_F(rules, who_is_silent_for_long_has_left_with_the_last_report) {
    hears(0, {.kind = report_online});
    hears(60, {});
    EXPECT_THAT(waits_until(959), IsEmpty());
    EXPECT_THAT(waits_until(960), ElementsAre("left"));
    EXPECT_EQ(last().ended, noon + 60 * second);
    EXPECT_EQ(last().ended_by, "silence");
}

TEST_F(rules, an_association_after_a_long_silence_is_another_stay) {
    hears(0, {.kind = report_online});
    sessions again;
    again.restore(last(), noon + 5000 * second);
    std::vector<change> done;
    again.take(make_report({.kind = report_online, .since = 4990}), noon + 5001 * second, done);
    ASSERT_EQ(done.size(), 2u);
    EXPECT_EQ(done[0].kind, change_kind::left);
    EXPECT_EQ(done[0].now.ended, noon);
    EXPECT_EQ(done[1].kind, change_kind::joined);
}

TEST_F(rules, an_association_anew_without_a_departure_stays_one_stay) {
    hears(0, {.kind = report_online});
    EXPECT_THAT(hears(60, {.kind = report_online, .since = 60}), ElementsAre("returned"));
    EXPECT_THAT(hears(61, {.kind = report_offline, .since = 0, .left = 59}), IsEmpty())
        << "of the association before";
    EXPECT_EQ(people_.late, 1u);
}

TEST_F(rules, an_update_that_was_overtaken_does_not_bring_the_station_back) {
    hears(0, {.kind = report_online});
    hears(60, {.kind = report_offline, .left = 60});
    EXPECT_THAT(hears(61, {}), IsEmpty());
    EXPECT_THAT(hears(61, {.kind = report_offline, .left = 60}), IsEmpty());
    EXPECT_THAT(waits_until(90), ElementsAre("left"));
}

TEST_F(rules, a_clock_that_cannot_be_right_is_replaced_by_the_time_of_the_receipt) {
    told at_boot{.kind = report_online};
    at_boot.since = static_cast<int>(-noon / second + 12); // 1970
    hears(100, at_boot);
    EXPECT_EQ(last().began, noon + 100 * second);
    told ahead{.kind = report_online, .since = 1000, .mac = "02:00:00:00:00:02"};
    hears(100, ahead);
    EXPECT_EQ(last().began, noon + 100 * second);
    hears(200, {.kind = report_offline, .since = 1000, .left = 1200, .mac = "02:00:00:00:00:02"});
    EXPECT_EQ(last().ended, noon + 200 * second);
}

TEST_F(rules, impossible_values_are_counted_and_make_no_stay) {
    for (const char *mac :
         {"", "02:00:00:00:00", "02:00:00:00:00:0g", "02-00-00-00-00-01", "01:00:5e:00:00:01",
          "ff:ff:ff:ff:ff:ff", "00:00:00:00:00:00", "02:00:00:00:00:001"})
        EXPECT_THAT(hears(0, {.mac = mac}), IsEmpty()) << mac;
    EXPECT_THAT(hears(0, {.kind = static_cast<report_kind>(9)}), IsEmpty());
    EXPECT_THAT(hears(0, {.kind = static_cast<report_kind>(0)}), IsEmpty());
    station_report negative = make_report({});
    negative.online_ts.sec = -1;
    people_.take(negative, noon, done_);
    EXPECT_EQ(people_.refused, 11u);
    EXPECT_EQ(people_.count(), 0u);
}

TEST_F(rules, a_mac_in_capitals_is_the_same_station) {
    hears(0, {.kind = report_online, .mac = "02:00:00:00:ab:cd"});
    EXPECT_THAT(hears(1, {.mac = "02:00:00:00:AB:CD"}), ElementsAre("updated"));
}

TEST_F(rules, hostile_texts_are_escaped_in_a_stay) {
    hears(0, {.reason = "", .ssid = "a\n\x1b[2J\xff\xc3\xa9\"<b>"});
    EXPECT_EQ(last().ssid, "a\\n\\x1b[2J\\xff\xc3\xa9\"<b>");
}

TEST_F(rules, more_stations_than_may_be_are_refused_and_those_that_are_known_go_on) {
    people_ = sessions({.most_stays = 1});
    hears(0, {.kind = report_online});
    EXPECT_THAT(hears(0, {.kind = report_online, .mac = "02:00:00:00:00:02"}), IsEmpty());
    EXPECT_THAT(hears(1, {}), ElementsAre("updated"));
    EXPECT_EQ(people_.refused, 1u);
}

TEST_F(rules, another_grace_time_counts_for_those_who_are_here) {
    hears(0, {.kind = report_online});
    hears(10, {.kind = report_offline, .left = 10});
    people_.set_rules({.grace = 5 * second});
    EXPECT_THAT(waits_until(15), ElementsAre("left"));
}

TEST_F(rules, the_next_moment_in_which_somebody_may_leave_is_known) {
    EXPECT_EQ(people_.next_deadline(), std::nullopt);
    hears(0, {.kind = report_online});
    EXPECT_EQ(people_.next_deadline(), noon + 900 * second);
    hears(10, {.kind = report_offline, .left = 10});
    EXPECT_EQ(people_.next_deadline(), noon + 40 * second);
}

} // namespace
