// The five-second pass, the sweep of unconfirmed stations, and the entry points of the report cycles.
#include <chrono>
#include <ctime>
#include <gmock/gmock.h>
#include <sys/inotify.h>

#include "support/house.h"

#include "inputs/dhcpmon_list.h"
#include "life/pass.h"
#include "life/sweep.h"
#include "model/table.h"
#include "support/driver_tables.h"
#include "tools/memory.h"
#include "tools/text.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using lines = std::vector<std::string>;

constexpr const char *first_mac = "02:00:00:00:00:01";
constexpr const char *second_mac = "02:00:00:00:00:02";
constexpr const char *third_mac = "02:00:00:00:00:03";

class cycle : public House {
protected:
    sta_info_t *station_on(const char *mac, std::int32_t radio = 0, const char *ifname = "ath0") {
        sta_info_t *sta = put_station(mac);
        sta->radio_id = radio;
        sta_put_text(sta->ifname, ifname);
        return sta;
    }
    static void lease(const std::string &text) { write_file("/tmp/dhcp.leases", text); }
    // Stations on ath1 are bridged from now on, those on ath0 are not.
    static void bridge_ath1() {
        write_file("/etc/config/wifiinfo", "config wifiinfo 'global'\n\toption sdk 'mtk'\n");
        write_file("/etc/config/wireless",
                   "config wifi-iface\n\toption ifname 'ath0'\n\toption network 'lan'\n"
                   "config wifi-iface\n\toption ifname 'ath1'\n\toption network 'guest'\n");
        write_file("/etc/config/sysinfo", "config sysinfo\n\toption forwardMode 'AP'\n");
    }
    static lines said() { return lines_of("sta_sta_flow_count_proc"); }
    // Events are refused without a bus: an attempt shows as this line.
    static long address_events() {
        const lines all = log_lines();
        return std::count(all.begin(), all.end(), "ERROR in sta_ubus: sta_ubus_ctx is NULL!\n");
    }
};

TEST_F(cycle, new_station_with_a_lease_goes_on_line_with_address_and_name) {
    sta_info_t *sta = station_on(first_mac);
    sta->online_clock.sec = sta_monotonic_seconds() - 10;
    sta->work_up = sta->work_down = 5;
    sta->flow_rateup = sta->flow_ratedown = 6;
    sta->time_delay = sta->pkt_loserate = 7;
    sta_put_text(sta->before_ip, "1.2.3.4");
    lease("1700000000 02:00:00:00:00:01 192.168.1.20 phone *\n");
    EXPECT_EQ(sta_sta_flow_count_proc(), 0);
    EXPECT_STREQ(sta->ip, "192.168.1.20");
    EXPECT_STREQ(sta->before_ip, "0.0.0.0");
    EXPECT_STREQ(sta->name, "phone");
    EXPECT_EQ(sta->status, 1);
    EXPECT_EQ(g_sta_sta_master.online, 1);
    EXPECT_EQ(sta->work_up, 0U);
    EXPECT_EQ(sta->work_down, 0U);
    EXPECT_EQ(sta->flow_rateup, 0);
    EXPECT_EQ(sta->flow_ratedown, 0);
    EXPECT_EQ(sta->time_delay, 0);
    EXPECT_EQ(sta->pkt_loserate, 0);
    EXPECT_GE(sta->oltime, 10);
    EXPECT_LE(sta->oltime, 12);
    EXPECT_EQ(said(), lines{"Sta on, get ip from dhcp.\n"});
    EXPECT_EQ(address_events(), 1);
    EXPECT_TRUE(read_file("/tmp/sta_sta.info").starts_with("phone 02:00:00:00:00:01 192.168.1.20 "));
    EXPECT_EQ(read_file("/tmp/sta_devc.info"), "0 0 0 0 1\n");
}

