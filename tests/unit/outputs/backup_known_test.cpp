// The daemon need not read back what it has written into the backup file itself. The file's content and the log must be the
// same as if another program had written the same bytes.
#include "support/house.h"

#include "inputs/network.h"
#include "outputs/backup.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <filesystem>
#include <random>
#include <sys/stat.h>

namespace {

constexpr const char *file = "/tmp/sta_sta.info";
constexpr unsigned people = 12;

std::string mac_of(unsigned number) {
    char mac[18];
    std::snprintf(mac, sizeof(mac), "02:00:00:00:%02x:%02x", number >> 8 & 0xff, number & 0xff);
    return mac;
}

ino_t inode() {
    struct stat status {};
    return stat(file, &status) == 0 ? status.st_ino : 0;
}

// Bytes that this process has read so far.
std::size_t bytes_read() {
    const std::string text = read_file("/proc/self/io");
    return std::stoul(text.substr(text.find("rchar: ") + 7));
}

// Puts the same bytes into a new file, whose content the daemon does not know.
void make_foreign() {
    if (!file_exists(file)) return;
    write_file("/tmp/foreign", read_file(file));
    std::filesystem::rename("/tmp/foreign", file);
}

void update_in_a_pass(const std::vector<sta_info_t *> &whom) {
    sta_configuration configuration;
    sta_backup_pass pass;
    for (sta_info_t *sta : whom) pass.update(sta, configuration);
}

class backup_known : public House {
protected:
    static void make_stations(unsigned count) {
        for (unsigned i = 0; i < count; ++i) {
            sta_info_t *sta = put_station(mac_of(i).c_str(), sta_status_online);
            sta_put_text(sta->ssid, "Lobby");
            sta_put_text(sta->ip, ("10.0.0." + std::to_string(i)).c_str());
            sta_put_text(sta->ifname, "ath0");
        }
    }
    static std::string line_left(unsigned number) {
        const std::string whole = read_file(file);
        const std::size_t at = whole.find(mac_of(number));
        return at == std::string::npos ? "" : whole.substr(at, 17);
    }
};

TEST_F(backup_known, file_is_not_read_by_a_pass) {
    make_stations(people);
    update_in_a_pass(stations());
    const std::string first = read_file(file);
    const std::size_t counting = bytes_read();
    const std::size_t cost = bytes_read() - counting; // of asking
    const std::size_t before = bytes_read();
    update_in_a_pass(stations());
    EXPECT_LT(bytes_read() - before, cost + first.size());
    EXPECT_EQ(read_file(file), first);
}

TEST_F(backup_known, line_is_removed_where_it_stands) {
    make_stations(people);
    update_in_a_pass(stations());
    const ino_t before = inode();
    for (const unsigned number : {5U, 0U, people - 1}) {
        forget_log();
        sta_sta_users_backup_del(mac_of(number).c_str());
        EXPECT_EQ(line_left(number), "");
        EXPECT_EQ(log_lines(),
                  (std::vector<std::string>{"sta_sta_users_backup_del: " + mac_of(number) + " found!\n",
                                            "sta_sta_users_backup_del: The sta is error:"}));
    }
    EXPECT_EQ(inode(), before);
    EXPECT_EQ(line_left(1), mac_of(1));
    EXPECT_EQ(line_left(6), mac_of(6));
    EXPECT_EQ(read_file(file).back(), '\n');
}

TEST_F(backup_known, file_is_left_alone_when_nobody_of_it_goes) {
    make_stations(people);
    update_in_a_pass(stations());
    const std::string before = read_file(file);
    forget_log();
    sta_sta_users_backup_del(mac_of(77).c_str());
    EXPECT_EQ(read_file(file), before);
    EXPECT_EQ(log_lines(), std::vector<std::string>{"sta_sta_users_backup_del: The sta is error:"});
}

TEST_F(backup_known, file_is_read_again_when_somebody_else_has_written_it) {
    make_stations(people);
    update_in_a_pass(stations());
    write_file(file, "x " + mac_of(1) + times(40, 'x') + "\n" + times(40, 'y') + "\n");
    sta_sta_users_backup_del(mac_of(1).c_str());
    EXPECT_EQ(read_file(file), times(40, 'y') + "\n");
}

TEST_F(backup_known, line_is_removed_by_reading_while_something_has_the_temporary_name) {
    make_stations(people);
    update_in_a_pass(stations());
    const std::string before = read_file(file);
    std::filesystem::create_directories("/tmp/sta_sta_tmp.info/full");
    forget_log();
    sta_sta_users_backup_del(mac_of(1).c_str());
    EXPECT_EQ(read_file(file), before);
    EXPECT_TRUE(logged("sta_sta_users_backup_del", "/tmp/sta_sta_tmp.info rename error.\n"));
}

TEST_F(backup_known, line_behind_a_link_is_not_removed_through_it) {
    make_stations(people);
    update_in_a_pass(stations());
    std::filesystem::rename(file, "/tmp/precious");
    const std::string precious = read_file("/tmp/precious");
    std::filesystem::create_symlink("/tmp/precious", file);
    sta_sta_users_backup_del(mac_of(1).c_str());
    EXPECT_EQ(read_file("/tmp/precious"), precious);
    EXPECT_EQ(line_left(1), "");
}

// Random steps in the stations' life in the file; `foreign`: with a new file before each. Returns the file's content and the log
// after each step.
std::vector<std::string> play(unsigned seed, bool foreign) {
    std::filesystem::remove(file);
    std::mt19937 random{seed};
    const auto any = [&](unsigned below) { return static_cast<unsigned>(random() % below); };
    const std::vector<sta_info_t *> all = stations();
    for (sta_info_t *sta : all) {
        sta_free(sta->name);
        sta->name = sta_strdup("host");
    }
    std::vector<std::string> steps;
    for (unsigned step = 0; step < 60; ++step) {
        if (foreign) make_foreign();
        forget_log();
        sta_info_t *sta = all[any(people)];
        if (any(4) == 0) {
            sta_free(sta->name);
            const char *const names[] = {"host", "a-much-longer-name-than-the-one-before", "",
                                         "02:00:00:00:00:03", "x02:00:00:00:00:04:05"};
            sta->name = sta_strdup(names[any(step % 3 == 0 ? 5 : 3)]);
        }
        switch (any(6)) {
        case 0: sta_sta_users_backup_del(sta->mac); break;
        case 1: sta_sta_users_backup_del(any(3) > 0 ? sta->mac : "02:00:00:00"); break;
        case 2: sta_sta_users_backup_update(sta); break;
        case 3: {
            sta_configuration configuration;
            sta_backup_pass pass;
            for (unsigned i = any(people); i-- > 0;) {
                sta_info_t *one = all[any(people)];
                any(3) == 0 ? pass.remove(any(9) > 0 ? one->mac : "AA:00:00:00:00:01")
                            : pass.update(one, configuration);
            }
            break;
        }
        default: update_in_a_pass(all);
        }
        steps.push_back(read_file(file));
        for (const std::string &line : log_lines()) steps.back() += line;
    }
    return steps;
}

TEST_F(backup_known, file_lives_as_a_foreign_one_does) {
    make_stations(people);
    for (unsigned seed = 1; seed <= 25; ++seed) {
        const std::vector<std::string> expected = play(seed, true);
        const std::vector<std::string> got = play(seed, false);
        for (std::size_t i = 0; i < expected.size(); ++i)
            ASSERT_EQ(got[i], expected[i]) << "seed " << seed << ", step " << i;
    }
}

TEST_F(backup_known, file_keeps_every_line_without_memory) {
    make_stations(people);
    update_in_a_pass(stations());
    const std::string expected = read_file(file);
    for (unsigned nth = 1; nth < 50; ++nth) {
        fail_allocation(nth);
        update_in_a_pass(stations());
        const bool failed = allocation_failed();
        fail_allocation(0);
        if (!failed) break;
        update_in_a_pass(stations());
        ASSERT_EQ(read_file(file), expected) << "allocation " << nth;
    }
}

TEST_F(backup_known, file_stays_whole_when_the_disk_is_full) {
    make_stations(people);
    update_in_a_pass(stations());
    const std::string expected = read_file(file);
    {
        const full_disk disk{100};
        update_in_a_pass(stations());
        EXPECT_EQ(read_file(file), expected);
    }
    update_in_a_pass(stations());
    EXPECT_EQ(read_file(file), expected);
}

} // namespace
