// The table at start: whatever the backup files hold.
#include <filesystem>
#include <gmock/gmock.h>

#include "support/house.h"

#include "life/members.h"
#include "life/pass.h"
#include "life/restore.h"
#include "life/sweep.h"
#include "model/identity.h"
#include "model/table.h"
#include "tools/text.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using lines = std::vector<std::string>;

constexpr const char *file = "/tmp/sta_sta.info";
constexpr const char *whole_line =
    "my-phone aa:bb:cc:dd:ee:ff 192.168.1.5 1700000000 12 2048 4096 home/net 0 1 55 36 2M 4M "
    "100 1000 20 200 ath1 1 30 1 1 866M\n";

class restore : public House {
protected:
    restore() { sta_restored_sweep_timer = {}; }
    ~restore() override { uloop_timeout_cancel(&sta_restored_sweep_timer); }

    // The stations that a file of `text` gives.
    static std::vector<sta_info_t *> of(std::string_view text) {
        write_file(file, text);
        sta_sta_load_users();
        return stations();
    }
    // The one station that a line gives.
    static sta_info_t of_line(std::string_view text) {
        const auto all = of(text);
        EXPECT_EQ(all.size(), 1U) << text;
        return all.empty() ? sta_info_t{} : *all.back();
    }
};

TEST_F(restore, whole_line_gives_the_station_back) {
    const std::int32_t before = sta_uptime_seconds();
    const sta_info_t sta = of_line(whole_line);
    EXPECT_STREQ(sta.name, "my-phone");
    EXPECT_STREQ(sta.mac, "aa:bb:cc:dd:ee:ff");
    EXPECT_STREQ(sta.ip, "192.168.1.5");
    EXPECT_EQ(sta.online_ts.sec, 1700000000);
    EXPECT_EQ(sta.online_ts.nsec, 0);
    EXPECT_EQ(sta.oltime, 12);
    EXPECT_EQ(sta.flow_rateup, 2048);
    EXPECT_EQ(sta.flow_ratedown, 4096);
    EXPECT_STREQ(sta.ssid, "home/net"); // as it was written
    EXPECT_EQ(sta.no_backup, 0);
    EXPECT_EQ(sta.radio_id, 1);
    EXPECT_STREQ(sta.power, "55");
    EXPECT_EQ(sta.channel, 36);
    EXPECT_EQ(sta.wifi_up, 100U);
    EXPECT_EQ(sta.wifi_down, 1000U);
    EXPECT_STREQ(sta.ifname, "ath1");
    EXPECT_EQ(sta.is_reassoc, 1);
    EXPECT_EQ(sta.vlanid, 30);
    EXPECT_EQ(sta.roam_enable, 1);
    EXPECT_EQ(sta.repeater_type, 1);
    EXPECT_EQ(sta.status, 2);
    EXPECT_EQ(sta.restored, 1);
    EXPECT_EQ(sta.third_flag, 0);
    EXPECT_EQ(sta.maxRate, 0U);
    EXPECT_EQ(sta.online_clock.sec, 0);
    EXPECT_EQ(sta.online_clock.nsec, 0);
    EXPECT_GE(sta.load_uptime, before);
    EXPECT_LE(sta.load_uptime, sta_uptime_seconds());
    EXPECT_EQ(g_sta_sta_master.online, 0);
    EXPECT_EQ(log_lines(), (lines{"sta_sta_load_users: load_users:\n" + std::string(whole_line) + "\n",
                                  "sta_sta_add_usr: sta add user, mac=aa:bb:cc:dd:ee:ff. ifname=ath1\n"}));
}

TEST_F(restore, empties_the_file_and_removes_its_copy) {
    of(whole_line);
    EXPECT_TRUE(file_exists(file));
    EXPECT_EQ(read_file(file), "");
    EXPECT_FALSE(file_exists("/tmp/sta_tmp.info"));
}