TEST_F(cycle, new_station_without_a_lease_goes_on_line_without_address_or_event) {
    sta_info_t *sta = station_on(first_mac);
    sta_put_text(sta->ip, "10.0.0.9"); // of an earlier association
    sta_sta_flow_count_proc();
    EXPECT_STREQ(sta->ip, "0.0.0.0");
    EXPECT_STREQ(sta->name, "-");
    EXPECT_EQ(sta->status, 1);
    EXPECT_THAT(said(), IsEmpty());
    EXPECT_EQ(address_events(), 0);
}

TEST_F(cycle, star_of_the_lease_file_is_taken_as_the_name) {
    sta_info_t *sta = station_on(first_mac);
    lease("1700000000 02:00:00:00:00:01 192.168.1.20 * *\n");
    sta_sta_flow_count_proc();
    EXPECT_STREQ(sta->name, "*");
}

TEST_F(cycle, older_name_is_replaced) {
    sta_info_t *sta = station_on(first_mac);
    sta->name = sta_strdup("of before");
    sta_sta_flow_count_proc();
    EXPECT_STREQ(sta->name, "-");
}

TEST_F(cycle, bridged_station_has_no_address_and_no_look_up) {
    bridge_ath1();
    sta_info_t *sta = station_on(first_mac, 0, "ath1");
    lease("1700000000 02:00:00:00:00:01 192.168.1.20 phone *\n");
    sta_sta_flow_count_proc();
    EXPECT_STREQ(sta->ip, "0.0.0.0");
    EXPECT_THAT(lines_of("sta_get_ipaddr_by_dhcp_mac"), IsEmpty());
    EXPECT_STREQ(sta->name, "phone"); // names are looked up all the same
    EXPECT_EQ(address_events(), 0);
}

TEST_F(cycle, bridged_station_gets_its_address_from_the_monitor_with_its_line) {
    bridge_ath1();
    sta_info_t *sta = station_on(first_mac, 0, "ath1");
    sta_sta_get_dhcpmon_list_by_ubus("10.0.0.7", "tv", first_mac);
    sta_sta_flow_count_proc();
    EXPECT_STREQ(sta->ip, "10.0.0.7");
    EXPECT_STREQ(sta->name, "tv");
    EXPECT_TRUE(read_file("/tmp/sta_sta.info").starts_with("tv 02:00:00:00:00:01 10.0.0.7 "));
}

TEST_F(cycle, bridged_station_acts_on_the_last_look_up_of_the_pass) {
    bridge_ath1();
    lease("1700000000 02:00:00:00:00:01 192.168.1.20 phone *\n");
    sta_info_t *bridged_before = station_on(third_mac, 0, "ath1");
    station_on(first_mac);
    sta_info_t *bridged_after = station_on(second_mac, 0, "ath1");
    sta_sta_flow_count_proc();
    EXPECT_STREQ(bridged_before->ip, "0.0.0.0");
    EXPECT_STREQ(bridged_after->ip, "0.0.0.0");
    EXPECT_EQ(said(), (lines{"Sta on, get ip from dhcp.\n", "Sta on, get ip from dhcp.\n"}));
    EXPECT_EQ(address_events(), 2);
}

TEST_F(cycle, repeater_is_named_after_its_mac) {
    for (const auto &[mac, name] :
         std::vector<std::pair<const char *, const char *>>{{"02:00:00:00:ab:cd", "wireless_repeater_abcd"},
                                                            {"02:00:00:00:AB:CE", "wireless_repeater_ABCE"},
                                                            {"short", "wireless_repeater_0000"}}) {
        sta_info_t *sta = station_on(mac);
        sta->repeater_type = 1;
        lease(std::string("1700000000 ") + mac + " 192.168.1.20 phone *\n");
        sta_sta_flow_count_proc();
        EXPECT_STREQ(sta->name, name);
    }
}

