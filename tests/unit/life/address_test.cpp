// Addresses and names: from the lease file, the snooping table, the DHCP monitor and events.
#include <gmock/gmock.h>
#include <malloc.h>
#include <sstream>

#include "support/house.h"

#include "inputs/dhcpmon_list.h"
#include "life/address.h"
#include "model/identity.h"
#include "model/table.h"
#include "tools/memory.h"
#include "tools/text.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using lines = std::vector<std::string>;

constexpr const char *first_mac = "02:00:00:00:00:01";
constexpr const char *second_mac = "02:00:00:00:00:02";
constexpr const char *third_mac = "02:00:00:00:00:03";

void lease(const std::string &text) { write_file("/tmp/dhcp.leases", text); }
std::string backup() { return read_file("/tmp/sta_sta.info"); }

class monitor_list : public House {
protected:
    static lines entries() {
        lines all;
        list_head *at = nullptr;
        list_for_each (at, &dhcpmon_list) {
            const auto *entry = reinterpret_cast<const dhcpmon_entry *>(at);
            all.push_back(std::string(entry->ip) + " " + entry->mac + " " + entry->hostName);
        }
        return all;
    }
};

TEST_F(monitor_list, grows_at_its_end) {
    EXPECT_EQ(sta_sta_get_dhcpmon_list_by_ubus("10.0.0.7", "tv", first_mac), 0);
    EXPECT_EQ(sta_sta_get_dhcpmon_list_by_ubus("10.0.0.8", "pc", second_mac), 0);
    EXPECT_EQ(entries(), (lines{"10.0.0.7 02:00:00:00:00:01 tv", "10.0.0.8 02:00:00:00:00:02 pc"}));
    EXPECT_TRUE(
        logged("sta_sta_get_dhcpmon_list_by_ubus", "ip=10.0.0.7, mac=02:00:00:00:00:01, hostName=tv\n"));
    EXPECT_EQ(mem_total_cnt, 2U);
}

TEST_F(monitor_list, cuts_long_texts) {
    sta_sta_get_dhcpmon_list_by_ubus(times(20, '1').c_str(), times(40, 'h').c_str(), times(25, 'm').c_str());
    EXPECT_EQ(entries(), lines{times(16, '1') + " " + times(19, 'm') + " " + times(31, 'h')});
}

TEST_F(monitor_list, without_memory_stays_as_it_is) {
    fail_allocation(1);
    EXPECT_EQ(sta_sta_get_dhcpmon_list_by_ubus("10.0.0.7", "tv", first_mac), -1);
    EXPECT_THAT(entries(), IsEmpty());
}

TEST_F(monitor_list, is_emptied_and_says_so) {
    sta_sta_get_dhcpmon_list_by_ubus("10.0.0.7", "tv", first_mac);
    sta_sta_get_dhcpmon_list_by_ubus("10.0.0.8", "pc", second_mac);
    forget_log();
    sta_sta_empty_dhcpmon_list();
    EXPECT_EQ(mem_total_cnt, 0U);
    sta_sta_empty_dhcpmon_list();
    EXPECT_EQ(log_lines(), (lines{"sta_sta_empty_dhcpmon_list: To empty the dhcpmon_list\n",
                                  "sta_sta_empty_dhcpmon_list: dhcpmon_list is empty\n"}));
}

TEST_F(monitor_list, is_displayed_line_by_line) {
    sta_sta_display_dhcpmon_list();
    EXPECT_THAT(log_lines(), IsEmpty());
    sta_sta_get_dhcpmon_list_by_ubus("10.0.0.7", "tv", first_mac);
    sta_sta_get_dhcpmon_list_by_ubus("10.0.0.8", "pc", second_mac);
    sta_sta_display_dhcpmon_list();
    EXPECT_EQ(lines_of("sta_sta_display_dhcpmon_list"),
              (lines{"ip=10.0.0.7, mac=02:00:00:00:00:01, hostName=tv\n",
                     "ip=10.0.0.8, mac=02:00:00:00:00:02, hostName=pc\n"}));
}

TEST_F(monitor_list, made_at_start_is_empty) {
    dhcpmon_list = {};
    EXPECT_EQ(sta_sta_dhcpmon_list_init(), 0);
    EXPECT_TRUE(list_empty(&dhcpmon_list));
}

