// Associations and disassociations: what becomes of the record, the table, the reports and the log.
#include "support/events.h"

#include "model/table.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <gmock/gmock.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using event = Events;

TEST_F(event, association_leads_to_the_golden_report_and_a_record_in_the_table) {
    collector box;
    const sta_info_t *sta = associate();
    const std::vector<collected_report> reports = box.reports();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].image, golden("driver/log_on.hex"));
    ASSERT_EQ(stations().size(), 1U);
    EXPECT_STREQ(sta->mac, event_mac);
    EXPECT_EQ(sta->status, sta_status_added);
    EXPECT_STREQ(sta->name, "-");
    EXPECT_EQ(g_sta_sta_master.online, 0);
}

TEST_F(event, disassociation_leads_to_the_golden_report_and_to_the_record_s_end) {
    associate();
    write_file("/tmp/sta_sta.info",
               std::string("- ") + event_mac + " 10.0.0.5 1700000000 12 0 0 lobby 0 1 55 36 0M 0M\n");
    collector box;
    handle(disassociation());
    const std::vector<collected_report> reports = box.reports();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].image, golden("driver/log_off.hex"));
    EXPECT_THAT(stations(), IsEmpty());
    EXPECT_EQ(read_file("/tmp/sta_sta.info"), "") << "its backup line is gone";
    EXPECT_EQ(mem_total_cnt, 0U);
}

TEST_F(event, association_is_logged_with_the_event_s_own_values) {
    associate();
    const std::vector<std::string> all = event_lines();
    ASSERT_GE(all.size(), 7U);
    EXPECT_EQ(all[0], "assoc 1 mac 00:11:22:33:44:ab\n");
    EXPECT_EQ(all[1], "ssid lobby ifname ath12 radio_id 1 off_reason_code 112 sta_rxbyte=5000000000 "
                      "sta_txbyte=72623859790382856 sta_rxrate=1024 sta_txrate=2048 rssi=-40\n");
    EXPECT_EQ(all[2], "floornoise=-95 utilization=128 version=1.2.3.4 channel 36 is_reassoc 1\n");
    EXPECT_EQ(all[3], "ap_auth_req=auth 100%  ap_assoc_req=assoc 2\n");
    EXPECT_EQ(all[4], "up success sta->ap_mac = 02:00:00:00:00:99\n\n");
    EXPECT_EQ(all[5], "maxRate1=866\n");
    EXPECT_EQ(all[6], "up: is_reassoc 1 vlanid 30 rssi 55 repeater_type=0\n");
    EXPECT_EQ(all.size(), 7U);
    for (const log_record &one : log_records())
        EXPECT_EQ(one.level, one.text.starts_with("NOTICE: ") ? 3 : 7) << one.text;
}

TEST_F(event, disassociation_is_logged_with_the_record_s_values) {
    associate();
    forget_log();
    handle(disassociation());
    const std::vector<std::string> all = event_lines();
    ASSERT_EQ(all.size(), 5U);
    EXPECT_EQ(all[0], "assoc 0 mac 00:11:22:33:44:ab\n");
    EXPECT_EQ(all[3], "maxRate2=400\n");
    EXPECT_EQ(
        all[4],
        "sta->reason=OW_STA_DUPLICATE_AUTH wifi_up=5000000000 wifi_down=72623859790382856 flow_rateup=1024 "
        "flow_ratedown=2048 vlanid=30 power=65 rssi=-65\n");
}

TEST_F(event, roaming_check_report_notification_and_table_come_in_this_order) {
    associate();
    std::vector<std::string> order;
    for (const std::string &line : log_lines())
        for (const char *step :
             {"sta_sta_roam_send_msg: sta_sta_roam_send_msg is running!!!\n", "sta_sta_log_on: sta log on.\n",
              "sta_domain_socket_send: sta domain socket send.\n",
              "sta_ubus_log_info_notify: sta_ubus_log_info_notify\n",
              "sta_sta_add_usr: sta add user, mac=00:11:22:33:44:ab. ifname=ath12\n"})
            if (line == step) order.push_back(line.substr(0, line.find(':')));
    EXPECT_THAT(order, ElementsAre("sta_sta_roam_send_msg", "sta_sta_log_on", "sta_domain_socket_send",
                                   "sta_ubus_log_info_notify", "sta_sta_add_usr"));
}