TEST_F(restore, of_a_dash_gives_the_name_dash) {
    EXPECT_STREQ(
        of_line("- aa:bb:cc:dd:ee:ff 10.0.0.1 1 2 3 4 net 0 1 55 36 0M 0M 1 2 0 0 ath0 0 1 0 0 0M\n").name,
        "-");
}

TEST_F(restore, flag_that_a_record_is_not_to_be_written_is_1_only) {
    for (const auto &[field, flag] :
         std::vector<std::pair<std::string, int>>{{"1", 1}, {"2", 0}, {"-1", 0}, {"0", 0}}) {
        const sta_info_t sta = of_line("- aa:bb:cc:dd:ee:ff 10.0.0.1 1 2 3 4 net " + field +
                                       " 1 55 36 0M 0M 1 2 0 0 ath0 0 1 0 0 0M\n");
        EXPECT_EQ(sta.no_backup, flag) << field;
    }
}

TEST_F(restore, empty_texts_of_a_whole_line_are_empty_again) {
    const sta_info_t sta =
        of_line("- aa:bb:cc:dd:ee:ff  1700000000 12 0 0  0 1  6 0M 0M 100 1000 20 200  1 30 1 0 866M\n");
    EXPECT_STREQ(sta.ip, "");
    EXPECT_EQ(sta.online_ts.sec, 1700000000);
    EXPECT_STREQ(sta.ssid, "");
    EXPECT_STREQ(sta.power, "");
    EXPECT_EQ(sta.channel, 6);
    EXPECT_EQ(sta.wifi_up, 100U);
    EXPECT_STREQ(sta.ifname, "");
    EXPECT_EQ(sta.vlanid, 30);
}

TEST_F(restore, long_texts_are_cut_to_their_fields_without_harm_to_the_rest) {
    const sta_info_t sta =
        of_line(times(64, 'n') + " aa:bb:cc:dd:ee:ff " + times(20, '1') + " 5 2 3 4 " + times(50, 's') +
                " 0 1 " + times(12, '5') + " 36 0M 0M 1 2 0 0 " + times(25, 'i') + " 1 30 1 1 0M\n");
    EXPECT_EQ(std::string(sta.name), times(31, 'n'));
    EXPECT_STREQ(sta.mac, "aa:bb:cc:dd:ee:ff");
    EXPECT_EQ(std::string(sta.ip), times(16, '1'));
    EXPECT_EQ(std::string(sta.ssid), times(50, 's'));
    EXPECT_EQ(std::string(sta.power), times(7, '5'));
    EXPECT_EQ(std::string(sta.ifname), times(19, 'i'));
    EXPECT_EQ(sta.online_ts.sec, 5);
    EXPECT_EQ(sta.channel, 36);
    EXPECT_EQ(sta.vlanid, 30);
    EXPECT_EQ(sta.repeater_type, 1);
}

TEST_F(restore, line_that_is_cut_anywhere_gives_what_came_before_the_cut) {
    const std::string whole = whole_line;
    for (std::size_t length = 0; length < whole.size(); ++length) {
        sta_info_t sta{};
        char name[32] = "";
        sta_restore_parse(whole.substr(0, length).c_str(), &sta, name);
        EXPECT_TRUE(std::string("my-phone").starts_with(name)) << length;
        EXPECT_TRUE(sta.mac[0] == '\0' ||
                    std::string("aa:bb:cc:dd:ee:ff").starts_with(std::string(sta.mac).substr(0, 2)));
        EXPECT_EQ(std::string(sta.mac) == "aa:bb:cc:dd:ee:ff", length >= 26) << length;
        EXPECT_EQ(sta.online_ts.sec, length < 39   ? 0
                                     : length < 49 ? std::atoi(whole.substr(39, length - 39).c_str())
                                                   : 1700000000)
            << length;
        EXPECT_EQ(sta.radio_id, length < 75 ? 0 : 1) << length;
        EXPECT_EQ(sta.repeater_type, length < 117 ? 0 : 1) << length;
    }
}