class filling : public House {
protected:
    filling() {
        sta_put_text(sta->ip, "0.0.0.0");
        sta_sta_get_dhcpmon_list_by_ubus("10.0.0.6", "pc", second_mac);
        sta_sta_get_dhcpmon_list_by_ubus("10.0.0.7", "tv", first_mac);
        sta_sta_get_dhcpmon_list_by_ubus("10.0.0.8", "late", first_mac);
        forget_log();
    }
    sta_info_t *sta = put_station(first_mac);
};

TEST_F(filling, station_without_address_takes_those_of_the_first_entry_with_its_mac) {
    sta->name = sta_strdup("old");
    sta_sta_get_ip_hostname_by_dhcpmon_list(sta);
    EXPECT_STREQ(sta->ip, "10.0.0.7");
    EXPECT_STREQ(sta->name, "tv");
    EXPECT_GE(malloc_usable_size(sta->name), 32U);
    EXPECT_EQ(log_lines(),
              (lines{"sta_sta_get_ip_hostname_by_dhcpmon_list: runing: ip=0.0.0.0, mac=02:00:00:00:00:01, "
                     "hostName=old\n",
                     "sta_sta_get_ip_hostname_by_dhcpmon_list: ip=10.0.0.7, mac=02:00:00:00:00:01, "
                     "hostName=tv\n"}));
}

TEST_F(filling, entry_without_an_address_leaves_the_next_one_its_turn) {
    sta_sta_empty_dhcpmon_list();
    sta_sta_get_dhcpmon_list_by_ubus("0.0.0.0", "first", first_mac);
    sta_sta_get_dhcpmon_list_by_ubus("10.0.0.9", "second", first_mac);
    sta_sta_get_ip_hostname_by_dhcpmon_list(sta);
    EXPECT_STREQ(sta->ip, "10.0.0.9");
    EXPECT_STREQ(sta->name, "second");
}

TEST_F(filling, repeater_takes_the_address_and_its_own_kind_of_name) {
    sta->repeater_type = 1;
    sta_sta_get_ip_hostname_by_dhcpmon_list(sta);
    EXPECT_STREQ(sta->ip, "10.0.0.7");
    EXPECT_STREQ(sta->name, "wireless_repeater_0001");
}

TEST_F(filling, station_with_an_address_or_still_without_any_text_takes_nothing) {
    for (const char *ip : {"10.0.0.1", ""}) {
        sta_put_text(sta->ip, ip);
        sta_sta_get_ip_hostname_by_dhcpmon_list(sta);
        EXPECT_STREQ(sta->ip, ip);
        EXPECT_EQ(sta->name, nullptr);
    }
    EXPECT_TRUE(logged("sta_sta_get_ip_hostname_by_dhcpmon_list",
                       "runing: ip=, mac=02:00:00:00:00:01, hostName=NULL\n"));
}

TEST_F(filling, old_name_stays_without_memory_for_the_new_one) {
    sta->name = sta_strdup("old");
    fail_allocation(1);
    sta_sta_get_ip_hostname_by_dhcpmon_list(sta);
    EXPECT_STREQ(sta->ip, "10.0.0.7");
    EXPECT_STREQ(sta->name, "old");
}

TEST_F(filling, from_an_empty_list_or_of_nobody_does_nothing) {
    sta_sta_get_ip_hostname_by_dhcpmon_list(nullptr);
    sta_sta_empty_dhcpmon_list();
    forget_log();
    sta_sta_get_ip_hostname_by_dhcpmon_list(sta);
    EXPECT_EQ(log_lines(), lines{"sta_sta_get_ip_hostname_by_dhcpmon_list: dhcpmon_list is empty!\n"});
}

class refresh : public House {
protected:
    refresh() {
        sta->name = sta_strdup("old");
        sta_put_text(sta->ip, "10.0.0.1");
    }
    sta_info_t *sta = put_station(first_mac, sta_status_online);
};

