// The collector's image, byte for byte: a report with a value of its own in every field.
#include <gtest/gtest.h>

#include <array>
#include <string>
#include <string_view>

#include "protocol/station_report.h"

namespace {

using image_bytes = std::array<std::uint8_t, 696>;

template <std::size_t N> void put(char (&field)[N], std::string_view text) {
    ASSERT_LE(text.size(), N);
    std::memset(field, 0, N);
    text.copy(field, N);
}

void fill(station_report &sta) {
    put(sta.ssid, "lobby net");
    put(sta.ifname, "ath10");
    put(sta.mac, "02:a1:b2:c3:d4:e5");
    put(sta.ip, "192.168.100.101");
    put(sta.power, "55");
    sta.status = 0x2001;
    sta.online_clock = {0x01020304, 0x05060708};
    sta.online_ts = {1700000000, 0x15161718};
    sta.offline_ts = {-2, 0x25262728};
    sta.oltime = 0x31323334;
    sta.work_up = 0x4142434445464748;
    sta.work_down = 0x5152535455565758;
    sta.flow_rateup = -1024;
    sta.flow_ratedown = 0x65666768;
    sta.wifi_up = 0x7172737475767778;
    sta.wifi_down = 0x8182838485868788;
    sta.uplink_up = 0x9192939495969798;
    sta.uplink_down = 0xa1a2a3a4a5a6a7a8;
    sta.log_type = 0xb1b2;
    sta.restored = 0xc1;
    sta.no_backup = 0xc2;
    sta.third_flag = 0xc3;
    sta.radio_id = 0x0d0e0f10;
    sta.reason_code = 112;
    put(sta.reason, "OW_STA_DUPLICATE_AUTH");
    sta.time_delay = -7;
    sta.pkt_loserate = 0x11223344;
    sta.floornoise = -95;
    sta.utilization = 0x22334455;
    sta.maxRate = 0xfedcba98;
    put(sta.version, "1.2.3");
    sta.channel = 0x00000024;
    sta.is_reassoc = -3;
    put(sta.ap_mac, "02:00:00:00:00:99\n");
    sta.vlanid = 0x33445566;
    sta.load_uptime = 0x44556677;
    sta.roam_enable = 0xfa;
    sta.repeater_type = -4;
    sta.rssi = -65;
    put(sta.before_ip, "10.20.30.40");
    sta.dhcp_update_time = 0xdeadbeef;
    sta.single_log_up_cnt = 3;
    sta.wlanid = 10;
    sta.txper = 0xe0000001;
    sta.rxper = 0xe0000002;
    sta.txPkt = 0xe0000003;
    sta.txBcast = 0xe0000004;
    sta.txMcast = 0xe0000005;
    sta.supportSTBC = 0x60000001;
    sta.supportSGI = 0x60000002;
    sta.maxMCS = 0x60000003;
    sta.maxBW = 0x60000004;
    sta.FCAP = 0x60000005;
    sta.fromDS = 0x60000006;
    sta.toDS = 0x60000007;
    sta.cost_assoc_req = 0xf0000001;
    sta.cost_auth_req = 0xf0000002;
    sta.cost_msg2 = 0xf0000003;
    sta.cost_msg4 = 0xf0000004;
    sta.onesecrxbyte = 0xf0000005;
    sta.onesectxbyte = 0xf0000006;
    put(sta.ap_auth_req, "auth 1");
    put(sta.ap_assoc_req, "assoc 2");
    put(sta.key_start, "start 3");
    put(sta.key_msg2, "message 4");
    put(sta.key_end, "end 5");
}

// The expected image. Whatever no row names is zero.
struct row {
    std::size_t offset;
    std::string_view bytes;
};
using namespace std::string_view_literals;
constexpr row rows[] = {
    {8, "lobby net"},
    {136, "ath10"},
    {156, "02:a1:b2:c3:d4:e5"},
    {176, "192.168.100.101"},
    {193, "55"},
    {208, "\x01\x20"},
    {212, "\x04\x03\x02\x01\x08\x07\x06\x05"},
    {220, "\x00\xf1\x53\x65\x18\x17\x16\x15"sv},
    {228, "\xfe\xff\xff\xff\x28\x27\x26\x25"},
    {236, "\x34\x33\x32\x31"},
    {240, "\x48\x47\x46\x45\x44\x43\x42\x41"},
    {248, "\x58\x57\x56\x55\x54\x53\x52\x51"},
    {256, "\x00\xfc\xff\xff"sv},
    {260, "\x68\x67\x66\x65"},
    {264, "\x78\x77\x76\x75\x74\x73\x72\x71"},
    {272, "\x88\x87\x86\x85\x84\x83\x82\x81"},
    {280, "\x98\x97\x96\x95\x94\x93\x92\x91"},
    {288, "\xa8\xa7\xa6\xa5\xa4\xa3\xa2\xa1"},
    {296, "\xb2\xb1"},
    {298, "\xc1\xc2\xc3"},
    {304, "\x10\x0f\x0e\x0d"},
    {308, "\x70\x00\x00\x00"sv},
    {312, "OW_STA_DUPLICATE_AUTH"},
    {364, "\xf9\xff\xff\xff"},
    {368, "\x44\x33\x22\x11"},
    {372, "\xa1\xff\xff\xff"},
    {376, "\x55\x44\x33\x22"},
    {380, "\x98\xba\xdc\xfe"},
    {384, "1.2.3"},
    {392, "\x24\x00\x00\x00"sv},
    {396, "\xfd"},
    {397, "02:00:00:00:00:99\n"},
    {420, "\x66\x55\x44\x33"},
    {424, "\x77\x66\x55\x44"},
    {428, "\xfa\xfc\xbf"},
    {431, "10.20.30.40"},
    {448, "\xef\xbe\xad\xde"},
    {452, "\x03"},
    {456, "\x0a\x00\x00\x00"sv},
    {460, "\x01\x00\x00\xe0\x02\x00\x00\xe0\x03\x00\x00\xe0\x04\x00\x00\xe0\x05\x00\x00\xe0"sv},
    {480, "\x01\x00\x00\x60\x02\x00\x00\x60\x03\x00\x00\x60\x04\x00\x00\x60\x05\x00\x00\x60"sv},
    {500, "\x06\x00\x00\x60\x07\x00\x00\x60"sv},
    {508, "\x01\x00\x00\xf0\x02\x00\x00\xf0\x03\x00\x00\xf0\x04\x00\x00\xf0"sv},
    {524, "\x05\x00\x00\xf0\x06\x00\x00\xf0"sv},
    {532, "auth 1"},
    {564, "assoc 2"},
    {596, "start 3"},
    {628, "message 4"},
    {660, "end 5"},
};

image_bytes expected_image() {
    image_bytes image{};
    for (const row &one : rows) std::memcpy(image.data() + one.offset, one.bytes.data(), one.bytes.size());
    return image;
}

TEST(station_report, has_every_field_at_its_offset_and_zeros_everywhere_else) {
    station_report sta{};
    fill(sta);
    image_bytes image;
    image.fill(0xee);
    station_report_encode(sta, image);
    const image_bytes expected = expected_image();
    for (std::size_t i = 0; i < image.size(); ++i) ASSERT_EQ(image[i], expected[i]) << "at offset " << i;
}

TEST(station_report, of_an_empty_report_is_all_zeros) {
    const station_report sta{};
    image_bytes image;
    image.fill(0xee);
    station_report_encode(sta, image);
    EXPECT_EQ(image, image_bytes{});
}

TEST(station_report, carries_texts_that_fill_their_fields_to_the_last_byte) {
    station_report sta{};
    std::memset(sta.ssid, 's', sizeof(sta.ssid));
    std::memset(sta.ap_mac, 'm', 20);
    std::memset(sta.key_end, 'e', sizeof(sta.key_end));
    image_bytes image;
    station_report_encode(sta, image);
    EXPECT_EQ(image[8], 's');
    EXPECT_EQ(image[135], 's');
    EXPECT_EQ(image[136], 0); // the interface's name
    EXPECT_EQ(image[396], 0);
    EXPECT_EQ(image[397], 'm');
    EXPECT_EQ(image[416], 'm');
    EXPECT_EQ(image[417], 0);
    EXPECT_EQ(image[660], 'e');
    EXPECT_EQ(image[691], 'e');
    EXPECT_EQ(image[692], 0); // padding
}

TEST(station_report, read_back_gives_the_report_again) {
    station_report sta{};
    std::memset(&sta, 0xee, sizeof(sta)); // the earlier content is gone
    station_report_decode(expected_image(), sta);
    EXPECT_STREQ(sta.ssid, "lobby net");
    EXPECT_EQ(sta.status, 0x2001);
    EXPECT_EQ(sta.online_ts.sec, 1700000000);
    EXPECT_EQ(sta.offline_ts.sec, -2);
    EXPECT_EQ(sta.flow_rateup, -1024);
    EXPECT_EQ(sta.uplink_down, 0xa1a2a3a4a5a6a7a8U);
    EXPECT_EQ(sta.is_reassoc, -3);
    EXPECT_EQ(sta.rssi, -65);
    EXPECT_STREQ(sta.key_end, "end 5");
    image_bytes again;
    station_report_encode(sta, again);
    EXPECT_EQ(again, expected_image());
}

TEST(station_report, read_from_a_foreign_one_has_terminated_texts_only) {
    image_bytes image;
    image.fill('x');
    station_report sta{};
    station_report_decode(image, sta);
    EXPECT_EQ(strnlen(sta.ssid, sizeof(sta.ssid)), 127U);
    EXPECT_EQ(strnlen(sta.ifname, sizeof(sta.ifname)), 19U);
    EXPECT_EQ(strnlen(sta.mac, sizeof(sta.mac)), 19U);
    EXPECT_EQ(strnlen(sta.ip, sizeof(sta.ip)), 16U);
    EXPECT_EQ(strnlen(sta.power, sizeof(sta.power)), 10U);
    EXPECT_EQ(strnlen(sta.reason, sizeof(sta.reason)), 51U);
    EXPECT_EQ(strnlen(sta.version, sizeof(sta.version)), 7U);
    EXPECT_EQ(strnlen(sta.ap_mac, sizeof(sta.ap_mac)), 22U);
    EXPECT_EQ(strnlen(sta.before_ip, sizeof(sta.before_ip)), 16U);
    EXPECT_EQ(strnlen(sta.key_end, sizeof(sta.key_end)), 31U);
}

} // namespace
