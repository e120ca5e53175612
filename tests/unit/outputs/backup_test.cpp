// The backup file's lines, one by one.
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include "support/house.h"

#include "inputs/dhcpmon_list.h"
#include "model/table.h"
#include "outputs/backup.h"
#include "outputs/backup_line_of.h"
#include "tools/memory.h"
#include "tools/text.h"

namespace {

using testing::IsEmpty;
using lines = std::vector<std::string>;

constexpr const char *file = "/tmp/sta_sta.info";
constexpr const char *mac = "aa:bb:cc:dd:ee:ff";
const std::string kept_line = "- 02:00:00:00:00:02 0.0.0.0 0 0 0 0 net 0 0 1 11\n";

class backup_line : public House {
protected:
    backup_line() {
        sta->name = sta_strdup("my phone");
        sta_put_text(sta->ip, "192.168.1.5");
        sta->online_ts.sec = 1700000000;
        sta->oltime = 12;
        sta->flow_rateup = 2048;
        sta->flow_ratedown = 4096;
        sta_put_text(sta->ssid, "home net ");
        sta->radio_id = 1;
        sta_put_text(sta->power, "55");
        sta->channel = 36;
        sta->wifi_up = 100;
        sta->wifi_down = 1000;
        sta_put_text(sta->ifname, "ath1");
        sta->is_reassoc = 1;
        sta->vlanid = 1;
        sta->maxRate = 866;
    }
    // The line that the station leaves in an empty file.
    std::string written() {
        std::filesystem::remove(file);
        sta_sta_users_backup_add(sta);
        return read_file(file);
    }
    // Field `number` of it, from 1.
    std::string field(std::size_t number) {
        std::string text = written();
        text.pop_back();
        for (std::size_t i = 1; i < number; ++i) text.erase(0, text.find(' ') + 1);
        return text.substr(0, text.find(' '));
    }
    void name_is(const char *name) {
        sta_free(sta->name);
        sta->name = name ? sta_strdup(name) : nullptr;
    }