TEST_F(refresh, changed_lease_changes_name_and_address_and_the_line) {
    lease("1 02:00:00:00:00:01 10.0.0.2 new *\n");
    sta_sta_update_name_by_dhcp();
    EXPECT_STREQ(sta->name, "new");
    EXPECT_STREQ(sta->ip, "10.0.0.2");
    EXPECT_TRUE(backup().starts_with("new 02:00:00:00:00:01 10.0.0.2 "));
    EXPECT_TRUE(
        logged("sta_sta_update_online_status_name", "name change: mac 02:00:00:00:00:01, old->new\n"));
    EXPECT_TRUE(logged("sta_sta_update_online_status_ip_by_dhcp",
                       "ip change: mac 02:00:00:00:00:01, 10.0.0.1->10.0.0.2\n"));
    EXPECT_THAT(calls(), IsEmpty()); // no firewall rule
    // An event would be refused here, where there is no bus, and say so.
    EXPECT_THAT(log_lines(), Not(Contains("ERROR in sta_ubus: sta_ubus_ctx is NULL!\n")));
}

TEST_F(refresh, name_alone_can_change) {
    lease("1 02:00:00:00:00:01 10.0.0.1 new *\n");
    sta_sta_update_name_by_dhcp();
    EXPECT_TRUE(backup().starts_with("new 02:00:00:00:00:01 10.0.0.1 "));
    EXPECT_THAT(lines_of("sta_sta_update_online_status_ip_by_dhcp"), IsEmpty());
}

TEST_F(refresh, first_name_replaces_none) {
    sta_free(sta->name);
    sta->name = nullptr;
    lease("1 02:00:00:00:00:01 10.0.0.1 new *\n");
    sta_sta_update_online_status_name();
    EXPECT_STREQ(sta->name, "new");
    EXPECT_TRUE(
        logged("sta_sta_update_online_status_name", "name change: mac 02:00:00:00:00:01, NULL->new\n"));
}

TEST_F(refresh, unchanged_lease_changes_nothing) {
    lease("1 02:00:00:00:00:01 10.0.0.1 old *\n");
    sta_sta_update_name_by_dhcp();
    EXPECT_FALSE(file_exists("/tmp/sta_sta.info"));
    lease("1 02:00:00:00:00:02 10.0.0.2 new *\n"); // another station's
    sta_sta_update_name_by_dhcp();
    EXPECT_STREQ(sta->ip, "10.0.0.1");
    EXPECT_FALSE(file_exists("/tmp/sta_sta.info"));
}

TEST_F(refresh, repeater_keeps_its_name_but_not_its_address) {
    sta->repeater_type = 1;
    lease("1 02:00:00:00:00:01 10.0.0.2 new *\n");
    sta_sta_update_name_by_dhcp();
    EXPECT_STREQ(sta->name, "old");
    EXPECT_STREQ(sta->ip, "10.0.0.2");
}

TEST_F(refresh, looks_at_stations_on_line_only) {
    sta_info_t *waiting = put_station(second_mac);
    sta_info_t *nobody = put_station("", sta_status_online);
    lease("1 02:00:00:00:00:02 10.0.0.2 new *\n");
    sta_sta_update_name_by_dhcp();
    EXPECT_STREQ(waiting->ip, "");
    EXPECT_EQ(waiting->name, nullptr);
    EXPECT_STREQ(nobody->ip, "");
    g_sta_sta_master.online = 0;
    lease("1 02:00:00:00:00:01 10.0.0.2 new *\n");
    forget_log();
    sta_sta_update_name_by_dhcp();
    EXPECT_THAT(log_lines(), IsEmpty());
    EXPECT_STREQ(sta->ip, "10.0.0.1");
    g_sta_sta_master.online = 2;
}

