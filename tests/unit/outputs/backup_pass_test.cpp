// A pass rewrites the lines of all stations at once. The file's content and the log must be the same as after single
// operations: each case is played both ways.
#include <filesystem>
#include <gmock/gmock.h>
#include <random>
#include <sys/stat.h>

#include "support/house.h"

#include "inputs/network.h"
#include "model/table.h"
#include "outputs/backup.h"
#include "tools/text.h"

namespace {

using lines = std::vector<std::string>;

constexpr const char *file = "/tmp/sta_sta.info";

std::string mac_of(unsigned number) {
    char mac[18];
    std::snprintf(mac, sizeof(mac), "02:00:00:00:%02x:%02x", number >> 8 & 0xff, number & 0xff);
    return mac;
}

// A line of the file for a station; its rest is made longer by `more` characters.
std::string line_of(const std::string &mac, std::size_t more = 0) {
    return "host " + mac + " 10.0.0.1 1700000000 5 0 0 net 0 0 55 36 0M 0M 1 2 0 0 ath" + times(more, '0') +
           " 0 1 1 0 866M\n";
}

class backup_pass : public House {
protected:
    static void make_stations(unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            sta_info_t *sta = put_station(mac_of(i).c_str(), sta_status_online);
            sta_put_text(sta->ssid, ("net " + std::to_string(i % 7)).c_str());
            sta_put_text(sta->ip, ("10.0.0." + std::to_string(i)).c_str());
            sta_put_text(sta->ifname, i % 2 == 0 ? "ath0" : "ath1");
            sta->wifi_up = 1000U * i;
        }
    }

    struct outcome {
        std::string file;
        bool exists;
        lines log;
    };
    static outcome outcome_now() { return {read_file(::file), file_exists(::file), log_lines()}; }

    static outcome one_by_one() {
        forget_log();
        for (sta_info_t *sta : stations()) sta_sta_users_backup_update(sta);
        return outcome_now();
    }
    static outcome in_a_pass() {
        forget_log();
        {
            sta_configuration configuration;
            sta_backup_pass pass;
            for (sta_info_t *sta : stations()) pass.update(sta, configuration);
        }
        return outcome_now();
    }

    // Both ways over a file of `before`; nothing: no file.
    static void same_over(const std::optional<std::string> &before, const std::string &what = {}) {
        const auto start = [&] {
            std::filesystem::remove(::file);
            if (before) write_file(::file, *before);
        };
        start();
        const outcome expected = one_by_one();
        start();
        const outcome got = in_a_pass();
        EXPECT_EQ(got.exists, expected.exists) << what;
        EXPECT_TRUE(got.file == expected.file) << what << "\none by one:\n"
                                               << expected.file << "\nin a pass:\n"
                                               << got.file;
        for (std::size_t i = 0; i < std::min(got.log.size(), expected.log.size()); ++i)
            ASSERT_EQ(got.log[i], expected.log[i]) << what << ": line " << i;
        EXPECT_EQ(got.log.size(), expected.log.size()) << what;
        EXPECT_FALSE(file_exists("/tmp/sta_sta_tmp.info"));
    }
};

TEST_F(backup_pass, without_a_file_makes_one) {
    make_stations(3);
    same_over(std::nullopt);
    const std::string text = read_file(file);
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 3);
}

TEST_F(backup_pass, over_an_empty_file) {
    make_stations(2);
    same_over("");
}

TEST_F(backup_pass, over_its_own_file_again_and_again) {
    make_stations(200);
    same_over(std::nullopt);
    for (int i = 0; i < 2; ++i) same_over(read_file(file));
}

TEST_F(backup_pass, keeps_the_lines_of_stations_that_are_not_in_the_table) {
    make_stations(2);
    same_over(line_of("02:00:00:00:77:01") + line_of(mac_of(1)) + line_of("02:00:00:00:77:02") +
              line_of(mac_of(0)));
    EXPECT_TRUE(read_file(file).starts_with(line_of("02:00:00:00:77:01") + line_of("02:00:00:00:77:02")));
}

TEST_F(backup_pass, drops_short_lines_at_the_first_removal) {
    make_stations(3);
    same_over("short\n\n" + line_of("02:00:00:00:77:01") + times(34, 'x') + "\n" + times(35, 'x') + "\n" +
              times(36, 'x') + "\n");
}