TEST_F(cycle, first_figures_come_from_the_drivers_basic_section) {
    sta_info_t *sta = station_on(first_mac);
    driver_lists(
        {{"ath0",
          {table_entry(first_mac).basic32(92, 10).basic32(72, 5000).basic32(120, 36).extended32(0, 9)}}});
    sta_sta_flow_count_proc();
    EXPECT_EQ(sta->flow_rateup, 10240); // after the clearing
    EXPECT_EQ(sta->channel, 36);
    EXPECT_EQ(sta->txper, 0U);
    EXPECT_EQ(sta->time_delay, 0); // cleared after the reading
    ASSERT_THAT(driver_commands(), ElementsAre(5, 1));
    EXPECT_EQ(driver_requests()[1].size, 176);
    EXPECT_EQ(driver_requests()[1].bytes[4], 1);
}

TEST_F(cycle, driver_is_asked_once_per_radio_also_when_nobody_is_new) {
    for (const char *mac : {first_mac, second_mac}) {
        sta_info_t *sta = station_on(mac);
        sta->status = 1;
        ++g_sta_sta_master.online;
    }
    station_on(third_mac, 1, "ath1");
    station_on("02:00:00:00:00:04", 1, "ath11");
    station_on("02:00:00:00:00:05", 2, "ath2");
    driver_lists({{"ath0", {table_entry(first_mac).basic32(120, 36)}}, {"ath1", {}}});
    sta_sta_flow_count_proc();
    EXPECT_THAT(driver_commands(), ElementsAre(5, 1, 5));
    EXPECT_EQ(stations()[0]->channel, 0); // only new stations take figures
    EXPECT_EQ(g_sta_sta_master.online, 5);
}

TEST_F(cycle, station_of_a_third_radio_goes_on_line_with_a_word_in_the_log) {
    for (const std::int32_t radio : {2, -1}) {
        forget_log();
        sta_info_t *sta = station_on(radio == 2 ? first_mac : second_mac, radio);
        sta_sta_flow_count_proc();
        EXPECT_EQ(sta->status, 1);
        EXPECT_EQ(said(), lines{"sta:" + std::string(sta->mac) + " radio is inexistence \n"});
    }
}

// Runs passes over a new station, with one allocation failing in each, until the failing one is that of its name.
bool pass_without_memory_for_the_name(sta_info_t *sta) {
    for (unsigned nth = 1; nth < 10; ++nth) {
        fail_allocation(nth);
        sta_sta_flow_count_proc();
        fail_allocation(0);
        if (!sta->name) return true;
        sta->status = sta_status_added;
        g_sta_sta_master.online = 0;
    }
    return false;
}

TEST_F(cycle, station_without_a_name_for_lack_of_memory_waits_but_is_timed_and_written) {
    sta_info_t *sta = station_on(first_mac, 2);
    sta->name = sta_strdup("before");
    sta->online_clock.sec = sta_monotonic_seconds() - 50;
    ASSERT_TRUE(pass_without_memory_for_the_name(sta));
    EXPECT_EQ(sta->status, 2);
    EXPECT_EQ(g_sta_sta_master.online, 0);
    EXPECT_GE(sta->oltime, 50);
    EXPECT_TRUE(read_file("/tmp/sta_sta.info").starts_with("- 02:00:00:00:00:01 0.0.0.0 "));
    sta_sta_flow_count_proc();
    EXPECT_EQ(sta->status, 1);
}

TEST_F(cycle, repeater_without_a_name_for_lack_of_memory_waits_too) {
    sta_info_t *sta = station_on(first_mac, 2);
    sta->repeater_type = 1;
    ASSERT_TRUE(pass_without_memory_for_the_name(sta));
    EXPECT_EQ(sta->status, 2);
    sta_sta_flow_count_proc();
    EXPECT_STREQ(sta->name, "wireless_repeater_0001");
}