TEST_F(refresh, snooped_address_moves_the_firewall_rules_and_restarts_the_counters) {
    write_command("iptables", "exit 0");
    write_file("/tmp/snoop_ip_bak", "1 02:00:00:00:00:01 10.0.0.2 br-lan\n");
    sta->work_up = sta->work_down = 5;
    sta->flow_rateup = sta->flow_ratedown = 6;
    sta_sta_update_online_status_ip();
    EXPECT_STREQ(sta->ip, "10.0.0.2");
    EXPECT_EQ(sta->work_up + sta->work_down, 0U);
    EXPECT_EQ(sta->flow_rateup + sta->flow_ratedown, 0);
    EXPECT_THAT(calls(), ElementsAre("iptables -t mangle -D PREROUTING-outgoing -s 10.0.0.1 -m mac "
                                     "--mac-source 02:00:00:00:00:01 -j RETURN -w",
                                     "iptables -t nat -D prerouting_lan -s 10.0.0.1 -m mac --mac-source "
                                     "02:00:00:00:00:01 -j RETURN -w",
                                     "iptables -t mangle -D POSTROUTING-incoming -d 10.0.0.1 -j RETURN -w",
                                     "iptables -t mangle -nvxL PREROUTING-outgoing -w",
                                     "iptables -t mangle -A PREROUTING-outgoing -s 10.0.0.2 -m mac "
                                     "--mac-source 02:00:00:00:00:01 -j RETURN -w",
                                     "iptables -t mangle -A POSTROUTING-incoming -d 10.0.0.2 -j RETURN -w",
                                     "iptables -t nat -A prerouting_lan -s 10.0.0.2 -m mac --mac-source "
                                     "02:00:00:00:00:01 -j RETURN -w"));
    EXPECT_TRUE(backup().starts_with("old 02:00:00:00:00:01 10.0.0.2 "));
    EXPECT_TRUE(
        logged("sta_sta_update_online_status_ip", "ip change: mac 02:00:00:00:00:01, 10.0.0.1->10.0.0.2\n"));
}

TEST_F(refresh, snooped_address_without_new_rules_keeps_the_counters) {
    write_command("iptables", "exit 1");
    write_file("/tmp/snoop_ip_bak", "1 02:00:00:00:00:01 10.0.0.2 br-lan\n");
    sta->work_up = 5;
    sta->flow_rateup = 6;
    sta_sta_update_online_status_ip();
    EXPECT_STREQ(sta->ip, "10.0.0.2");
    EXPECT_EQ(sta->work_up, 5U);
    EXPECT_EQ(sta->flow_rateup, 6);
    EXPECT_TRUE(backup().starts_with("old 02:00:00:00:00:01 10.0.0.2 "));
}

TEST_F(refresh, snooped_address_that_is_known_already_changes_nothing) {
    write_command("iptables", "exit 0");
    write_file("/tmp/snoop_ip_bak", "1 02:00:00:00:00:01 10.0.0.1 br-lan\n");
    sta_sta_update_online_status_ip();
    EXPECT_THAT(calls(), IsEmpty());
    EXPECT_FALSE(file_exists("/tmp/sta_sta.info"));
}

class address_change : public House {
protected:
    address_change() { sta_put_text(sta->ip, "10.0.0.1"); }
    static lines said() { return lines_of("sta_sta_update_ip_by_ip_change_event"); }
    sta_info_t *sta = put_station(first_mac, sta_status_online);
};

TEST_F(address_change, of_a_station_without_lease_is_taken_and_not_written) {
    sta_sta_update_ip_by_ip_change_event(first_mac, "10.9.9.9", "10.0.0.2");
    EXPECT_STREQ(sta->ip, "10.0.0.2");
    EXPECT_EQ(said(), (lines{"mac=02:00:00:00:00:01, before_ip=10.9.9.9, changed_ip=10.0.0.2\n",
                             "IP change: mac 02:00:00:00:00:01, 10.0.0.1->10.0.0.2.\n "}));
    EXPECT_FALSE(file_exists("/tmp/sta_sta.info"));
}

TEST_F(address_change, is_cut_to_the_field) {
    sta_sta_update_ip_by_ip_change_event(first_mac, "10.9.9.9", "123456789012345678901");
    EXPECT_STREQ(sta->ip, "1234567890123456");
}

TEST_F(address_change, of_a_leased_station_ends_the_walk_without_change) {
    sta_info_t *twin = put_station(first_mac, sta_status_online);
    lease("1 02:00:00:00:00:01 10.0.0.7 phone *\n");
    sta_sta_update_ip_by_ip_change_event(first_mac, "10.9.9.9", "10.0.0.2");
    EXPECT_STREQ(sta->ip, "10.0.0.1");
    EXPECT_STREQ(twin->ip, "");
    EXPECT_EQ(said().back(), "IP address is obtained from DHCP.\n");
}

