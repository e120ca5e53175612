// Reports to the collector, and what goes to the driver around them.
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include "support/house.h"

#include "inputs/ap_mac.h"
#include "life/reports.h"
#include "outputs/collector.h"
#include "tools/text.h"
#include "wlan/removal.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using lines = std::vector<std::string>;

std::size_t open_descriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

std::string text_at(const collected_report &report, std::size_t offset) {
    return reinterpret_cast<const char *>(report.image.data() + offset);
}

class report : public House {
protected:
    sta_info_t *sta = put_station("02:00:00:00:00:01");
};

TEST_F(report, log_on_is_one_image_of_kind_1_from_the_clients_path) {
    collector box;
    sta->rssi = -65;
    sta_sta_log_on(sta);
    const auto reports = box.reports();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].from, "/tmp/sta_client_domain");
    ASSERT_EQ(reports[0].image.size(), 696U);
    EXPECT_EQ(text_at(reports[0], 156), "02:00:00:00:00:01");
    EXPECT_EQ(reports[0].image[208], 2); // still waiting for its first pass
    EXPECT_EQ(reports[0].image[296], 1);
    EXPECT_EQ(reports[0].image[297], 0);
    EXPECT_EQ(reports[0].image[430], 0xbf);
    EXPECT_EQ(sta->log_type, 1);
    EXPECT_EQ(log_lines(),
              (lines{"sta_sta_log_on: sta log on.\n", "sta_domain_socket_send: sta domain socket send.\n",
                     "sta_ubus_log_info_notify: sta_ubus_log_info_notify\n"}));
}

TEST_F(report, log_off_is_one_image_of_kind_2) {
    collector box;
    sta_sta_log_off(sta);
    EXPECT_THAT(box.kinds(), ElementsAre(2));
    EXPECT_EQ(log_lines(),
              (lines{"sta_sta_log_off: sta log off.\n", "sta_domain_socket_send: sta domain socket send.\n",
                     "sta_ubus_log_info_notify: sta_ubus_log_info_notify\n"}));
}

TEST_F(report, is_sent_as_the_record_stands) {
    collector box;
    sta->log_type = 0xabcd;
    EXPECT_EQ(sta_domain_socket_send(sta), 0);
    EXPECT_THAT(box.kinds(), ElementsAre(0xabcd));
    EXPECT_EQ(sta->log_type, 0xabcd);
}

TEST_F(report, without_a_collector_is_lost_and_the_bus_is_notified_all_the_same) {
    sta_sta_log_on(sta);
    EXPECT_EQ(log_lines(),
              (lines{"sta_sta_log_on: sta log on.\n", "sta_domain_socket_send: sta domain socket send.\n",
                     "sta_domain_socket_send: domain connect error.\n",
                     "level 3 NOTICE: no collector at /tmp/sta_server_domain: reports are lost\n",
                     "sta_sta_log_on: sta_domain_socket_send error!!!\n",
                     "sta_ubus_log_info_notify: sta_ubus_log_info_notify\n"}));
    forget_log();
    sta_sta_log_off(sta);
    EXPECT_EQ(log_lines(),
              (lines{"sta_sta_log_off: sta log off.\n", "sta_domain_socket_send: sta domain socket send.\n",
                     "sta_domain_socket_send: domain connect error.\n",
                     "sta_sta_log_off: sta_domain_socket_send error!!!\n",
                     "sta_ubus_log_info_notify: sta_ubus_log_info_notify\n"}));
}

TEST_F(report, each_one_has_a_connection_of_its_own) {
    collector box;
    for (int i = 0; i < 3; ++i) EXPECT_EQ(sta_domain_socket_send(sta), 0);
    const auto reports = box.reports();
    ASSERT_EQ(reports.size(), 3U);
    for (const auto &one : reports) EXPECT_EQ(one.image.size(), 696U);
}

TEST_F(report, of_no_record_is_refused) {
    collector box;
    EXPECT_EQ(sta_domain_socket_send(nullptr), -1);
    EXPECT_EQ(log_lines(), (lines{"sta_domain_socket_send: sta domain socket send.\n",
                                  "sta_domain_socket_send: sta is NULL.\n"}));
    sta_sta_log_on(nullptr);
    sta_sta_log_off(nullptr);
    EXPECT_TRUE(logged("sta_sta_log_on", "sta_domain_socket_send error!!!\n"));
    EXPECT_TRUE(logged("sta_sta_log_off", "sta_domain_socket_send error!!!\n"));
    EXPECT_THAT(box.reports(), IsEmpty());
}