TEST_F(backup_pass, drops_a_line_that_holds_the_mac_in_another_field) {
    make_stations(2);
    same_over("x" + mac_of(1) + "y " + line_of("02:00:00:00:77:01") + line_of("02:00:00:00:77:02") +
              "host 02:00:00:00:77:03 10.0.0.1 1 1 1 1 " + mac_of(0) + " 0 0 55 36\n" +
              line_of(mac_of(0) + mac_of(1)) + line_of(mac_of(0) + ":" + mac_of(1)));
}

TEST_F(backup_pass, over_a_torn_last_line_of_any_length) {
    make_stations(3);
    for (const std::size_t length : std::initializer_list<std::size_t>{
             1,    34,   35,   36,   37,   60,   500,  900,  920,  950,  960,  970,  980,
             1000, 1022, 1023, 1024, 1030, 1050, 1058, 1059, 1060, 2045, 2046, 2047, 3000})
        same_over(line_of("02:00:00:00:77:01") + times(length, 'x'), "torn after " + std::to_string(length));
}

TEST_F(backup_pass, over_a_torn_last_line_of_its_own_station) {
    make_stations(3);
    for (unsigned number = 0; number < 3; ++number) {
        std::string torn = line_of(mac_of(number));
        torn.pop_back();
        same_over(line_of("02:00:00:00:77:01") + torn, mac_of(number));
        same_over(torn, "alone " + mac_of(number));
    }
}

TEST_F(backup_pass, joins_a_torn_line_with_the_next_one_which_goes_when_its_station_does) {
    make_stations(2);
    same_over(times(50, 'x'));
    same_over(read_file(file)); // both stations' lines follow the torn line directly
}

TEST_F(backup_pass, over_lines_longer_than_a_reading) {
    make_stations(3);
    for (const std::size_t more : {800U, 900U, 940U, 950U, 1000U, 2000U, 3000U})
        same_over(line_of("02:00:00:00:77:01", more) + line_of(mac_of(1), more) +
                      line_of("02:00:00:00:77:02"),
                  "longer by " + std::to_string(more));
}

TEST_F(backup_pass, over_a_mac_that_is_cut_by_the_end_of_a_reading) {
    make_stations(2);
    for (std::size_t before = 1000; before < 1026; ++before)
        same_over(times(before, 'x') + mac_of(0) + times(60, 'y') + "\n" + line_of("02:00:00:00:77:01"),
                  "behind " + std::to_string(before));
}

TEST_F(backup_pass, takes_a_line_to_end_at_its_first_nul_but_copies_all_of_it) {
    make_stations(2);
    using namespace std::string_literals;
    same_over("x\0"s + line_of("02:00:00:00:77:01") + times(40, 'x') + "\0"s + mac_of(0) + "\n" +
              line_of("02:00:00:00:77:02") + "\0\n"s + "\0\0\0"s);
    EXPECT_NE(read_file(file).find(times(40, 'x') + "\0"s + mac_of(0)), std::string::npos);
}

TEST_F(backup_pass, over_text_that_only_looks_like_macs) {
    make_stations(2);
    same_over(line_of("02:00:00:00:00:00:00:00:00:00:01:00:00:00:00:01") + line_of("02-00-00-00-00-01") +
              line_of("AA:BB:CC:DD:EE:FF") + line_of("::::::::::::::::::::::::::::::::"));
}

TEST_F(backup_pass, with_stations_whose_mac_is_no_mac) {
    sta_put_text(put_station("a")->ip, "10.0.0.1");
    sta_put_text(put_station("02:00:00:00:00:0")->ip, "10.0.0.2");
    sta_put_text(put_station("zz:zz:zz:zz:zz:zz")->ip, "10.0.0.3");
    sta_put_text(put_station("AA:BB:CC:DD:EE:FF")->ip, "10.0.0.4");
    sta_put_text(put_station("aa:bb:cc:dd:ee:ff")->ip, "10.0.0.5");
    same_over(line_of("02:00:00:00:00:01") + line_of("aa:bb:cc:dd:ee:ff") + line_of("AA:BB:CC:DD:EE:FF"));
    same_over(read_file(file));
}