TEST_F(address_change, names_every_other_station_on_line) {
    put_station(second_mac, sta_status_online);
    put_station("short", sta_status_online);
    put_station("02:00:00:00:00:04");
    put_station(third_mac, sta_status_online);
    sta_info_t *twin = put_station(first_mac, sta_status_online);
    sta_sta_update_ip_by_ip_change_event(first_mac, "10.9.9.9", "10.0.0.2");
    EXPECT_EQ(said(), (lines{"mac=02:00:00:00:00:01, before_ip=10.9.9.9, changed_ip=10.0.0.2\n",
                             "IP change: mac 02:00:00:00:00:01, 10.0.0.1->10.0.0.2.\n ",
                             "MAC don't match: mac=02:00:00:00:00:01, list_mac=02:00:00:00:00:02.\n",
                             "Fail to get the sta.\n",
                             "MAC don't match: mac=02:00:00:00:00:01, list_mac=02:00:00:00:00:03.\n",
                             "IP change: mac 02:00:00:00:00:01, ->10.0.0.2.\n "}));
    EXPECT_STREQ(twin->ip, "10.0.0.2");
}

TEST_F(address_change, of_a_waiting_station_is_not_taken) {
    sta_info_t *waiting = put_station(second_mac);
    sta_sta_update_ip_by_ip_change_event(second_mac, "10.9.9.9", "10.0.0.2");
    EXPECT_STREQ(waiting->ip, "");
}

TEST_F(address_change, while_nobody_is_on_line_is_dropped) {
    sta->status = 2;
    g_sta_sta_master.online = 0;
    sta_sta_update_ip_by_ip_change_event(first_mac, "10.9.9.9", "10.0.0.2");
    EXPECT_EQ(said().back(), "No sta connection.\n");
    EXPECT_STREQ(sta->ip, "10.0.0.1");
}

TEST_F(address_change, with_bad_arguments_is_refused) {
    const std::vector<std::tuple<const char *, const char *, const char *, std::string>> bad = {
        {nullptr, "10.9.9.9", "10.0.0.2", "The parameter mac error.\n"},
        {"02:00:00:00:00:0", "10.9.9.9", "10.0.0.2", "The parameter mac error.\n"},
        {first_mac, nullptr, "10.0.0.2", "The parameter before_ip error.\n"},
        {first_mac, "1.1.1.", "10.0.0.2", "The parameter before_ip error.\n"},
        {first_mac, "1.1.1.1", nullptr, "The parameter changed_ip error.\n"},
        {first_mac, "1.1.1.1", "2.2.2.", "The parameter changed_ip error.\n"},
    };
    for (const auto &[mac, before, changed, text] : bad) {
        forget_log();
        sta_sta_update_ip_by_ip_change_event(mac, before, changed);
        EXPECT_EQ(log_lines().size(), 2U);
        EXPECT_TRUE(logged_error("sta_sta", text));
    }
    EXPECT_STREQ(sta->ip, "10.0.0.1");
}

class dhcp_update : public House {
protected:
    static lines said() { return lines_of("sta_sta_update_ip_by_dhcp_update_event"); }
    static std::int64_t microseconds() {
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        return now.tv_sec * 1000000LL + now.tv_nsec / 1000;
    }
    sta_info_t *sta = put_station(first_mac); // its status does not matter
    collector box;
};

