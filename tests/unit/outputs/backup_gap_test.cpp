// A daemon that is killed while the lines behind a departure move up loses no line of anybody else, and mixes none: at the next
// start the file is what it was before the departure, or what it is after it.
#include "support/child.h"
#include "support/house.h"

#include "inputs/network.h"
#include "life/restore.h"
#include "model/members.h"
#include "model/table.h"
#include "outputs/backup.h"
#include "outputs/backup_gap.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <csignal>
#include <filesystem>
#include <functional>
#include <unistd.h>

namespace {
constexpr std::size_t for_ever = SIZE_MAX;
std::size_t bytes_to_live = for_ever; // that may still be written in place; then the process is killed
} // namespace

extern "C" {
ssize_t __real_pwrite64(int file, const void *bytes, std::size_t size, off64_t at);
ssize_t __wrap_pwrite64(int file, const void *bytes, std::size_t size, off64_t at) {
    if (bytes_to_live == for_ever) return __real_pwrite64(file, bytes, size, at);
    const std::size_t lived = std::min(size, bytes_to_live);
    bytes_to_live -= lived;
    const ssize_t written = lived > 0 ? __real_pwrite64(file, bytes, lived, at) : 0;
    if (lived < size) (void)std::raise(SIGKILL);
    return written;
}
ssize_t __wrap_pwrite(int file, const void *bytes, std::size_t size, off_t at) {
    return __wrap_pwrite64(file, bytes, size, at);
}
}