TEST_F(backup_pass, with_one_mac_in_two_records_leaves_the_later_ones_line) {
    for (const char *ip : {"10.0.0.1", "10.0.0.2"}) sta_put_text(put_station("02:00:00:00:00:01")->ip, ip);
    same_over(line_of("02:00:00:00:00:01"));
    EXPECT_EQ(read_file(file).find("10.0.0.1 "), std::string::npos);
}

TEST_F(backup_pass, with_a_record_that_is_not_to_be_written) {
    make_stations(3);
    for (const unsigned flagged : {0U, 1U, 2U}) {
        stations()[flagged]->no_backup = 1;
        same_over(std::nullopt, "flagged " + std::to_string(flagged));
        same_over(line_of(mac_of(flagged)) + line_of("02:00:00:00:77:01"),
                  "flagged " + std::to_string(flagged));
    }
    EXPECT_EQ(read_file(file), line_of("02:00:00:00:77:01")); // all are flagged by now
}

TEST_F(backup_pass, with_a_record_without_mac) {
    put_station("");
    make_stations(1);
    same_over(line_of(mac_of(0)));
}

TEST_F(backup_pass, over_200_stations_and_a_file_full_of_foreign_text) {
    make_stations(200);
    std::mt19937 random(20251103); // a fixed row of numbers: the same file each time
    std::string before;
    for (int i = 0; i < 600; ++i) {
        switch (random() % 9) {
        case 0: before += times(random() % 40, 'x') + "\n"; break;
        case 1: before += line_of(mac_of(static_cast<unsigned>(random() % 220))); break;
        case 2: before += line_of("02:00:00:00:77:01", random() % 3000); break;
        case 3: before += line_of(mac_of(static_cast<unsigned>(random() % 220)), random() % 3000); break;
        case 4: before += times(random() % 1100, 'y') + mac_of(static_cast<unsigned>(random() % 220)); break;
        case 5:
            before += std::string("0\0 ", 3) + line_of(mac_of(static_cast<unsigned>(random() % 220)));
            break;
        case 6: before += "\n"; break;
        case 7: before += times(3000, 'z') + "\n"; break;
        default: before += line_of("02:00:00:00:77:" + std::to_string(10 + random() % 90)); break;
        }
    }
    same_over(before);
    same_over(read_file(file));
    same_over(before + times(700, 't'));
}

TEST_F(backup_pass, removes_as_single_removals_do) {
    make_stations(40);
    const auto update_and_remove = [](auto update, auto remove) {
        forget_log();
        int turn = 0;
        for (sta_info_t *sta : stations()) ++turn % 3 == 0 ? update(sta) : remove(sta->mac);
    };
    std::string before = "short\n" + line_of("02:00:00:00:77:01");
    for (unsigned i = 0; i < 40; i += 2) before += line_of(mac_of(i));
    for (const std::string &torn : {std::string(), line_of(mac_of(3)).substr(0, 60)}) {
        write_file(file, before + torn);
        update_and_remove(sta_sta_users_backup_update, sta_sta_users_backup_del);
        const outcome expected = outcome_now();
        write_file(file, before + torn);
        {
            sta_configuration configuration;
            sta_backup_pass pass;
            update_and_remove([&](sta_info_t *sta) { pass.update(sta, configuration); },
                              [&](const char *mac) { pass.remove(mac); });
        }
        EXPECT_EQ(read_file(file), expected.file);
        EXPECT_EQ(log_lines(), expected.log);
    }
}

TEST_F(backup_pass, that_only_removes_makes_no_file) {
    forget_log();
    {
        sta_backup_pass pass;
        pass.remove("02:00:00:00:00:01");
    }
    EXPECT_FALSE(file_exists(file));
    EXPECT_EQ(log_lines(), lines{"sta_sta_users_backup_del: /tmp/sta_sta.info no found!\n"});
}

TEST_F(backup_pass, gives_the_file_the_mode_of_a_new_one) {
    make_stations(1);
    same_over("");
    struct stat status {};
    ASSERT_EQ(stat(file, &status), 0);
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(status.st_mode & 0777, 0666 & ~mask);
}