TEST_F(restore, half_a_line_gives_half_a_station) {
    const sta_info_t sta = of_line("n aa:bb:cc:dd:ee:ff 10.0.0.1 5");
    EXPECT_STREQ(sta.name, "n");
    EXPECT_STREQ(sta.mac, "aa:bb:cc:dd:ee:ff");
    EXPECT_STREQ(sta.ip, "10.0.0.1");
    EXPECT_EQ(sta.online_ts.sec, 5);
    EXPECT_EQ(sta.oltime, 0);
    EXPECT_STREQ(sta.ssid, "");
    EXPECT_EQ(sta.restored, 1);
}

TEST_F(restore, line_of_23_fields_is_read_up_to_what_does_not_fit) {
    // The address is missing: the clock stands where it was.
    const sta_info_t sta =
        of_line("n aa:bb:cc:dd:ee:ff 1700000000 12 2048 4096 home/net 0 1 55 36 2M 4M 1 2 3 4 ath1 1 30 1 1 "
                "866M\n");
    EXPECT_STREQ(sta.ip, "1700000000");
    EXPECT_EQ(sta.online_ts.sec, 12);
    EXPECT_EQ(sta.oltime, 2048);
    EXPECT_EQ(sta.flow_rateup, 4096);
    EXPECT_EQ(sta.flow_ratedown, 0); // "home/net" is no number
    EXPECT_STREQ(sta.ssid, "");
    EXPECT_STREQ(sta.ifname, "");
}

TEST_F(restore, line_with_several_blanks_or_tabs_between_its_fields_is_read) {
    const sta_info_t sta =
        of_line("  n\taa:bb:cc:dd:ee:ff   10.0.0.1 5\t\t6 7 8 net 0 1 55 36 0M 0M 1 2 0 0 ath0 1 2 1 0 0M\n");
    EXPECT_STREQ(sta.mac, "aa:bb:cc:dd:ee:ff");
    EXPECT_STREQ(sta.ip, "10.0.0.1");
    EXPECT_EQ(sta.oltime, 6);
    EXPECT_STREQ(sta.ifname, "ath0");
    EXPECT_EQ(sta.vlanid, 2);
}

TEST_F(restore, numbers_beyond_their_width_give_a_record_all_the_same) {
    const sta_info_t sta =
        of_line("n aa:bb:cc:dd:ee:ff 10.0.0.1 99999999999999999999 99999999999 1 2 net 0 1 55 36 0M 0M "
                "99999999999999999999999 -1 0 0 ath0 300 1 300 -300 0M\n");
    EXPECT_STREQ(sta.mac, "aa:bb:cc:dd:ee:ff");
    EXPECT_STREQ(sta.ip, "10.0.0.1");
    EXPECT_EQ(sta.status, 2);
}

TEST_F(restore, small_fields_do_not_write_over_their_neighbours) {
    const sta_info_t sta =
        of_line("n aa:bb:cc:dd:ee:ff 10.0.0.1 1 2 3 4 net 0 1 55 36 0M 0M 1 2 0 0 ath0 257 5 258 259 0M\n");
    EXPECT_EQ(sta.is_reassoc, 1);
    EXPECT_STREQ(sta.ap_mac, "");
    EXPECT_EQ(sta.roam_enable, 2);
    EXPECT_EQ(sta.repeater_type, 3);
    EXPECT_EQ(sta.rssi, 0);
    EXPECT_EQ(sta.online_ts.nsec, 0);
}

TEST_F(restore, any_twelve_characters_around_colons_are_a_mac_and_nothing_else_is) {
    EXPECT_STREQ(of_line("n zz:;|:$(:id:)&:## 10.0.0.1 5\n").mac, "zz:;|:$(:id:)&:##");
}

