// The configuration that was read is kept while the files are the same; a change still takes effect at the next look.
#include "support/house.h"

#include "inputs/network.h"
#include "tools/text.h"

#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <time.h>

struct uci_context;
struct uci_package;

namespace {

int ahead = 0; // seconds by which the program's clock is ahead of that of the files
unsigned loads = 0;

} // namespace

extern "C" {
int __real_clock_gettime(clockid_t clock, timespec *now);
int __wrap_clock_gettime(clockid_t clock, timespec *now) {
    const int result = __real_clock_gettime(clock, now);
    if (clock == CLOCK_REALTIME) now->tv_sec += ahead;
    return result;
}
int __real_uci_load(uci_context *context, const char *name, uci_package **package);
int __wrap_uci_load(uci_context *context, const char *name, uci_package **package) {
    ++loads;
    return __real_uci_load(context, name, package);
}
}

namespace {

constexpr const char *file = "/etc/config/wireless";

std::string with_vlan(const std::string &vlan) {
    return "config wifi-iface\n\toption ifname 'ath0'\n\toption device 'wifi0'\n\toption ssid "
           "'net'\n\toption vlanid '" +
           vlan + "'\n";
}

class kept_configuration : public House {
protected:
    kept_configuration() {
        write_file("/etc/config/wifiinfo", "config wifiinfo 'global'\n\toption sdk 'mtk'\n");
        write_file(file, with_vlan("30"));
        sta_put_text(sta.ifname, "ath0");
        sta_put_text(sta.ssid, "net");
        ahead = 10; // the files are old enough to be kept
        loads = 0;
    }
    ~kept_configuration() override { ahead = 0; }
    std::int32_t vlan() const { return sta_sta_get_vlanid(&sta); }

    sta_info_t sta{};
};

TEST_F(kept_configuration, is_read_once_while_nothing_changes) {
    for (int look = 0; look < 5; ++look) EXPECT_EQ(vlan(), 30);
    EXPECT_EQ(loads, 1U);
}

TEST_F(kept_configuration, says_the_same_as_what_was_just_read) {
    EXPECT_EQ(vlan(), 30);
    const std::vector<std::string> said = log_lines();
    forget_log();
    EXPECT_EQ(vlan(), 30);
    EXPECT_EQ(log_lines(), said);
}

TEST_F(kept_configuration, of_a_file_changed_just_now_is_read_again) {
    ahead = 0;
    EXPECT_EQ(vlan(), 30);
    write_file(file, with_vlan("31")); // possibly within the same tick of the file system's clock
    EXPECT_EQ(vlan(), 31);
    EXPECT_EQ(vlan(), 31);
    EXPECT_EQ(loads, 3U);
}

TEST_F(kept_configuration, changed_to_the_same_size_and_time_counts_at_the_next_look) {
    EXPECT_EQ(vlan(), 30);
    struct stat before {};
    ASSERT_EQ(stat(file, &before), 0);
    // The file system's clock has to tick first.
    for (struct stat now = before;
         now.st_ctim.tv_sec == before.st_ctim.tv_sec && now.st_ctim.tv_nsec == before.st_ctim.tv_nsec;) {
        write_file(file, with_vlan("31"));
        const timespec times[2] = {before.st_atim, before.st_mtim};
        ASSERT_EQ(utimensat(AT_FDCWD, file, times, 0), 0);
        ASSERT_EQ(stat(file, &now), 0);
    }
    EXPECT_EQ(vlan(), 31);
}

TEST_F(kept_configuration, replaced_by_another_file_counts_at_the_next_look) {
    EXPECT_EQ(vlan(), 30);
    write_file("/etc/config/.new", with_vlan("31"));
    std::filesystem::rename("/etc/config/.new", file);
    EXPECT_EQ(vlan(), 31);
}

TEST_F(kept_configuration, of_a_file_that_has_gone_and_come_back_goes_and_comes_back) {
    EXPECT_EQ(vlan(), 30);
    std::filesystem::remove(file);
    forget_log();
    EXPECT_EQ(vlan(), -1);
    EXPECT_TRUE(logged("sta_uci_get_wireless_element", "Not wireless file\n"));
    write_file(file, with_vlan("32"));
    EXPECT_EQ(vlan(), 32);
}

TEST_F(kept_configuration, chip_that_was_set_and_not_committed_counts_at_the_next_look) {
    EXPECT_EQ(vlan(), 30);
    std::filesystem::create_directories("/tmp/.uci");
    write_file("/tmp/.uci/wifiinfo", "wifiinfo.global.sdk='other'\n");
    EXPECT_EQ(vlan(), -1);
    write_file("/tmp/.uci/wifiinfo", "wifiinfo.global.sdk='qca'\n");
    EXPECT_EQ(vlan(), 30);
    std::filesystem::remove("/tmp/.uci/wifiinfo");
    write_file("/etc/config/wifiinfo", "config wifiinfo 'global'\n\toption sdk 'none'\n");
    EXPECT_EQ(vlan(), -1);
}

TEST_F(kept_configuration, is_looked_at_once_in_a_walk) {
    sta_configuration walk;
    EXPECT_EQ(walk.vlan_of(&sta), 30);
    std::filesystem::remove(file);
    std::filesystem::remove("/etc/config/wifiinfo");
    EXPECT_EQ(walk.vlan_of(&sta), 30);
}

TEST_F(kept_configuration, from_before_a_walk_is_looked_at_in_it) {
    EXPECT_EQ(vlan(), 30);
    write_file("/etc/config/.new", with_vlan("31"));
    std::filesystem::rename("/etc/config/.new", file);
    sta_configuration walk;
    EXPECT_EQ(walk.vlan_of(&sta), 31);
}

} // namespace