    sta_info_t *sta = put_station(mac);
};

TEST_F(backup_line, has_its_24_fields_in_order) {
    EXPECT_EQ(written(),
              "my-phone aa:bb:cc:dd:ee:ff 192.168.1.5 1700000000 12 2048 4096 home/net 0 1 55 36 2M 4M 100 "
              "1000 20 200 ath1 1 1 0 0 866M\n");
    EXPECT_STREQ(sta->name, "my-phone");
    EXPECT_STREQ(sta->ssid, "home net ");
    EXPECT_EQ(lines_of("sta_sta_users_backup_add"),
              (lines{"last_wifi_up:0 last_wifi_down: 0 wifi_up 100 wifi_down 1000 wifi_up_rate 20 "
                     "wifi_down_rate 200\n",
                     "load_users:\nflow_rateup 2048 flow_ratedown 4096 rxrate 2M txrate 4M maxrate 866M\n"}));
}

TEST_F(backup_line, is_appended_to_what_is_there) {
    write_file(file, kept_line);
    sta_sta_users_backup_add(sta);
    EXPECT_TRUE(read_file(file).starts_with(kept_line + "my-phone aa:bb"));
}

TEST_F(backup_line, shows_no_name_and_an_empty_one_as_a_dash) {
    name_is(nullptr);
    EXPECT_EQ(field(1), "-");
    EXPECT_EQ(sta->name, nullptr);
    name_is("");
    EXPECT_EQ(field(1), "-");
    EXPECT_STREQ(sta->name, "-"); // in the record too
}

TEST_F(backup_line, shows_an_empty_name_as_a_dash_without_memory_for_the_record) {
    name_is("");
    fail_allocation(1);
    EXPECT_EQ(field(1), "-");
    EXPECT_TRUE(allocation_failed());
    EXPECT_STREQ(sta->name, "");
}

TEST_F(backup_line, has_a_name_of_128_characters_whole) {
    name_is(times(128, 'n').c_str());
    EXPECT_EQ(field(1), times(128, 'n'));
}

TEST_F(backup_line, shows_a_channel_below_1_as_11) {
    for (const int channel : {0, -1}) {
        sta->channel = channel;
        EXPECT_EQ(field(12), "11");
        EXPECT_EQ(sta->channel, channel);
    }
    sta->channel = 1;
    EXPECT_EQ(field(12), "1");
}

TEST_F(backup_line, shows_blanks_of_the_network_as_strokes_but_for_trailing_ones) {
    for (const auto &[ssid, shown] : std::vector<std::pair<const char *, const char *>>{
             {"  a b ", "//a/b"}, {"a", "a"}, {"   ", ""}, {"", ""}, {"a  b", "a//b"}}) {
        sta_put_text(sta->ssid, ssid);
        EXPECT_EQ(field(8), shown) << ssid;
    }
}

TEST_F(backup_line, cannot_be_forged_by_white_space_in_foreign_texts) {
    name_is("a\nb\tc\rd");
    sta_put_text(sta->ssid, "x\ny\tz");
    sta_put_text(sta->ifname, "ath\n1");
    sta_put_text(sta->ip, "1 2\n3");
    EXPECT_EQ(written(),
              "a-b-c-d aa:bb:cc:dd:ee:ff 1-2-3 1700000000 12 2048 4096 x/y/z 0 1 55 36 2M 4M 100 1000 20 200 "
              "ath-1 1 1 0 0 866M\n");
}

TEST_F(backup_line, has_two_blanks_around_an_empty_text) {
    sta_put_text(sta->power, "");
    sta_put_text(sta->ip, "");
    sta_put_text(sta->ifname, "");
    EXPECT_EQ(written(),
              "my-phone aa:bb:cc:dd:ee:ff  1700000000 12 2048 4096 home/net 0 1  36 2M 4M 100 1000 20 200  1 "
              "1 0 0 866M\n");
}

TEST_F(backup_line, prints_numbers_with_their_signs_and_widths) {
    sta->online_ts.sec = -1;
    sta->oltime = -2;
    sta->flow_rateup = -1;
    sta->flow_ratedown = INT32_MIN;
    sta->radio_id = -3;
    sta->wifi_up = UINT64_MAX;
    sta->wifi_down = 4;
    sta->is_reassoc = -4;
    sta->vlanid = -5;
    sta->roam_enable = 255;
    sta->repeater_type = -6;
    sta->maxRate = 0xffffffff;
    // The rate texts have at most 7 characters: of 4194303M the unit is cut.
    EXPECT_EQ(
        written(),
        "my-phone aa:bb:cc:dd:ee:ff 192.168.1.5 -1 -2 -1 -2147483648 home/net 0 -3 55 36 4194303 2097152 "
        "18446744073709551615 4 3689348814741910323 0 ath1 -4 -5 255 -6 -1M\n");
}

TEST_F(backup_line, of_a_flagged_record_is_not_written_but_the_file_is_made) {
    sta->no_backup = 1;
    EXPECT_EQ(written(), "");
    EXPECT_TRUE(file_exists(file));
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(backup_line, of_a_record_without_mac_makes_no_file) {
    sta_put_text(sta->mac, "");
    written();
    sta_sta_users_backup_add(nullptr);
    EXPECT_FALSE(file_exists(file));
}

TEST_F(backup_line, that_cannot_be_written_harms_nobody) {
    std::filesystem::create_directory(file);
    sta_sta_users_backup_add(sta);
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(backup_line, that_finds_no_room_is_told_of) {
    const full_disk disk;
    sta_sta_users_backup_add(sta);
    EXPECT_TRUE(logged("sta_sta_users_backup_add", "/tmp/sta_sta.info write error.\n"));
}

class bridged : public backup_line {
protected:
    bridged() {
        write_file("/etc/config/wifiinfo", "config wifiinfo 'global'\n\toption sdk 'mtk'\n");
        write_file("/etc/config/wireless",
                   "config wifi-iface\n\toption ifname 'ath1'\n\toption network 'guest'\n");
        write_file("/etc/config/sysinfo", "config sysinfo\n\toption forwardMode 'AP'\n");
        sta_sta_get_dhcpmon_list_by_ubus("10.0.0.7", "tv set", mac);
        sta_put_text(sta->ip, "0.0.0.0");
    }
};

TEST_F(bridged, station_takes_address_and_name_from_the_monitor_before_it_is_written) {
    EXPECT_TRUE(written().starts_with("tv-set aa:bb:cc:dd:ee:ff 10.0.0.7 "));
    EXPECT_STREQ(sta->ip, "10.0.0.7");
    EXPECT_STREQ(sta->name, "tv-set");
}

TEST_F(bridged, station_with_an_address_keeps_it) {
    sta_put_text(sta->ip, "10.0.0.1");
    EXPECT_TRUE(written().starts_with("my-phone aa:bb:cc:dd:ee:ff 10.0.0.1 "));
}

TEST_F(bridged, station_of_a_lan_takes_nothing) {
    write_file("/etc/config/wireless", "config wifi-iface\n\toption ifname 'ath1'\n\toption network 'lan'\n");
    EXPECT_TRUE(written().starts_with("my-phone aa:bb:cc:dd:ee:ff 0.0.0.0 "));
}

using removal = House;

TEST_F(removal, leaves_all_other_lines_as_they_are) {
    write_file(file, kept_line + "- aa:bb:cc:dd:ee:ff 10.0.0.1 1 1 1 1 net 0 1\n" + times(36, 'x') + "\n");
    sta_sta_users_backup_del(mac);
    EXPECT_EQ(read_file(file), kept_line + times(36, 'x') + "\n");
    EXPECT_FALSE(file_exists("/tmp/sta_sta_tmp.info"));
    EXPECT_EQ(log_lines(), (lines{"sta_sta_users_backup_del: aa:bb:cc:dd:ee:ff found!\n",
                                  "sta_sta_users_backup_del: The sta is error:"}));
}

TEST_F(removal, reads_once_more_behind_a_whole_line_and_an_empty_file) {
    write_file(file, "");
    sta_sta_users_backup_del(mac);
    EXPECT_EQ(log_lines(), lines{"sta_sta_users_backup_del: The sta is error:"});
    forget_log();
    write_file(file, kept_line + times(40, 'x')); // torn
    sta_sta_users_backup_del(mac);
    EXPECT_THAT(log_lines(), IsEmpty());
    EXPECT_EQ(read_file(file), kept_line + times(40, 'x'));
}

TEST_F(removal, drops_lines_shorter_than_36_characters) {
    write_file(file, times(19, 'x') + "\n" + times(34, 'y') + "\n" + times(35, 'z') + "\n" + "torn");
    sta_sta_users_backup_del(mac);
    EXPECT_EQ(read_file(file), times(35, 'z') + "\n"); // 36 with its line feed
    EXPECT_EQ(log_lines(), (lines{"sta_sta_users_backup_del: The sta is error:" + times(19, 'x') + "\n",
                                  "sta_sta_users_backup_del: The sta is error:" + times(34, 'y') + "\n",
                                  "sta_sta_users_backup_del: The sta is error:torn"}));
}

TEST_F(removal, drops_a_line_that_holds_the_mac_in_any_field) {
    write_file(file, "host 02:00:00:00:00:01 10.0.0.1 1 1 1 1 aa:bb:cc:dd:ee:ff 0 1\n" + kept_line);
    sta_sta_users_backup_del(mac);
    EXPECT_EQ(read_file(file), kept_line);
}

TEST_F(removal, without_a_file_or_a_mac_is_refused) {
    sta_sta_users_backup_del(mac);
    sta_sta_users_backup_del(nullptr);
    write_file(file, kept_line);
    sta_sta_users_backup_del(""); // would match, and wipe, every line
    EXPECT_EQ(log_lines(), (lines{"sta_sta_users_backup_del: /tmp/sta_sta.info no found!\n",
                                  "sta_sta_users_backup_del: macaddr is NULL!\n",
                                  "sta_sta_users_backup_del: macaddr is NULL!\n"}));
    EXPECT_EQ(read_file(file), kept_line);
}

TEST_F(removal, that_cannot_move_the_file_leaves_it_as_it_is) {
    write_file(file, kept_line);
    write_file("/tmp/sta_sta_tmp.info/in the way", "");
    sta_sta_users_backup_del("02:00:00:00:00:02");
    EXPECT_EQ(read_file(file), kept_line);
    EXPECT_EQ(log_lines(), lines{"sta_sta_users_backup_del: /tmp/sta_sta_tmp.info rename error.\n"});
}

TEST_F(removal, of_a_folder_in_the_files_place_ends_with_a_file_there) {
    std::filesystem::create_directory(file);
    sta_sta_users_backup_del(mac);
    EXPECT_TRUE(std::filesystem::is_regular_file(file));
    EXPECT_FALSE(file_exists("/tmp/sta_sta_tmp.info"));
}

TEST_F(removal, of_a_folder_that_is_not_empty_cannot_clear_up) {
    write_file(std::string(file) + "/inside", "");
    sta_sta_users_backup_del(mac);
    EXPECT_TRUE(logged("sta_sta_users_backup_del", "/tmp/sta_sta.info remove error.\n"));
    EXPECT_TRUE(file_exists("/tmp/sta_sta_tmp.info/inside"));
}

// The lowest descriptor that is free.
int free_descriptor() {
    const int fd = dup(STDERR_FILENO);
    close(fd);
    return fd;
}

TEST_F(removal, without_a_descriptor_for_either_file_leaves_the_lines_under_the_other_name) {
    const std::string before = kept_line + "- aa:bb:cc:dd:ee:ff 10.0.0.1 1 1 1 1 net 0 1\n";
    for (const auto &[descriptors, unopened] :
         {std::pair{0, "/tmp/sta_sta_tmp.info"}, std::pair{1, "/tmp/sta_sta.info"}}) {
        write_file(file, before);
        forget_log();
        rlimit limit{};
        getrlimit(RLIMIT_NOFILE, &limit);
        const rlimit few{static_cast<rlim_t>(free_descriptor() + descriptors), limit.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
        sta_sta_users_backup_del(mac);
        setrlimit(RLIMIT_NOFILE, &limit);
        EXPECT_EQ(log_lines(), lines{"sta_sta_users_backup_del: " + std::string(unopened) + " open fail.\n"});
        EXPECT_EQ(read_file("/tmp/sta_sta_tmp.info"), before) << unopened;
        EXPECT_FALSE(file_exists(file)); // the next pass writes every station's line
    }
}

TEST_F(removal, that_finds_no_room_for_the_others_leaves_the_file_as_it_was) {
    const std::string before = kept_line + "- aa:bb:cc:dd:ee:ff 10.0.0.1 1 1 1 1 net 0 1\n" + kept_line;
    write_file(file, before);
    const full_disk disk{kept_line.size() + 5};
    sta_sta_users_backup_del(mac);
    EXPECT_EQ(read_file(file), before);
    EXPECT_FALSE(file_exists("/tmp/sta_sta_tmp.info"));
    EXPECT_TRUE(logged("sta_sta_users_backup_del", "/tmp/sta_sta.info write error.\n"));
}

TEST_F(removal, splits_a_line_longer_than_1023_bytes_and_drops_the_piece_with_the_mac) {
    write_file(file, times(1023, 'a') + times(40, 'b') + mac + "\n" + kept_line);
    sta_sta_users_backup_del(mac);
    EXPECT_EQ(read_file(file), times(1023, 'a') + kept_line);
}

TEST_F(backup_line, update_moves_it_to_the_end) {
    written();
    write_file(file, read_file(file) + kept_line);
    sta->oltime = 99;
    sta_sta_users_backup_update(sta);
    EXPECT_EQ(read_file(file),
              kept_line + "my-phone aa:bb:cc:dd:ee:ff 192.168.1.5 1700000000 99 2048 4096 home/net 0 1 "
                          "55 36 2M 4M 100 1000 20 200 ath1 1 1 0 0 866M\n");
    sta_sta_users_backup_update(nullptr);
}

TEST(ssid_escape, leaves_nothing_for_null_and_empty) {
    sta_sta_ssid_escape(nullptr);
    char text[] = "";
    sta_sta_ssid_escape(text);
    EXPECT_STREQ(text, "");
    char tab[] = "a\tb \t";
    sta_sta_ssid_escape(tab);
    EXPECT_STREQ(tab, "a\tb/\t"); // blanks only
}

class counters : public House {
protected:
    static lines loaded(const std::string &text) {
        write_file("/tmp/sta_devc.info", text);
        for (std::int32_t &count : g_sta_sta_master.device_count) count = -7;
        sta_sta_load_devc();
        lines values;
        for (const std::int32_t count : g_sta_sta_master.device_count)
            values.push_back(std::to_string(count));
        return values;
    }
};

TEST_F(counters, are_the_first_four_numbers_of_the_last_line) {
    EXPECT_EQ(loaded("1 2 3 4 9\n"), (lines{"1", "2", "3", "4"}));
    EXPECT_EQ(loaded("1 2 3 4\n5 6 7 8"), (lines{"5", "6", "7", "8"}));
    EXPECT_EQ(loaded("1 2 3 4\n5 x\n"), (lines{"5", "2", "3", "4"}));
    EXPECT_EQ(loaded("garbage\n"), (lines{"-7", "-7", "-7", "-7"}));
    EXPECT_EQ(loaded(""), (lines{"-7", "-7", "-7", "-7"}));
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(counters, without_a_file_make_an_empty_one) {
    sta_sta_load_devc();
    EXPECT_EQ(log_lines(), lines{"sta_sta_load_devc: sta devc info is null.\n"});
    EXPECT_TRUE(file_exists("/tmp/sta_devc.info"));
    EXPECT_EQ(read_file("/tmp/sta_devc.info"), "");
}

TEST_F(counters, are_saved_as_four_zeros_and_the_number_on_line) {
    write_file("/tmp/sta_devc.info", times(200, '9'));
    g_sta_sta_master.online = 3;
    g_sta_sta_master.device_count[0] = 77;
    sta_sta_save_devc();
    EXPECT_EQ(read_file("/tmp/sta_devc.info"), "0 0 0 0 3\n");
}

TEST_F(counters, that_find_no_room_are_told_of) {
    const full_disk disk;
    sta_sta_save_devc();
    EXPECT_TRUE(logged("sta_sta_save_devc", "/tmp/sta_devc.info write error.\n"));
}

TEST_F(counters, that_cannot_be_saved_harm_nobody) {
    std::filesystem::create_directory("/tmp/sta_devc.info");
    sta_sta_save_devc();
    sta_sta_load_devc();
    EXPECT_THAT(log_lines(), IsEmpty());
}

} // namespace