TEST_F(restore, mac_with_white_space_has_one_line_which_goes_with_the_station) {
    std::string with_tab = whole_line;
    with_tab.replace(with_tab.find("bb:"), 2, "b\t");
    for (const auto &[text, mac] :
         {std::pair<std::string, const char *>{"n a :bb:cc:dd:ee:ff 10.0.0.1 5\n", "a-:bb:cc:dd:ee:ff"},
          std::pair<std::string, const char *>{with_tab, "aa:b-:cc:dd:ee:ff"}}) {
        of_line(text);
        for (int pass = 0; pass < 2; ++pass) sta_sta_flow_count_proc();
        const std::string written = read_file(file);
        EXPECT_NE(written.find(" " + std::string(mac) + " "), std::string::npos) << written;
        EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), 1) << written;
        sta_sta_del_usr(stations().at(0));
        EXPECT_EQ(read_file(file), "");
    }
}

TEST_F(restore, mac_that_breaks_off_ends_there) {
    for (const auto &[text, mac] :
         std::vector<std::pair<std::string, std::string>>{{"n aa:bb", "aa:bb:"},
                                                          {"n aabbccddeeff 10.0.0.1", "aa:"},
                                                          {"n aa:bb:cc:dd:ee", "aa:bb:cc:dd:ee:"},
                                                          {"n a", "a"},
                                                          {"n", ""},
                                                          {"", ""},
                                                          {"\n", ""},
                                                          {"   \n", ""}}) {
        sta_info_t sta{};
        char name[32] = "";
        sta_restore_parse(text.c_str(), &sta, name);
        EXPECT_EQ(sta.mac, mac) << text;
        EXPECT_STREQ(sta.ip, "");
    }
}

TEST_F(restore, empty_and_unreadable_lines_share_one_record_without_mac) {
    const auto all = of("\n\n  \nword\n" + std::string(whole_line));
    ASSERT_EQ(all.size(), 2U);
    EXPECT_STREQ(all[0]->mac, "");
    EXPECT_STREQ(all[1]->mac, "aa:bb:cc:dd:ee:ff");
}

TEST_F(restore, two_lines_with_one_mac_give_one_station) {
    const auto all = of("- aa:bb:cc:dd:ee:ff 10.0.0.1 1\nn aa:bb:cc:dd:ee:ff 10.0.0.2 2\n");
    ASSERT_EQ(all.size(), 1U);
    EXPECT_STREQ(all[0]->ip, "10.0.0.1");
    EXPECT_STREQ(all[0]->name, "n");
}

TEST_F(restore, rest_of_a_long_line_is_no_station_of_its_own) {
    const std::string mac = " aa:bb:cc:dd:ee:ff ";
    EXPECT_EQ(of("n 02:00:00:00:00:01 " + times(300, '1') + mac + "10.0.0.1 5\n" + whole_line).size(), 2U);
    EXPECT_EQ(std::string(stations()[0]->ip), times(16, '1'));
}

TEST_F(restore, line_of_exactly_249_characters_does_not_swallow_the_next) {
    for (const std::size_t length : std::initializer_list<std::size_t>{247, 248, 249, 250, 251}) {
        std::string line = "n 02:00:00:00:00:01 10.0.0.1 5 1 1 1 ";
        line += times(length - line.size(), 's');
        EXPECT_EQ(of(line + "\n" + whole_line).size(), 2U) << length;
    }
}

TEST_F(restore, line_with_a_nul_ends_there_and_its_rest_is_no_station_of_its_own) {
    using namespace std::string_literals;
    const auto all = of("n 02:00:00:00:00:01 10.0.0.1\0 5"s + times(300, 'x') + " 02:00:00:00:00:02\n"s +
                        "\0\0\n"s + whole_line);
    ASSERT_EQ(all.size(), 3U); // the middle one has no MAC
    EXPECT_STREQ(all[0]->ip, "10.0.0.1");
    EXPECT_EQ(all[0]->online_ts.sec, 0);
    EXPECT_STREQ(all[1]->mac, "");
    EXPECT_STREQ(all[2]->mac, "aa:bb:cc:dd:ee:ff");
}

TEST_F(restore, last_line_without_line_feed_counts) {
    std::string torn = whole_line;
    torn.pop_back();
    EXPECT_EQ(of_line(torn).repeater_type, 1);
}