TEST_F(cycle, survives_the_failure_of_every_allocation) {
    lease("1700000000 02:00:00:00:00:01 192.168.1.20 phone *\n");
    driver_lists(
        {{"ath0", {table_entry(first_mac), table_entry(second_mac)}}, {"ath1", {table_entry(third_mac)}}});
    write_file("/tmp/sta_sta.info", "- 02:00:00:00:77:01 0.0.0.0 0 0 0 0 net 0 0 1 11\n");
    bridge_ath1();
    station_on(first_mac);
    station_on(second_mac)->repeater_type = 1;
    station_on(third_mac, 1, "ath1");
    bool failed = true;
    unsigned nth = 1;
    for (; failed; ++nth) {
        for (sta_info_t *sta : stations()) sta->status = 2;
        g_sta_sta_master.online = 0;
        fail_allocation(nth);
        sta_sta_flow_count_proc();
        failed = allocation_failed();
        fail_allocation(0);
        sta_sta_flow_count_proc(); // the next pass makes up for it
        EXPECT_EQ(g_sta_sta_master.online, 3) << nth;
        const std::string text = read_file("/tmp/sta_sta.info");
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4) << nth << "\n" << text;
        EXPECT_EQ(mem_total_cnt, 6U) << nth;
    }
    EXPECT_GT(nth, 10U);
}

TEST_F(cycle, every_station_is_timed_and_written_in_every_pass) {
    sta_info_t *sta = station_on(first_mac);
    for (int i = 0; i < 3; ++i) {
        sta->online_clock.sec = sta_monotonic_seconds() - 100 * i;
        sta_sta_flow_count_proc();
        EXPECT_GE(sta->oltime, 100 * i);
        const std::string text = read_file("/tmp/sta_sta.info");
        EXPECT_TRUE(text.starts_with("- 02:00:00:00:00:01 0.0.0.0 0 " + std::to_string(sta->oltime) + " "))
            << text;
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
    }
    EXPECT_EQ(g_sta_sta_master.online, 1); // counted once
}

// Names of the files in /tmp that were put in place, or closed by a writer, since the last call.
class written_files {
public:
    written_files() : fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        // Of equal events in a row only one is kept: the openings part them.
        if (inotify_add_watch(fd, "/tmp", IN_OPEN | IN_CLOSE_WRITE | IN_MOVED_TO) < 0)
            ADD_FAILURE() << "no watch";
    }
    ~written_files() { close(fd); }
    written_files(written_files &&) = delete;

    lines now() const {
        lines names;
        alignas(inotify_event) char buffer[16384];
        for (ssize_t got = 0; (got = read(fd, buffer, sizeof(buffer))) > 0;) {
            for (const char *at = buffer; at < buffer + got;) {
                const auto *event = reinterpret_cast<const inotify_event *>(at);
                if (event->mask & (IN_CLOSE_WRITE | IN_MOVED_TO)) names.emplace_back(event->name);
                at += sizeof(inotify_event) + event->len;
            }
        }
        return names;
    }

private:
    int fd;
};

TEST_F(cycle, counters_are_written_once_behind_the_lines_of_all_stations) {
    station_on(first_mac);
    station_on(second_mac, 1, "ath1");
    const written_files written;
    for (int pass = 0; pass < 2; ++pass) {
        sta_sta_flow_count_proc();
        EXPECT_THAT(written.now(), ElementsAre("sta_sta_tmp.info", "sta_sta.info", "sta_devc.info"));
    }
}

TEST_F(cycle, restored_station_is_timed_from_a_clock_of_zero) {
    sta_info_t *sta = station_on(first_mac);
    sta->online_clock = {0, 0};
    const std::int32_t before = sta_monotonic_seconds();
    sta_sta_flow_count_proc();
    EXPECT_GE(sta->oltime, before);
    EXPECT_LE(sta->oltime, sta_monotonic_seconds());
}

TEST_F(cycle, record_without_mac_is_passed_over) {
    sta_info_t *sta = station_on("");
    sta->oltime = -1;
    sta_sta_flow_count_proc();
    EXPECT_EQ(sta->status, 2);
    EXPECT_EQ(sta->oltime, -1);
    EXPECT_THAT(driver_requests(), IsEmpty());
    EXPECT_FALSE(file_exists("/tmp/sta_sta.info"));
    EXPECT_EQ(read_file("/tmp/sta_devc.info"), "0 0 0 0 0\n");
}