TEST_F(backup_pass, writes_through_no_link_that_somebody_has_put_in_its_way) {
    make_stations(2);
    write_file("/tmp/precious", "keep me\n");
    std::filesystem::create_symlink("/tmp/precious", "/tmp/sta_sta_tmp.info");
    in_a_pass();
    EXPECT_EQ(read_file("/tmp/precious"), "keep me\n");
    EXPECT_FALSE(std::filesystem::is_symlink(file));
    EXPECT_NE(read_file(file).find(mac_of(1)), std::string::npos);
}

TEST_F(backup_pass, of_no_station_touches_nothing) {
    write_file(file, "short\n");
    { const sta_backup_pass pass; }
    EXPECT_EQ(read_file(file), "short\n");
    EXPECT_EQ(log_lines(), lines{});
}

TEST_F(backup_pass, leaves_the_old_file_whole_when_it_cannot_write_the_new_one) {
    make_stations(2);
    const std::string before = line_of(mac_of(1)) + line_of("02:00:00:00:77:01");
    write_file(file, before);
    std::filesystem::create_directory("/tmp/sta_sta_tmp.info");
    const outcome got = in_a_pass();
    EXPECT_EQ(got.file, before);
    EXPECT_TRUE(logged("sta_sta_users_backup_del", "/tmp/sta_sta_tmp.info open fail.\n"));
}

TEST_F(backup_pass, leaves_the_old_file_whole_when_the_disk_is_full) {
    make_stations(2);
    const std::string before = line_of(mac_of(1)) + line_of("02:00:00:00:77:01");
    write_file(file, before);
    const full_disk disk{100};
    const outcome got = in_a_pass();
    EXPECT_EQ(got.file, before);
    EXPECT_TRUE(logged("sta_sta_users_backup_del", "/tmp/sta_sta.info write error.\n"));
    EXPECT_FALSE(file_exists("/tmp/sta_sta_tmp.info"));
}

TEST_F(backup_pass, over_a_file_too_large_to_keep_works_line_by_line) {
    make_stations(2);
    std::string large;
    while (large.size() <= 8 << 20) large += line_of("02:99:00:00:00:01", 200);
    same_over(large + line_of(mac_of(1)));
}

TEST_F(backup_pass, without_memory_for_the_file_works_line_by_line) {
    make_stations(5);
    const std::string before =
        line_of(mac_of(1)) + line_of("02:00:00:00:77:01") + "short\n" + line_of(mac_of(4));
    write_file(file, before);
    const outcome expected = one_by_one();
    for (unsigned nth = 1;; ++nth) {
        write_file(file, before);
        fail_allocation(nth);
        const outcome got = in_a_pass();
        if (!allocation_failed()) {
            EXPECT_GT(nth, 4U) << "nothing was allocated";
            EXPECT_EQ(got.file, expected.file);
            break;
        }
        // At worst one station's line is missing until the next pass; nobody else's is touched.
        EXPECT_NE(got.file.find(line_of("02:00:00:00:77:01")), std::string::npos) << nth;
        int there = 0;
        for (unsigned i = 0; i < 5; ++i) there += got.file.find(mac_of(i)) != std::string::npos ? 1 : 0;
        EXPECT_GE(there, 4) << "failed allocation " << nth;
        EXPECT_EQ(got.file.find("short"), std::string::npos) << nth;
    }
}

TEST_F(backup_pass, without_memory_for_a_line_keeps_the_torn_one_that_it_would_have_joined) {
    make_stations(5);
    const std::string torn = "host 02:00:00:00:77:02 10.0.0.1 1700000000 5 0 0 net";
    std::string before;
    for (unsigned i = 1; i < 256; ++i)
        before += line_of(mac_of(0x7800 + i)); // the next MAC makes the index grow
    bool failed = true;
    for (unsigned nth = 1; failed; ++nth) {
        write_file(file, before + torn);
        fail_allocation(nth);
        const outcome got = in_a_pass();
        failed = allocation_failed();
        const std::size_t first = got.file.find(torn);
        ASSERT_NE(first, std::string::npos) << "failed allocation " << nth;
        EXPECT_EQ(got.file.find(torn, first + 1), std::string::npos) << "twice, failed allocation " << nth;
    }
}

} // namespace