TEST_F(event, very_weak_signals_count_as_minus_65) {
    struct row {
        std::uint8_t reading;
        int rssi;
        const char *power;
    };
    for (const row one :
         {row{0xa1, -65, "65"}, row{0xa2, -94, "1"}, row{0xd8, -40, "55"}, row{0x80, -65, "65"},
          row{0x0a, 10, "105"}, row{0x7f, 127, "222"}, row{0xa0, -65, "65"}}) {
        const sta_info_t *sta =
            associate({{at::rssi, {one.reading}}, {at::mac_bytes, {0, 0, 0, 0, 0, one.reading}}});
        EXPECT_EQ(sta->rssi, one.rssi) << int{one.reading};
        EXPECT_STREQ(sta->power, one.power) << int{one.reading};
    }
}

TEST_F(event, a_shorter_power_leaves_nothing_of_the_one_before) {
    const sta_info_t *sta = associate({{at::rssi, {0x0a}}});
    EXPECT_STREQ(sta->power, "105");
    handle(disassociation({{at::rssi, {0xa2}}, {at::is_reassoc, {2}}})); // it stays, with its final figures
    EXPECT_EQ(std::string(sta->power, 11), "1" + std::string(10, '\0'));
}

TEST_F(event, utilization_becomes_per_cent_cut_toward_0) {
    const std::pair<byte_vector, int> rows[] = {
        {from_hex("ff000000"), 100}, {from_hex("80000000"), 50},        {from_hex("00000000"), 0},
        {from_hex("fdffffff"), -1},  {from_hex("ffffff7f"), 842150449}, {from_hex("00000080"), -842150450}};
    std::uint8_t number = 0;
    for (const auto &[bytes, per_cent] : rows)
        EXPECT_EQ(
            associate({{at::utilization, bytes}, {at::mac_bytes, {0, 0, 0, 0, 0, ++number}}})->utilization,
            per_cent);
}

TEST_F(event, network_number_is_the_first_two_digits_behind_another_character) {
    struct row {
        const char *name;
        int number;
    };
    std::uint8_t number = 0;
    for (const row one : {row{"ath0", 0}, row{"ath12", 12}, row{"ath123", 12}, row{"ath01", 1},
                          row{"wlan", 0}, row{"7ath", 0}, row{"wlan2-3", 2}, row{"a1b2", 1}, row{"", 0}})
        EXPECT_EQ(
            associate({{at::ifname, text_bytes(one.name, 20)}, {at::mac_bytes, {0, 0, 0, 0, 0, ++number}}})
                ->wlanid,
            one.number)
            << one.name;
}

TEST_F(event, capabilities_widen_without_a_sign) {
    const sta_info_t *sta = associate({{at::supportSTBC, byte_vector(7, 0xff)}});
    EXPECT_THAT((std::vector{sta->supportSTBC, sta->supportSGI, sta->maxMCS, sta->maxBW, sta->FCAP,
                             sta->fromDS, sta->toDS}),
                testing::Each(255));
}

TEST_F(event, texts_without_an_end_are_cut_to_their_fields) {
    const sta_info_t *sta = associate({{at::ssid, byte_vector(130, 's')},
                                       {at::ifname, byte_vector(20, 'i')},
                                       {at::version, byte_vector(8, 'v')},
                                       {at::ap_auth_req, byte_vector(32, 'a')}});
    EXPECT_EQ(std::string(sta->ssid), times(127, 's'));
    EXPECT_EQ(std::string(sta->ifname), times(19, 'i'));
    EXPECT_EQ(std::string(sta->version), "vvvvv");
    EXPECT_EQ(std::string(sta->ap_auth_req), times(31, 'a'));
    EXPECT_EQ(event_lines()[1].substr(0, 5 + 130 + 8 + 20 + 1),
              "ssid " + times(130, 's') + " ifname " + times(20, 'i') + " ");
}

TEST_F(event, conversions_in_the_driver_s_texts_print_nothing_of_ours) {
    const sta_info_t *sta = associate({{at::ap_auth_req, text_bytes("%s%n%d%%%x", 32)},
                                       {at::ifname, text_bytes("at%%h%d", 20)},
                                       {at::ssid, text_bytes("50%%%s%n", 130)},
                                       {at::version, text_bytes("%s%n", 8)}});
    EXPECT_STREQ(sta->ap_auth_req, "0%0");
    EXPECT_STREQ(sta->ifname, "at%h0");
    EXPECT_STREQ(sta->ssid, "50%%%s%n") << "the network's name is no format text";
    EXPECT_STREQ(sta->version, "%s%n");
}