TEST_F(dhcp_update, gives_the_station_address_and_name_and_is_reported) {
    sta->name = sta_strdup("old");
    const std::int64_t before = microseconds();
    sta_sta_update_ip_by_dhcp_update_event(first_mac, "10.0.0.2", "phone");
    EXPECT_STREQ(sta->ip, "10.0.0.2");
    EXPECT_STREQ(sta->name, "phone");
    EXPECT_EQ(sta->log_type, 1);
    EXPECT_THAT(box.kinds(), ElementsAre(1));
    EXPECT_THAT(lines_of("sta_ubus_log_info_notify"), IsEmpty());
    EXPECT_FALSE(file_exists("/tmp/sta_sta.info"));
    ASSERT_EQ(said().size(), 2U);
    EXPECT_EQ(said()[0], "sta_sta_update_ip_by_dhcp_update_event is running\n ");
    const std::string start = "dhcp update: mac 02:00:00:00:00:01, ip 10.0.0.2, hostname phone, time_us ";
    ASSERT_TRUE(said()[1].starts_with(start) && said()[1].ends_with(".\n "));
    const std::int64_t told = std::stoll(said()[1].substr(start.size()));
    EXPECT_GE(told, before);
    EXPECT_LE(told, microseconds());
    EXPECT_EQ(sta->dhcp_update_time, static_cast<std::uint32_t>(told & 0xffffffff));
}

TEST_F(dhcp_update, of_a_station_without_name_says_so) {
    sta_sta_update_ip_by_dhcp_update_event(first_mac, "10.0.0.2", "");
    EXPECT_EQ(said()[1], "sta_name is null\n");
    EXPECT_STREQ(sta->name, ""); // an empty name is one
}

TEST_F(dhcp_update, renames_a_repeater_too) {
    sta->repeater_type = 1;
    sta_sta_update_ip_by_dhcp_update_event(first_mac, "10.0.0.2", "phone");
    EXPECT_STREQ(sta->name, "phone");
}

TEST_F(dhcp_update, stops_at_the_first_match_and_names_those_before) {
    put_station("short");
    sta_info_t *other = put_station(second_mac);
    sta_info_t *behind = put_station(second_mac);
    sta_sta_update_ip_by_dhcp_update_event(second_mac, "10.0.0.2", "phone");
    EXPECT_STREQ(other->ip, "10.0.0.2");
    EXPECT_STREQ(behind->ip, "");
    EXPECT_EQ(said()[1], "MAC don't match: mac=02:00:00:00:00:02, list_mac=02:00:00:00:00:01.\n");
    EXPECT_EQ(said()[2], "Fail to get the sta.\n");
}

TEST_F(dhcp_update, of_an_unknown_station_changes_nothing) {
    sta_sta_update_ip_by_dhcp_update_event(third_mac, "10.0.0.2", "phone");
    EXPECT_EQ(said().back(), "MAC don't match: mac=02:00:00:00:00:03, list_mac=02:00:00:00:00:01.\n");
    EXPECT_THAT(box.reports(), IsEmpty());
    EXPECT_STREQ(sta->ip, "");
}

TEST_F(dhcp_update, with_bad_arguments_is_refused) {
    const std::string long_name = times(129, 'n');
    const std::vector<std::tuple<const char *, const char *, const char *, std::string>> bad = {
        {nullptr, "10.0.0.2", "n", "The parameter mac error.\n"},
        {"02:00:00:00:00:0", "10.0.0.2", "n", "The parameter mac error.\n"},
        {first_mac, nullptr, "n", "The parameter ip error.\n"},
        {first_mac, "1.1.1.", "n", "The parameter ip error.\n"},
        {first_mac, "1.1.1.1", nullptr, "The parameter hostName error.\n"},
        {first_mac, "1.1.1.1", long_name.c_str(), "The parameter hostName error.\n"},
    };
    for (const auto &[mac, ip, name, text] : bad) {
        forget_log();
        sta_sta_update_ip_by_dhcp_update_event(mac, ip, name);
        EXPECT_EQ(log_lines().size(), 2U);
        EXPECT_TRUE(logged_error("sta_sta", text));
    }
    EXPECT_THAT(box.reports(), IsEmpty());
    sta_sta_update_ip_by_dhcp_update_event(first_mac, "1.1.1.1", times(128, 'n').c_str());
    EXPECT_EQ(std::string(sta->name), times(128, 'n'));
}

TEST_F(dhcp_update, keeps_the_old_name_without_memory_and_reports_the_address) {
    sta->name = sta_strdup("old");
    fail_allocation(1);
    sta_sta_update_ip_by_dhcp_update_event(first_mac, "10.0.0.2", "phone");
    EXPECT_STREQ(sta->name, "old");
    EXPECT_STREQ(sta->ip, "10.0.0.2");
    EXPECT_THAT(box.kinds(), ElementsAre(1));
}

