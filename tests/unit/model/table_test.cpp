// The table as such, and who is in it.
#include <gmock/gmock.h>
#include <type_traits>

#include "support/house.h"

#include "life/members.h"
#include "model/members.h"
#include "model/table.h"
#include "tools/memory.h"
#include "tools/text.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using lines = std::vector<std::string>;

constexpr const char *first_mac = "02:00:00:00:00:01";
constexpr const char *second_mac = "02:00:00:00:00:02";
constexpr const char *backup_file = "/tmp/sta_sta.info";

std::string backup_line(const char *mac) {
    return std::string("- ") + mac + " 0.0.0.0 0 0 0 0 net 0 0 1 11\n";
}

using record = House;

TEST_F(record, that_is_new_waits_with_its_texts_its_clock_running_and_all_else_zero) {
    const std::int32_t before = sta_monotonic_seconds();
    sta_info_t *sta = sta_sta_new(first_mac, "lobby");
    ASSERT_NE(sta, nullptr);
    EXPECT_GE(sta->online_clock.sec, before);
    EXPECT_LE(sta->online_clock.sec, sta_monotonic_seconds());
    EXPECT_EQ(sta->status, 2);
    EXPECT_STREQ(sta->mac, first_mac);
    EXPECT_STREQ(sta->ssid, "lobby");
    sta_info_t expected;
    std::memset(&expected, 0, sizeof(expected));
    sta_put_text(expected.mac, first_mac);
    sta_put_text(expected.ssid, "lobby");
    expected.status = 2;
    expected.online_clock = sta->online_clock;
    EXPECT_EQ(std::memcmp(sta, &expected, sizeof(expected)), 0);
    EXPECT_THAT(stations(), IsEmpty());
    EXPECT_EQ(mem_total_cnt, 1U);
    sta_sta_free(sta);
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(record, cuts_long_texts_to_their_fields) {
    sta_info_t *sta = sta_sta_new(times(30, 'm').c_str(), times(200, 's').c_str());
    EXPECT_EQ(std::string(sta->mac), times(19, 'm'));
    EXPECT_EQ(std::string(sta->ssid), times(127, 's'));
    sta_sta_free(sta);
}

TEST_F(record, is_not_made_of_missing_texts) {
    EXPECT_EQ(sta_sta_new(nullptr, "s"), nullptr);
    EXPECT_EQ(sta_sta_new("m", nullptr), nullptr);
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(record, is_not_made_without_memory_and_the_reason_is_told) {
    fail_allocation(1);
    EXPECT_EQ(sta_sta_new(first_mac, "s"), nullptr);
    EXPECT_EQ(log_lines(), lines{"sta_sta_new: malloc sta_info_t fail, Cannot allocate memory.\n"});
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(record, is_freed_with_its_name) {
    sta_info_t *sta = sta_sta_new(first_mac, "s");
    sta->name = sta_strdup("phone");
    sta_sta_free(sta);
    EXPECT_EQ(mem_total_cnt, 0U);
    sta_sta_free(nullptr);
    EXPECT_EQ(mem_total_cnt, 0U);
}

using search = House;

TEST_F(search, finds_the_exact_mac_and_says_so) {
    sta_info_t *sta = put_station(first_mac);
    sta_put_text(sta->ip, "10.0.0.1");
    EXPECT_EQ(sta_sta_find_usr(first_mac), sta);
    EXPECT_EQ(log_lines(),
              lines{"sta_sta_find_usr: find user, status=2, ip=10.0.0.1, mac=02:00:00:00:00:01.\n"});
}

TEST_F(search, finds_nothing_else_and_is_silent_about_it) {
    put_station("02:00:00:00:00:ab");
    EXPECT_EQ(sta_sta_find_usr("02:00:00:00:00:AB"), nullptr);
    EXPECT_EQ(sta_sta_find_usr("02:00:00:00:00:a"), nullptr);
    EXPECT_EQ(sta_sta_find_usr("02:00:00:00:00:ab "), nullptr);
    EXPECT_EQ(sta_sta_find_usr(""), nullptr);
    EXPECT_EQ(sta_sta_find_usr(nullptr), nullptr);
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(search, finds_the_earliest_of_two) {
    sta_info_t *first = put_station(first_mac);
    put_station(first_mac);
    EXPECT_EQ(sta_sta_find_usr(first_mac), first);
}

using list = House;

TEST_F(list, primitives_make_append_and_unlink) {
    list_head head{}, first{}, second{};
    list_init(&head);
    EXPECT_EQ(head.next, &head);
    EXPECT_EQ(head.prev, &head);
    EXPECT_TRUE(list_empty(&head));
    list_add_tail(&first, &head);
    list_add_tail(&second, &head);
    EXPECT_FALSE(list_empty(&head));
    EXPECT_EQ(head.next, &first);
    EXPECT_EQ(first.next, &second);
    EXPECT_EQ(head.prev, &second);
    list_del_init(&first);
    EXPECT_EQ(first.next, &first);
    EXPECT_EQ(first.prev, &first);
    EXPECT_EQ(head.next, &second);
}

TEST_F(list, link_is_the_first_member_of_a_record) {
    static_assert(std::is_standard_layout_v<sta_info_t>);
    EXPECT_EQ(offsetof(sta_info_t, list), 0U);
}

class adding : public House {
protected:
    // A record as an event makes it.
    static sta_info_t *made(const char *mac, const char *ifname = "ath0") {
        sta_info_t *sta = sta_sta_new(mac, "net");
        sta_put_text(sta->ifname, ifname);
        return sta;
    }
};

TEST_F(adding, new_station_is_appended_neither_counted_nor_written) {
    put_station(first_mac);
    sta_info_t *sta = made(second_mac);
    EXPECT_EQ(sta_sta_add_usr(sta), 0);
    EXPECT_EQ(stations().back(), sta);
    EXPECT_EQ(stations().size(), 2U);
    EXPECT_EQ(g_sta_sta_master.online, 0);
    EXPECT_FALSE(file_exists(backup_file));
    EXPECT_EQ(log_lines(), lines{"sta_sta_add_usr: sta add user, mac=02:00:00:00:00:02. ifname=ath0\n"});
    EXPECT_EQ(sta_sta_add_usr(made("02:00:00:00:00:03", "")), 0);
    EXPECT_TRUE(logged("sta_sta_add_usr", "sta add user, mac=02:00:00:00:00:03. ifname=NULL\n"));
}

TEST_F(adding, nothing_is_refused) {
    EXPECT_EQ(sta_sta_add_usr(nullptr), -1);
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(adding, station_at_the_limit_of_those_on_line_is_refused_and_freed) {
    sta_max_num = 2;
    put_station(first_mac, sta_status_online);
    put_station(second_mac, sta_status_online);
    sta_info_t *sta = made("02:00:00:00:00:03");
    sta->name = sta_strdup("phone");
    EXPECT_EQ(sta_sta_add_usr(sta), -1);
    EXPECT_EQ(stations().size(), 2U);
    EXPECT_TRUE(
        logged("sta_sta_add_usr", "sta add user 02:00:00:00:00:03 failed ! reach max sta_numbers 2.\n"));
}

TEST_F(adding, even_a_known_station_is_refused_at_the_limit) {
    sta_max_num = 1;
    sta_info_t *known = put_station(first_mac, sta_status_online);
    sta_info_t *sta = made(first_mac);
    sta->radio_id = 1;
    EXPECT_EQ(sta_sta_add_usr(sta), -1);
    EXPECT_EQ(known->radio_id, 0);
    EXPECT_EQ(known->status, 1);
    EXPECT_EQ(g_sta_sta_master.online, 1);
}

TEST_F(adding, everybody_is_refused_with_a_limit_of_0) {
    sta_max_num = 0;
    EXPECT_EQ(sta_sta_add_usr(made(first_mac)), -1);
    EXPECT_THAT(stations(), IsEmpty());
}

TEST_F(adding, stations_that_wait_do_not_count_against_the_limit) {
    sta_max_num = 2;
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(sta_sta_add_usr(made(("02:00:00:00:00:0" + std::to_string(i)).c_str())), 0);
    EXPECT_EQ(stations().size(), 10U);
}

TEST_F(adding, known_station_on_line_takes_the_new_place_and_waits_again) {
    sta_info_t *known = put_station(first_mac, sta_status_online);
    sta_put_text(known->ifname, "ath0");
    known->name = sta_strdup("old name");
    known->restored = 1;
    known->wifi_up = 77;
    known->online_ts.sec = 5;
    known->single_log_up_cnt = 3;
    known->online_clock = {1, 2};
    sta_put_text(known->ip, "10.0.0.1");
    sta_info_t *sta = made(first_mac, "ath1");
    sta->radio_id = 1;
    sta->no_backup = 1;
    sta->third_flag = 9;
    sta->name = sta_strdup("-");
    sta->wifi_up = 1;
    sta->online_ts.sec = 6;
    sta_put_text(sta->ssid, "other net");
    EXPECT_EQ(sta_sta_add_usr(sta), 0);
    EXPECT_THAT(stations(), ElementsAre(known));
    EXPECT_EQ(g_sta_sta_master.online, 0);
    EXPECT_EQ(known->status, 2);
    EXPECT_EQ(known->radio_id, 1);
    EXPECT_EQ(known->restored, 0);
    EXPECT_EQ(known->no_backup, 1);
    EXPECT_EQ(known->third_flag, 9);
    EXPECT_STREQ(known->ifname, "ath1");
    EXPECT_STREQ(known->name, "-");
    // Everything else stays.
    EXPECT_STREQ(known->ssid, "net");
    EXPECT_STREQ(known->ip, "10.0.0.1");
    EXPECT_EQ(known->wifi_up, 77U);
    EXPECT_EQ(known->online_ts.sec, 5);
    EXPECT_EQ(known->single_log_up_cnt, 3);
    EXPECT_EQ(known->online_clock.sec, 1);
    EXPECT_FALSE(file_exists(backup_file));
}

TEST_F(adding, known_station_keeps_name_and_interface_when_the_new_record_has_none) {
    sta_info_t *known = put_station(first_mac);
    sta_put_text(known->ifname, "ath0");
    known->name = sta_strdup("phone");
    sta_sta_add_usr(made(first_mac, ""));
    EXPECT_STREQ(known->ifname, "ath0");
    EXPECT_STREQ(known->name, "phone");
    sta_info_t *sta = made(first_mac, "");
    sta->name = sta_strdup("");
    sta_sta_add_usr(sta);
    EXPECT_STREQ(known->name, "phone");
    EXPECT_EQ(g_sta_sta_master.online, 0);
}

TEST_F(adding, known_station_keeps_its_name_without_memory_for_the_new_one) {
    sta_info_t *known = put_station(first_mac);
    known->name = sta_strdup("phone");
    sta_info_t *sta = made(first_mac, "ath1");
    sta->name = sta_strdup("other");
    fail_allocation(1);
    EXPECT_EQ(sta_sta_add_usr(sta), 0);
    EXPECT_TRUE(allocation_failed());
    EXPECT_STREQ(known->name, "phone");
    EXPECT_STREQ(known->ifname, "ath1");
}

TEST_F(adding, record_that_does_not_wait_rewrites_the_line_with_its_own_values) {
    sta_info_t *known = put_station(first_mac, sta_status_online);
    sta_put_text(known->ip, "10.0.0.1");
    write_file(backup_file, backup_line(first_mac));
    sta_info_t *sta = made(first_mac);
    sta->status = sta_status_online;
    sta_put_text(sta->ip, "10.0.0.2");
    sta_put_text(sta->power, "55");
    EXPECT_EQ(sta_sta_add_usr(sta), 0);
    EXPECT_EQ(read_file(backup_file),
              "- 02:00:00:00:00:01 10.0.0.2 0 0 0 0 net 0 0 55 11 0M 0M 0 0 0 0 ath0 0 0 0 0 0M\n");
    EXPECT_EQ(g_sta_sta_master.online, 1);
    EXPECT_EQ(known->status, 1);
    EXPECT_STREQ(known->ip, "10.0.0.1");
}

TEST_F(adding, record_that_is_there_already_changes_nothing) {
    sta_info_t *sta = put_station(first_mac);
    EXPECT_EQ(sta_sta_add_usr(sta), 0);
    EXPECT_THAT(stations(), ElementsAre(sta));
}

TEST_F(adding, mac_in_another_case_is_another_station) {
    sta_sta_add_usr(made("02:00:00:00:00:ab"));
    sta_sta_add_usr(made("02:00:00:00:00:AB"));
    EXPECT_EQ(stations().size(), 2U);
}

class removing : public House {
protected:
    removing() {
        sta_put_text(sta->ifname, "ath0");
        sta_put_text(sta->ip, "10.0.0.1");
        sta->name = sta_strdup("phone");
        write_file(backup_file, backup_line(first_mac) + backup_line(second_mac));
    }
    sta_info_t *sta = put_station(first_mac, sta_status_online);
};

TEST_F(removing, station_on_line_is_uncounted_and_its_line_goes) {
    sta_sta_del_usr(sta);
    EXPECT_THAT(stations(), IsEmpty());
    EXPECT_EQ(g_sta_sta_master.online, 0);
    EXPECT_EQ(read_file(backup_file), backup_line(second_mac));
    EXPECT_EQ(log_lines(), (lines{"sta_sta_users_backup_del: 02:00:00:00:00:01 found!\n",
                                  "sta_sta_users_backup_del: The sta is error:",
                                  "sta_sta_del_usr: Delete user(ip=10.0.0.1, mac=02:00:00:00:00:01).\n"}));
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(removing, station_that_waits_is_not_uncounted) {
    sta_info_t *waiting = put_station(second_mac);
    sta_sta_del_usr(waiting);
    EXPECT_EQ(g_sta_sta_master.online, 1);
    EXPECT_THAT(stations(), ElementsAre(sta));
    sta_sta_del_usr(nullptr);
    EXPECT_THAT(stations(), ElementsAre(sta));
}

TEST_F(removing, by_mac_on_its_interface_removes_the_station) {
    sta_sta_del_usr_by_mac(first_mac, "ath0");
    EXPECT_THAT(stations(), IsEmpty());
    EXPECT_EQ(read_file(backup_file), backup_line(second_mac));
}

TEST_F(removing, by_its_own_mac_text_is_safe) {
    sta_sta_del_usr_by_mac(sta->mac, sta->ifname);
    EXPECT_THAT(stations(), IsEmpty());
    EXPECT_EQ(read_file(backup_file), backup_line(second_mac));
}

TEST_F(removing, by_mac_on_another_interface_leaves_record_and_line) {
    sta_sta_del_usr_by_mac(first_mac, "ath1");
    EXPECT_THAT(stations(), ElementsAre(sta));
    EXPECT_EQ(read_file(backup_file), backup_line(first_mac) + backup_line(second_mac));
    EXPECT_TRUE(
        filed("sta_sta_del_usr_by_mac: mac:02:00:00:00:00:01 ifname old:ath0 new:ath1 mismatching.\n"));
    sta_sta_del_usr_by_mac(first_mac, "ath");
    sta_sta_del_usr_by_mac(first_mac, "");
    sta_sta_del_usr_by_mac(first_mac, nullptr);
    EXPECT_THAT(stations(), ElementsAre(sta));
}

TEST_F(removing, by_unknown_mac_removes_its_line_all_the_same) {
    sta_sta_del_usr_by_mac(second_mac, "ath0");
    EXPECT_EQ(read_file(backup_file), backup_line(first_mac));
    EXPECT_EQ(lines_of("sta_sta_del_usr_by_mac"), (lines{"sta delete, find usr 02:00:00:00:00:02 fail.\n",
                                                         "Delete user(mac=02:00:00:00:00:02).\n"}));
    sta_sta_del_usr_by_mac(nullptr, "ath0");
    EXPECT_TRUE(logged("sta_sta_del_usr_by_mac", "Delete user(mac=NULL).\n"));
    EXPECT_THAT(stations(), ElementsAre(sta));
    EXPECT_EQ(read_file(backup_file), backup_line(first_mac));
}

} // namespace