TEST_F(report, with_a_folder_in_the_clients_place_is_not_sent_and_the_folder_stays) {
    collector box;
    write_file("/tmp/sta_client_domain/somebodys", "");
    EXPECT_EQ(sta_domain_socket_send(sta), -1);
    EXPECT_TRUE(logged("sta_domain_socket_send", "domain bind error.\n"));
    EXPECT_THAT(box.reports(), IsEmpty());
    std::filesystem::remove("/tmp/sta_client_domain/somebodys");
    EXPECT_EQ(sta_domain_socket_send(sta), -1); // also an empty one
    EXPECT_TRUE(std::filesystem::is_directory("/tmp/sta_client_domain"));
}

TEST_F(report, replaces_a_stale_file_in_the_clients_place_and_leaves_its_socket_there) {
    collector box;
    write_file("/tmp/sta_client_domain", "left behind");
    EXPECT_EQ(sta_domain_socket_send(sta), 0);
    EXPECT_EQ(box.reports().size(), 1U);
    EXPECT_TRUE(std::filesystem::is_socket("/tmp/sta_client_domain"));
}

TEST_F(report, without_a_descriptor_left_is_an_error) {
    collector box;
    rlimit usual{};
    getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit none{0, usual.rlim_max};
    const sta_info_t *reported = sta; // the sanitizer needs descriptors to look into this object
    setrlimit(RLIMIT_NOFILE, &none);
    const int result = sta_domain_socket_send(reported);
    setrlimit(RLIMIT_NOFILE, &usual);
    EXPECT_EQ(result, -1);
    EXPECT_TRUE(logged("sta_domain_socket_send", "domain socket error.\n"));
}

TEST_F(report, leaves_no_descriptor_open_whether_it_was_delivered_or_not) {
    const std::size_t before = open_descriptors();
    for (int i = 0; i < 20; ++i) sta_domain_socket_send(sta);
    {
        collector box;
        for (int i = 0; i < 20; ++i) sta_domain_socket_send(sta);
        EXPECT_EQ(box.reports().size(), 20U);
    }
    EXPECT_EQ(open_descriptors(), before);
}

class roaming : public report {
protected:
    // The same station, newly associated on `radio`; not in the table.
    sta_info_t associated(std::int32_t radio) {
        sta_info_t fresh{};
        sta_put_text(fresh.mac, "02:00:00:00:00:01");
        sta_put_text(fresh.ifname, "ath1");
        fresh.radio_id = radio;
        return fresh;
    }

    roaming() {
        sta_put_text(sta->ifname, "ath0");
        sta->radio_id = 0;
    }
    collector box;
};

TEST_F(roaming, to_the_other_radio_drops_the_known_record_there_and_reports_it_as_kind_4) {
    bool collected_before = true;
    set_driver([&](const driver_request &, std::span<std::uint8_t>) {
        collected_before = !box.reports().empty();
        return 0;
    });
    const sta_info_t fresh = associated(1);
    sta_sta_roam_send_msg(&fresh);
    ASSERT_EQ(driver_requests().size(), 1U);
    const driver_request &request = driver_requests()[0];
    EXPECT_EQ(request.cmd, 4);
    EXPECT_EQ(request.size, 24);
    EXPECT_EQ(request.ifname, "ath0");
    EXPECT_EQ(request.arg, 0);
    EXPECT_EQ(std::string(request.bytes.begin(), request.bytes.end()),
              std::string("02:00:00:00:00:01\0\0\0\0\0\0\0", 24));
    EXPECT_FALSE(collected_before) << "the driver is told first";
    const auto reports = box.reports();
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].image[296], 4);
    EXPECT_EQ(reports[0].image[304], 0); // the old radio
    EXPECT_EQ(text_at(reports[0], 136), "ath0");
    EXPECT_EQ(sta->log_type, 4);
    EXPECT_THAT(stations(), ElementsAre(sta));
    EXPECT_EQ(
        log_lines(),
        (lines{"sta_sta_roam_send_msg: sta_sta_roam_send_msg is running!!!\n",
               "sta_sta_find_usr: find user, status=2, ip=, mac=02:00:00:00:00:01.\n",
               "sta_sta_roam_send_msg: stamac = 02:00:00:00:00:01, sta_radio_id = 1, tempt_radio_id = 0\n",
               "sta_sta_delete_sta_by_roam: msg:mac = 02:00:00:00:00:01, radio = 0",
               "sta_domain_socket_send: sta domain socket send.\n"})); // and no bus notification
}