TEST_F(event, vlan_is_the_configured_one_or_1) {
    for (const auto &[configured, expected] :
         std::vector<std::pair<std::string, int>>{{"30", 30}, {"0", 1}, {"-1", 1}, {"abc", 1}}) {
        vlan(configured);
        EXPECT_EQ(associate()->vlanid, expected) << configured;
        handle(disassociation());
    }
}

TEST_F(event, vlan_without_a_configuration_is_1) {
    write_file("/etc/config/wireless", "");
    EXPECT_EQ(associate()->vlanid, 1);
}

TEST_F(event, repeater_is_known_by_its_network_or_by_the_event_s_flag) {
    struct row {
        const char *network;
        std::uint8_t flag;
        const char *name;
    };
    std::uint8_t number = 0;
    for (const row one :
         {row{"@Talvik-Repeater", 0, "wireless_repeater_12ab"}, row{"lobby", 1, "wireless_repeater_12ab"},
          row{"@Talvik-Repeater2", 0, "-"}, row{"@Talvik-Repeate", 0, "-"}, row{"lobby", 2, "-"}}) {
        const sta_info_t *sta = associate({{at::ssid, text_bytes(one.network, 130)},
                                           {at::repeater, {one.flag}},
                                           {at::mac_bytes, {2, 0, 0, ++number, 0x12, 0xab}}});
        EXPECT_STREQ(sta->name, one.name) << one.network;
        EXPECT_EQ(sta->repeater_type, one.name[0] == 'w' ? 1 : 0) << one.network;
    }
}

TEST_F(event, load_uptime_is_the_system_s_uptime) { EXPECT_EQ(associate()->load_uptime, 500); }