namespace {

constexpr const char *file = sta_backup_file;
constexpr const char *aside = sta_backup_temporary_file;

std::string mac_of(unsigned number) {
    char mac[18];
    std::snprintf(mac, sizeof(mac), "02:00:00:00:%02x:%02x", number >> 8 & 0xff, number & 0xff);
    return mac;
}

// Names of all lengths.
void make_stations(unsigned people) {
    for (unsigned i = 0; i < people; ++i) {
        sta_info_t *sta = put_station(mac_of(i).c_str(), sta_status_online);
        sta_put_text(sta->ssid, "Lobby");
        sta_put_text(sta->ip, "10.0.0.1");
        sta_put_text(sta->ifname, "ath0");
        sta->name = sta_strdup(times(1 + i * 7 % 31, static_cast<char>('a' + i % 26)).c_str());
    }
}

void forget_stations() {
    for (sta_info_t *sta : stations()) {
        sta_members_unlink(sta);
        sta_sta_free(sta);
    }
}

// A file that the daemon has just written itself, and knows.
std::string write_in_a_pass() {
    std::filesystem::remove(file);
    {
        sta_configuration configuration;
        sta_backup_pass pass;
        for (sta_info_t *sta : stations()) pass.update(sta, configuration);
    }
    return read_file(file);
}
std::string write_in_a_pass(unsigned people) {
    make_stations(people);
    return write_in_a_pass();
}

std::string without_line_of(const std::string &whole, const std::string &mac) {
    const std::size_t mention = whole.find(mac);
    const std::size_t begin = whole.rfind('\n', mention) + 1; // npos + 1: the first line
    return whole.substr(0, begin) + whole.substr(whole.find('\n', mention) + 1);
}

// Whom a daemon that starts now knows.
std::vector<std::string> restored() {
    forget_stations();
    sta_sta_init();
    std::vector<std::string> macs;
    for (const sta_info_t *sta : stations()) macs.emplace_back(sta->mac);
    return macs;
}

class backup_gap : public House {
protected:
    // Removes the MAC's line in a process that is killed after so many bytes. Whether it lived to the end.
    static bool killed_after(std::size_t bytes, const std::string &mac) {
        const child_end end = run_in_child([&] {
            bytes_to_live = bytes;
            sta_sta_users_backup_del(mac.c_str());
        });
        EXPECT_TRUE(end.exited || end.status == SIGKILL) << end.output;
        return !end.exited;
    }
    static void expect_mended(unsigned people, unsigned leaver, std::size_t step) {
        make_stations(people);
        const std::string mac = mac_of(leaver);
        bool killed = true;
        for (std::size_t bytes = 0; killed; bytes += step) {
            const std::string before = write_in_a_pass(), after = without_line_of(before, mac);
            killed = killed_after(bytes, mac);
            sta_backup_mend(file, aside);
            const std::string mended = read_file(file);
            ASSERT_TRUE(mended == after || (killed && mended == before))
                << "killed after " << bytes << " bytes: " << testing::PrintToString(mended);
            ASSERT_FALSE(file_exists(aside));
        }
    }
};

TEST_F(backup_gap, leaves_a_file_that_is_mended_wherever_the_daemon_is_killed) { expect_mended(6, 1, 11); }

TEST_F(backup_gap, at_the_beginning_of_the_file_is_mended) { expect_mended(5, 0, 23); }

TEST_F(backup_gap, at_the_end_of_the_file_is_nothing_to_be_mended) { expect_mended(5, 4, 23); }

TEST_F(backup_gap, before_the_last_line_is_mended) { expect_mended(5, 3, 7); }

TEST_F(backup_gap, of_a_file_that_moves_in_several_steps_is_mended) { expect_mended(320, 3, 1999); }

TEST_F(backup_gap, that_has_only_a_torn_note_is_none) {
    const std::string before = write_in_a_pass(3);
    for (const std::string &note :
         {std::string(1, '\0'), std::string("\0gap 10", 7), std::string("\0gap 10 20", 10),
          std::string("\0gap 99999 20\n", 14), std::string("\0gap 1 99999\n", 13), std::string("\0x\n", 3)}) {
        write_file(file, before + note);
        sta_backup_mend(file, aside);
        EXPECT_EQ(read_file(file), before) << testing::PrintToString(note);
    }
}

TEST_F(backup_gap, is_not_looked_for_in_a_file_without_a_note) {
    for (const std::string &whole :
         {std::string(), std::string("\n"), std::string("torn"), std::string("a\0\n", 3)}) {
        write_file(file, whole);
        sta_backup_mend(file, aside);
        EXPECT_EQ(read_file(file), whole);
    }
    std::filesystem::remove(file);
    sta_backup_mend(file, aside);
    EXPECT_FALSE(file_exists(file));
}

TEST_F(backup_gap, is_closed_without_a_note_when_the_disk_is_full) {
    const std::string before = write_in_a_pass(4);
    const full_disk disk{before.size()};
    sta_sta_users_backup_del(mac_of(1).c_str());
    EXPECT_EQ(read_file(file), without_line_of(before, mac_of(1)));
}

TEST_F(backup_gap, mending_takes_back_the_file_that_was_being_copied_without_a_line) {
    const std::string whole = write_in_a_pass(3);
    for (const bool begun : {false, true}) {
        write_file(aside, whole);
        std::filesystem::remove(file);
        if (begun) write_file(file, whole.substr(0, 40));
        sta_backup_mend(file, aside);
        EXPECT_EQ(read_file(file), whole);
        EXPECT_FALSE(file_exists(aside));
    }
}

TEST_F(backup_gap, mending_leaves_a_pass_that_was_cut_off_alone) {
    const std::string whole = write_in_a_pass(3);
    for (const std::string &cut : {whole.substr(0, 50), whole + whole.substr(0, 50)}) {
        write_file(aside, cut);
        sta_backup_mend(file, aside);
        EXPECT_EQ(read_file(file), whole);
    }
}

TEST_F(backup_gap, mending_takes_no_file_of_another_user) {
    const std::string own = write_in_a_pass(3);
    write_file(aside, own + own);
    if (chown(aside, 65534, 65534) != 0) GTEST_SKIP() << "only root gives a file away";
    sta_backup_mend(file, aside);
    EXPECT_EQ(read_file(file), own);
}

TEST_F(backup_gap, is_mended_before_stations_are_restored) {
    write_in_a_pass(6);
    EXPECT_TRUE(killed_after(150, mac_of(1)));
    EXPECT_EQ(restored(), (std::vector<std::string>{mac_of(0), mac_of(2), mac_of(3), mac_of(4), mac_of(5)}));
}

// A crowd that leaves at once.
TEST_F(backup_gap, lines_that_are_held_go_together) {
    const std::string before = write_in_a_pass(9);
    std::string expected = before;
    sta_backup_hold(true);
    forget_log();
    for (const unsigned leaver : {4U, 0U, 8U, 5U}) {
        sta_sta_users_backup_del(mac_of(leaver).c_str());
        expected = without_line_of(expected, mac_of(leaver));
        EXPECT_EQ(log_lines(),
                  (std::vector<std::string>{"sta_sta_users_backup_del: " + mac_of(leaver) + " found!\n",
                                            "sta_sta_users_backup_del: The sta is error:"}));
        forget_log();
    }
    std::string marked = before;
    for (const unsigned leaver : {4U, 0U, 8U, 5U})
        marked[marked.rfind('\n', marked.find(mac_of(leaver))) + 1] = '\0';
    EXPECT_EQ(read_file(file), marked);
    EXPECT_TRUE(sta_backup_holds_lines());
    sta_backup_hold(false);
    EXPECT_EQ(read_file(file), expected);
    EXPECT_FALSE(sta_backup_holds_lines());
    EXPECT_FALSE(file_exists(aside));
    sta_sta_users_backup_del(mac_of(2).c_str()); // it is known still
    EXPECT_EQ(read_file(file), without_line_of(expected, mac_of(2)));
}

TEST_F(backup_gap, line_of_who_leaves_alone_is_not_held) {
    const std::string before = write_in_a_pass(5);
    sta_backup_hold(true, []() noexcept { return false; });
    sta_sta_users_backup_del(mac_of(3).c_str());
    EXPECT_FALSE(sta_backup_holds_lines());
    EXPECT_EQ(read_file(file), without_line_of(before, mac_of(3)));
    sta_backup_hold(false);
}

TEST_F(backup_gap, line_is_held_when_another_message_waits) {
    const std::string before = write_in_a_pass(5);
    sta_backup_hold(true, []() noexcept { return true; });
    sta_sta_users_backup_del(mac_of(3).c_str());
    EXPECT_TRUE(sta_backup_holds_lines());
    sta_backup_hold(false);
    EXPECT_EQ(read_file(file), without_line_of(before, mac_of(3)));
}

TEST_F(backup_gap, lines_that_are_held_are_not_restored) {
    write_in_a_pass(5);
    sta_backup_hold(true);
    for (const unsigned leaver : {1U, 4U}) sta_sta_users_backup_del(mac_of(leaver).c_str());
    const std::string as_it_ended = read_file(file);
    sta_backup_hold(false);
    write_file(file, as_it_ended);
    EXPECT_EQ(restored(), (std::vector<std::string>{mac_of(0), mac_of(2), mac_of(3)}));
}

TEST_F(backup_gap, lines_that_are_held_are_gone_for_whoever_needs_the_file) {
    make_stations(5);
    // What else is done to the file, and what is left of it then.
    const std::vector<std::function<std::string(const std::string &)>> needs = {
        [](const std::string &left) {
            sta_sta_users_backup_add(stations()[0]);
            return left + left.substr(0, left.find('\n') + 1);
        },
        [](const std::string & /*left*/) {
            sta_sta_users_backup_del("02:00:00:00:00:0"); // of everybody
            return std::string();
        },
        [](const std::string &left) {
            sta_backup_pass{}.remove(mac_of(0).c_str());
            return without_line_of(left, mac_of(0));
        }};
    for (std::size_t i = 0; i < needs.size(); ++i) {
        const std::string before = write_in_a_pass();
        sta_backup_hold(true);
        sta_sta_users_backup_del(mac_of(1).c_str());
        sta_sta_users_backup_del(mac_of(3).c_str());
        const std::string expected = needs[i](without_line_of(without_line_of(before, mac_of(1)), mac_of(3)));
        EXPECT_EQ(read_file(file), expected) << i;
        sta_backup_hold(false);
        EXPECT_EQ(read_file(file), expected) << i;
    }
}

TEST_F(backup_gap, lines_are_held_until_they_are_many) {
    std::string expected = write_in_a_pass(70);
    sta_backup_hold(true);
    for (unsigned leaver = 0; leaver < 64; ++leaver) {
        sta_sta_users_backup_del(mac_of(leaver).c_str());
        expected = without_line_of(expected, mac_of(leaver));
    }
    EXPECT_EQ(read_file(file), expected);
    sta_backup_hold(false);
    EXPECT_EQ(read_file(file), expected);
}

TEST_F(backup_gap, lines_that_are_held_go_one_by_one_when_there_can_be_no_new_file) {
    std::string expected = write_in_a_pass(6);
    sta_backup_hold(true);
    for (const unsigned leaver : {0U, 2U, 5U}) {
        sta_sta_users_backup_del(mac_of(leaver).c_str());
        expected = without_line_of(expected, mac_of(leaver));
    }
    std::filesystem::create_directories("/tmp/sta_sta_tmp.info/full");
    sta_backup_hold(false);
    EXPECT_EQ(read_file(file), expected);
}

TEST_F(backup_gap, lines_that_are_held_are_let_go_when_somebody_else_has_written_the_file) {
    write_in_a_pass(4);
    sta_backup_hold(true);
    sta_sta_users_backup_del(mac_of(1).c_str());
    write_file("/tmp/foreign", "theirs\n");
    std::filesystem::rename("/tmp/foreign", file);
    sta_backup_hold(false);
    EXPECT_EQ(read_file(file), "theirs\n");
}

} // namespace