TEST_F(cycle, log_up_shows_the_memory_first) {
    put_station(first_mac, sta_status_online)->load_uptime = sta_uptime_seconds();
    EXPECT_EQ(sta_sta_log_up_proc(), 0);
    EXPECT_EQ(log_lines().at(0), "sta_mem_dump: sta mem_total_cnt 1\n");
    EXPECT_EQ(log_lines().at(1), "sta_get_ioctl_stainfo: ifname: get sta num fail \n");
    EXPECT_EQ(sta_sta_single_log_up_proc(), 0);
    EXPECT_EQ(stations().at(0)->single_log_up_cnt, 1);
}

class sweep : public House {
protected:
    sta_info_t *restored(const char *mac, std::uint16_t status = sta_status_added) {
        sta_info_t *sta = put_station(mac, status);
        sta->restored = 1;
        return sta;
    }
    ~sweep() override { uloop_timeout_cancel(&sta_restored_sweep_timer); }
    // By the exact clock, as a departure's time: that of time() is some milliseconds behind.
    static std::time_t wall_seconds() {
        return std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    }
    collector box;
};

TEST_F(sweep, logs_off_and_deletes_who_was_never_confirmed) {
    restored(first_mac, sta_status_online);
    sta_info_t *confirmed = put_station(second_mac, sta_status_online);
    restored(third_mac);
    write_file("/tmp/sta_sta.info", "- 02:00:00:00:00:01 0.0.0.0 0 0 0 0 net 0 0 1 11\n"
                                    "- 02:00:00:00:00:02 0.0.0.0 0 0 0 0 net 0 0 1 11\n"
                                    "- 02:00:00:00:00:03 0.0.0.0 0 0 0 0 net 0 0 1 11\n");
    const std::time_t before = wall_seconds();
    sta_sta_restored_sweep(&sta_restored_sweep_timer);
    EXPECT_THAT(stations(), ElementsAre(confirmed));
    EXPECT_EQ(g_sta_sta_master.online, 1);
    EXPECT_EQ(read_file("/tmp/sta_sta.info"), "- 02:00:00:00:00:02 0.0.0.0 0 0 0 0 net 0 0 1 11\n");
    const auto reports = box.reports();
    ASSERT_EQ(reports.size(), 2U);
    for (const auto &one : reports) {
        EXPECT_EQ(one.image[296], 2);
        std::int32_t offline = 0;
        for (int i = 3; i >= 0; --i) offline = offline << 8 | one.image[228 + static_cast<std::size_t>(i)];
        EXPECT_GE(offline, before);
        EXPECT_LE(offline, wall_seconds());
    }
    EXPECT_FALSE(sta_restored_sweep_timer.pending); // once only
}

TEST_F(sweep, deletes_also_the_last_stations_on_line) {
    restored(first_mac, sta_status_online);
    restored(second_mac, sta_status_online);
    sta_sta_restored_sweep(&sta_restored_sweep_timer);
    EXPECT_THAT(stations(), IsEmpty());
    EXPECT_EQ(g_sta_sta_master.online, 0);
}

TEST_F(sweep, removes_nobody_while_no_station_is_on_line) {
    restored(first_mac);
    sta_sta_restored_sweep(&sta_restored_sweep_timer);
    EXPECT_EQ(stations().size(), 1U);
    EXPECT_THAT(box.reports(), IsEmpty());
}

TEST_F(sweep, passes_a_record_without_mac) {
    put_station(first_mac, sta_status_online);
    restored("");
    sta_sta_restored_sweep(&sta_restored_sweep_timer);
    EXPECT_EQ(stations().size(), 2U);
    EXPECT_THAT(box.reports(), IsEmpty());
}

} // namespace