TEST_F(event, missing_access_point_mac_leaves_the_field_empty) {
    std::remove("/proc/tk_sys/sys_mac");
    testing::internal::CaptureStderr();
    EXPECT_STREQ(associate()->ap_mac, "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "/proc/tk_sys/sys_mac: No such file or directory\n");
}

// The three allocations: the record, its name, and (of a repeater without a name) the name again; then what others need.
TEST_F(event, association_survives_every_failing_allocation) {
    const byte_vector messages[] = {association(), association({{at::repeater, {1}}})};
    for (const byte_vector &message : messages) {
        for (unsigned nth = 1;; ++nth) {
            ASSERT_LT(nth, 100U);
            fail_allocation(nth);
            handle(message);
            const bool failed = allocation_failed();
            fail_allocation(0);
            handle(disassociation());
            EXPECT_EQ(mem_total_cnt, 0U) << nth;
            EXPECT_THAT(stations(), IsEmpty());
            if (!failed) break;
        }
    }
}

TEST_F(event, without_memory_for_the_record_nothing_is_reported) {
    collector box;
    fail_allocation(1);
    EXPECT_EQ(associate(), nullptr);
    EXPECT_THAT(box.reports(), IsEmpty());
}

TEST_F(event, repeater_s_name_is_tried_again_when_there_was_no_memory_for_the_default_one) {
    fail_allocation(2);
    const sta_info_t *sta = associate({{at::repeater, {1}}});
    EXPECT_TRUE(allocation_failed());
    EXPECT_STREQ(sta->name, "wireless_repeater_44ab");
}

TEST_F(event, known_station_is_merged_and_gets_its_early_report_again) {
    sta_info_t *known = associate();
    known->single_log_up_cnt = 3;
    EXPECT_EQ(associate({{at::radio_id, {0}}, {at::ifname, text_bytes("ath0", 20)}}), known);
    EXPECT_EQ(stations().size(), 1U);
    EXPECT_EQ(known->single_log_up_cnt, 0);
    EXPECT_EQ(known->radio_id, 0);
    EXPECT_STREQ(known->ifname, "ath0");
    EXPECT_EQ(known->wlanid, 12) << "the merge takes nothing else";
}

TEST_F(event, station_that_the_table_refuses_is_reported_and_forgotten) {
    collector box;
    sta_max_num = 0;
    EXPECT_EQ(associate(), nullptr);
    EXPECT_THAT(box.kinds(), ElementsAre(1));
    EXPECT_TRUE(
        logged("sta_sta_add_usr", "sta add user 00:11:22:33:44:ab failed ! reach max sta_numbers 0.\n"));
}

TEST_F(event, refused_update_leaves_the_known_record_s_counter_alone) {
    sta_info_t *known = associate();
    known->single_log_up_cnt = 3;
    sta_max_num = 0;
    associate();
    EXPECT_EQ(known->single_log_up_cnt, 3);
}

TEST_F(event, move_to_another_radio_is_reported_as_roaming_first) {
    associate();
    collector box;
    set_driver([](const driver_request &, std::span<std::uint8_t>) { return 0; });
    associate({{at::radio_id, {0}}, {at::ifname, text_bytes("ath0", 20)}});
    EXPECT_THAT(box.kinds(), ElementsAre(4, 1));
    ASSERT_EQ(driver_requests().size(), 1U);
    EXPECT_EQ(driver_requests()[0].cmd, 4);
    EXPECT_EQ(driver_requests()[0].ifname, "ath12");
}

TEST_F(event, other_kinds_of_event_are_logged_and_ignored) {
    collector box;
    associate();
    box.reports();
    forget_log();
    for (const byte_vector &kind :
         {from_hex("05000000"), from_hex("02000000"), from_hex("01010000"), from_hex("ffffffff")})
        handle(association({{at::assoc, kind}}));
    EXPECT_EQ(event_lines().size(), 4U * 3U);
    EXPECT_EQ(log_records().size(), 4U * 3U);
    EXPECT_EQ(event_lines()[0], "assoc 5 mac 00:11:22:33:44:ab\n");
    EXPECT_EQ(stations().size(), 1U);
    EXPECT_THAT(box.reports(), IsEmpty());
}

TEST_F(event, disassociation_of_an_unknown_station_asks_the_table_and_reports_nothing) {
    collector box;
    handle(disassociation());
    EXPECT_THAT(box.reports(), IsEmpty());
    EXPECT_TRUE(logged("sta_sta_del_usr_by_mac", "sta delete, find usr 00:11:22:33:44:ab fail.\n"));
}

TEST_F(event, disassociation_on_another_interface_deletes_and_reports_nothing) {
    sta_info_t *sta = associate();
    collector box;
    handle(disassociation({{at::ifname, text_bytes("ath1", 20)}}));
    EXPECT_THAT(stations(), ElementsAre(sta));
    EXPECT_EQ(sta->offline_ts.sec, 0);
    EXPECT_EQ(sta->maxRate, 866U) << "no final figures";
    EXPECT_THAT(box.reports(), IsEmpty());
    EXPECT_TRUE(
        filed("sta_sta_del_usr_by_mac: mac:00:11:22:33:44:ab ifname old:ath12 new:ath1 mismatching.\n"));
}

// The record keeps the expanded text: such a station never matches its own departure event.
TEST_F(event, interface_is_compared_with_the_event_s_raw_text) {
    associate({{at::ifname, text_bytes("at%%h", 20)}});
    handle(disassociation({{at::ifname, text_bytes("at%%h", 20)}}));
    EXPECT_EQ(stations().size(), 1U);
    handle(disassociation({{at::ifname, text_bytes("at%h", 20)}}));
    EXPECT_THAT(stations(), IsEmpty());
}

TEST_F(event, station_that_roams_to_another_access_point_stays_with_its_final_figures) {
    sta_info_t *sta = associate();
    sta_put_text(sta->ip, "10.0.0.5");
    std::snprintf(sta->name, sta_name_size, "phone");
    collector box;
    forget_log();
    handle(disassociation({{at::is_reassoc, {2}}}));
    EXPECT_THAT(stations(), ElementsAre(sta));
    EXPECT_EQ(sta->offline_ts.sec, 1700000060);
    EXPECT_EQ(sta->maxRate, 400U);
    EXPECT_EQ(sta->is_reassoc, 2);
    EXPECT_STREQ(sta->reason, "OW_STA_DUPLICATE_AUTH");
    EXPECT_STREQ(sta->ip, "10.0.0.5") << "no final figure";
    EXPECT_STREQ(sta->name, "phone") << "no final figure";
    EXPECT_THAT(box.reports(), IsEmpty());
    EXPECT_EQ(event_lines().back(), "sta mac:00:11:22:33:44:ab is ap roam status\n");
    EXPECT_THAT(lines_of("sta_sta_del_usr_by_mac"), IsEmpty());
}

TEST_F(event, code_without_a_name_means_success) {
    sta_info_t *sta = associate();
    handle(disassociation({{at::off_reason_code, from_hex("71000000")}, {at::is_reassoc, {2}}}));
    EXPECT_EQ(sta->reason_code, 113);
    EXPECT_STREQ(sta->reason, "OW_STA_SUCCESS");
}

TEST_F(event, disassociation_of_a_station_on_line_lowers_the_count) {
    sta_info_t *sta = associate();
    sta->status = sta_status_online;
    g_sta_sta_master.online = 1;
    handle(disassociation());
    EXPECT_EQ(g_sta_sta_master.online, 0);
}

} // namespace