TEST_F(restore, arms_the_sweep_for_five_minutes_also_for_an_empty_file) {
    of("");
    EXPECT_THAT(stations(), IsEmpty());
    EXPECT_TRUE(sta_restored_sweep_timer.pending);
    EXPECT_EQ(sta_restored_sweep_timer.cb, sta_sta_restored_sweep);
    const std::int64_t left = uloop_timeout_remaining64(&sta_restored_sweep_timer);
    EXPECT_GT(left, 295000);
    EXPECT_LE(left, 300000);
}

TEST_F(restore, without_a_file_says_so_and_arms_no_sweep) {
    sta_sta_load_users();
    EXPECT_EQ(log_lines(), lines{"sta_sta_load_users: sta user info is null.\n"});
    EXPECT_FALSE(sta_restored_sweep_timer.pending);
    EXPECT_FALSE(file_exists(file));
}

TEST_F(restore, stations_beyond_the_limit_are_all_taken_as_none_is_on_line) {
    sta_max_num = 1;
    EXPECT_EQ(of("- 02:00:00:00:00:01 1\n- 02:00:00:00:00:02 1\n").size(), 2U);
    sta_max_num = 0;
    write_file(file, "- 02:00:00:00:00:03 1\n");
    sta_sta_load_users();
    EXPECT_EQ(stations().size(), 2U);
}

TEST_F(restore, without_memory_for_a_record_ends_there_without_a_sweep) {
    fail_allocation(4); // record, name and index of the first station, record of the second
    EXPECT_EQ(of("- 02:00:00:00:00:01 1\n- 02:00:00:00:00:02 2\n").size(), 1U);
    EXPECT_TRUE(allocation_failed());
    EXPECT_FALSE(sta_restored_sweep_timer.pending);
}

TEST_F(restore, address_and_name_of_a_line_are_known_as_restored) {
    const sta_info_t *sta = of("phone 02:00:00:00:00:01 10.0.0.1 1\n").at(0);
    ASSERT_EQ(sta_identity_addresses(sta).size(), 1U);
    EXPECT_EQ(sta_identity_addresses(sta)[0].origin, station_origin::restored);
    ASSERT_EQ(sta_identity_names(sta).size(), 1U);
    EXPECT_STREQ(sta_identity_names(sta)[0].text, "phone");
    EXPECT_EQ(sta_identity_names(sta)[0].origin, station_origin::restored);
}

TEST_F(restore, without_memory_for_a_name_gives_a_station_without_one) {
    fail_allocation(2);
    const auto all = of("one 02:00:00:00:00:01 10.0.0.1 1\ntwo 02:00:00:00:00:02 10.0.0.2 2\n");
    ASSERT_EQ(all.size(), 2U);
    EXPECT_EQ(all[0]->name, nullptr);
    EXPECT_STREQ(all[1]->name, "two");
    EXPECT_TRUE(sta_restored_sweep_timer.pending);
}

TEST_F(restore, table_at_start_is_empty_but_for_the_restored_and_has_its_counters) {
    write_file(file, whole_line);
    write_file("/tmp/sta_devc.info", "1 2 3 4 9\n");
    g_sta_sta_master.online = 7;
    EXPECT_EQ(sta_sta_init(), 0);
    EXPECT_EQ(stations().size(), 1U);
    EXPECT_EQ(g_sta_sta_master.online, 0);
    EXPECT_THAT(g_sta_sta_master.device_count, ElementsAre(1, 2, 3, 4));
}

TEST_F(restore, table_at_the_first_start_is_empty) {
    for (std::int32_t &count : g_sta_sta_master.device_count) count = 5;
    EXPECT_EQ(sta_sta_init(), 0);
    EXPECT_THAT(stations(), IsEmpty());
    EXPECT_THAT(g_sta_sta_master.device_count, ElementsAre(0, 0, 0, 0));
    EXPECT_TRUE(logged("sta_sta_load_users", "sta user info is null.\n"));
    EXPECT_TRUE(logged("sta_sta_load_devc", "sta devc info is null.\n"));
}

} // namespace