TEST_F(roaming, on_the_same_radio_is_not_reported) {
    const sta_info_t fresh = associated(0);
    sta_sta_roam_send_msg(&fresh);
    EXPECT_TRUE(logged("sta_sta_roam_send_msg",
                       "stamac = 02:00:00:00:00:01, sta_radio_id = 0, tempt_radio_id = 0\n"));
    EXPECT_THAT(driver_requests(), IsEmpty());
    EXPECT_THAT(box.reports(), IsEmpty());
}

TEST_F(roaming, of_an_unknown_station_is_not_reported) {
    sta_info_t fresh = associated(1);
    sta_put_text(fresh.mac, "02:00:00:00:00:02");
    sta_sta_roam_send_msg(&fresh);
    EXPECT_EQ(lines_of("sta_sta_roam_send_msg"),
              (lines{"sta_sta_roam_send_msg is running!!!\n", "sta can't find\n"}));
    sta_sta_roam_send_msg(nullptr);
    EXPECT_THAT(driver_requests(), IsEmpty());
    EXPECT_THAT(box.reports(), IsEmpty());
}

TEST_F(roaming, that_the_driver_refuses_is_reported_all_the_same) {
    const sta_info_t fresh = associated(1);
    sta_sta_roam_send_msg(&fresh); // the driver refuses until told otherwise
    EXPECT_TRUE(logged("sta_sta_delete_sta_by_roam", "ath0 was ext ioctl get msg fail\n"));
    EXPECT_THAT(box.kinds(), ElementsAre(4));
}

TEST_F(roaming, that_no_collector_hears_of_is_logged) {
    std::filesystem::remove("/tmp/sta_server_domain");
    const sta_info_t fresh = associated(1);
    sta_sta_roam_send_msg(&fresh);
    EXPECT_TRUE(logged("sta_sta_roam_send_msg", "sta_domain_socket_send error!!!\n"));
}

TEST_F(roaming, without_memory_asks_the_driver_nothing) {
    fail_allocation(1);
    sta_sta_delete_sta_by_roam(sta);
    EXPECT_TRUE(logged("sta_sta_delete_sta_by_roam", "malloc failed !!!"));
    EXPECT_THAT(driver_requests(), IsEmpty());
    sta_sta_delete_sta_by_roam(nullptr);
    EXPECT_THAT(driver_requests(), IsEmpty());
}

TEST_F(roaming, request_has_the_radio_little_endian_behind_20_bytes_of_mac) {
    sta_put_text(sta->mac, "0123456789abcdefghi"); // as long as the field allows
    sta->radio_id = 0x01020304;
    sta_sta_delete_sta_by_roam(sta);
    ASSERT_EQ(driver_requests().size(), 1U);
    const auto &bytes = driver_requests()[0].bytes;
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), std::string("0123456789abcdefghi\0\4\3\2\1", 24));
}

class access_point_mac : public House {
protected:
    char field[24] = "untouched untouched unt";
};

TEST_F(access_point_mac, is_taken_with_its_line_feed) {
    write_file("/proc/tk_sys/sys_mac", "02:00:00:00:00:99\n");
    sta_get_ap_mac(field);
    EXPECT_EQ(std::string(field, 20), "02:00:00:00:00:99\nd ");
}

TEST_F(access_point_mac, is_read_up_to_20_bytes) {
    write_file("/proc/tk_sys/sys_mac", "0123456789abcdefghijklmn");
    sta_get_ap_mac(field);
    EXPECT_STREQ(field, "0123456789abcdefghijunt");
}

TEST_F(access_point_mac, that_cannot_be_read_is_told_on_standard_error) {
    testing::internal::CaptureStderr();
    sta_get_ap_mac(field);
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                HasSubstr("/proc/tk_sys/sys_mac: No such file or directory"));
    EXPECT_STREQ(field, "untouched untouched unt");
    sta_get_ap_mac(nullptr);
}

} // namespace