TEST_F(dhcp_update, that_no_collector_hears_of_is_logged) {
    remove("/tmp/sta_server_domain");
    sta_sta_update_ip_by_dhcp_update_event(first_mac, "10.0.0.2", "phone");
    EXPECT_EQ(said().back(), "sta_domain_socket_send error!!!\n");
}

class refresh_of_many : public House {
protected:
    refresh_of_many() {
        int number = 0;
        for (const char *mac : {first_mac, second_mac, third_mac}) {
            sta_info_t *sta = put_station(mac, sta_status_online);
            sta_put_text(sta->ip, ("10.0.0." + std::to_string(++number)).c_str());
            sta->name = sta_strdup("old");
        }
    }
};

// Names first, then addresses, as if each station had been rewritten by itself: a station that changes twice comes last.
TEST_F(refresh_of_many, leaves_the_lines_in_the_order_in_which_the_stations_changed) {
    lease("1 " + std::string(first_mac) + " 10.0.0.9 phone *\n1 " + second_mac + " 10.0.0.2 tv *\n1 " +
          third_mac + " 10.0.0.3 pc *\n");
    sta_sta_update_name_by_dhcp();
    std::vector<std::string> order;
    std::istringstream file(backup());
    for (std::string name, mac, ip, rest; file >> name >> mac >> ip && std::getline(file, rest);)
        order.push_back(name + " " + mac + " " + ip);
    EXPECT_EQ(order, (lines{"tv 02:00:00:00:00:02 10.0.0.2", "pc 02:00:00:00:00:03 10.0.0.3",
                            "phone 02:00:00:00:00:01 10.0.0.9"}));
    EXPECT_FALSE(file_exists("/tmp/sta_sta_tmp.info"));
}

TEST_F(refresh_of_many, writes_nothing_when_nothing_has_changed) {
    lease("1 " + std::string(first_mac) + " 10.0.0.1 old *\n");
    sta_sta_update_name_by_dhcp();
    EXPECT_FALSE(file_exists("/tmp/sta_sta.info"));
}

struct learning : House {
    sta_info_t *sta = put_station(first_mac, sta_status_online);
    lines names() const {
        lines found;
        for (const station_name &one : sta_identity_names(sta))
            found.push_back(std::string{one.text} + " " + station_origin_name(one.origin));
        return found;
    }
    lines addresses() const {
        lines found;
        for (const station_address &one : sta_identity_addresses(sta)) {
            char text[station_address_text_size];
            sta_address_write(one, text);
            found.push_back(std::string{text} + " " + station_origin_name(one.origin));
        }
        return found;
    }
};

TEST_F(learning, what_the_lease_file_says_is_remembered_the_first_time_and_again) {
    lease("1700000000 02:00:00:00:00:01 10.0.0.1 phone *\n");
    sta_sta_update_name_by_dhcp();
    lease("1700000000 02:00:00:00:00:01 10.0.0.2 tablet *\n");
    sta_sta_update_name_by_dhcp();
    sta_sta_update_name_by_dhcp();
    EXPECT_THAT(addresses(), ElementsAre("10.0.0.1 lease", "10.0.0.2 lease"));
    EXPECT_THAT(names(), ElementsAre("phone lease", "tablet lease"));
    EXPECT_STREQ(sta->ip, "10.0.0.2");
}

TEST_F(learning, an_event_brings_address_and_name_with_its_origin) {
    sta_sta_update_ip_by_dhcp_update_event(first_mac, "10.0.0.7", "tv");
    sta_sta_update_ip_by_ip_change_event(first_mac, "10.0.0.7", "10.0.0.8");
    EXPECT_THAT(addresses(), ElementsAre("10.0.0.7 event", "10.0.0.8 event"));
    EXPECT_THAT(names(), ElementsAre("tv event"));
}

TEST_F(learning, an_event_with_an_address_that_is_none_changes_the_record_alone) {
    sta_sta_update_ip_by_ip_change_event(first_mac, "0.0.0.1", "999.9.9.9");
    EXPECT_STREQ(sta->ip, "999.9.9.9");
    EXPECT_THAT(addresses(), IsEmpty());
}

} // namespace
