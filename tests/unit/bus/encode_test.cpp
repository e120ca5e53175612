// Stations as bus messages: every member's name, place, type and value.
#include <gmock/gmock.h>

#include "support/house.h"
#include "support/members.h"

#include "bus/station_list.h"
#include "model/table.h"
#include "outputs/bus_link.h"
#include "outputs/station_message.h"
#include "support/driver_tables.h"
#include "tools/memory.h"
#include "tools/text.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using lines = std::vector<std::string>;

constexpr const char *first_mac = "02:00:00:00:00:01";
constexpr const char *second_mac = "02:00:00:00:00:02";
constexpr const char *third_mac = "02:00:00:00:00:03";

class encoding : public House {
protected:
    encoding() { blob_buf_init(&buf, 0); }
    ~encoding() override { blob_buf_free(&buf); }

    // A station with a value of its own in every field that is shown.
    static sta_info_t *full_station() {
        sta_info_t *sta = put_station(first_mac);
        sta_put_text(sta->ssid, "lobby");
        sta_put_text(sta->ip, "10.0.0.1");
        sta->name = sta_strdup("phone");
        sta_put_text(sta->power, "55");
        sta->status = 0x8001;
        sta->online_ts = {-1, 99};
        sta->oltime = -8;
        sta->offline_ts = {1700000009, 98};
        sta->wifi_up = 0xffffffffffffffff;
        sta->wifi_down = 11;
        sta->uplink_up = 12;
        sta->uplink_down = 13;
        sta->flow_rateup = -14;
        sta->flow_ratedown = 15;
        sta->log_type = 65535;
        sta->radio_id = -17;
        sta->reason_code = 112;
        sta_put_text(sta->reason, "OW_STA_DUPLICATE_AUTH");
        sta->time_delay = -18;
        sta->pkt_loserate = 19;
        sta->floornoise = -20;
        sta->utilization = 21;
        sta_put_text(sta->version, "1.2.3");
        sta->maxRate = 0xfffffff0;
        sta->channel = 24;
        sta->is_reassoc = -1;
        sta_put_text(sta->ap_mac, "02:00:00:00:00:99\n");
        sta->vlanid = 27;
        sta->roam_enable = 255;
        sta->repeater_type = -29;
        sta_put_text(sta->before_ip, "10.0.0.9");
        sta->wlanid = 30;
        sta->txper = 0xffffffff;
        sta->rxper = 32;
        sta->txPkt = 0xffffffff;
        sta->txBcast = 34;
        sta->txMcast = 35;
        sta->supportSTBC = 36;
        sta->supportSGI = 37;
        sta->maxMCS = 38;
        sta->maxBW = 39;
        sta->FCAP = 40;
        sta->fromDS = 41;
        sta->toDS = 42;
        sta->cost_assoc_req = 0xfffffff3;
        sta->cost_auth_req = 44;
        sta->cost_msg2 = 45;
        sta->cost_msg4 = 46;
        sta->onesecrxbyte = 47;
        sta->onesectxbyte = 48;
        sta_put_text(sta->ap_auth_req, "auth");
        sta_put_text(sta->ap_assoc_req, "assoc");
        sta_put_text(sta->key_start, "start");
        sta_put_text(sta->key_msg2, "message");
        sta_put_text(sta->key_end, "end");
        sta_put_text(sta->ifname, "ath0");
        return sta;
    }

    lines members() { return members_of(buf.head); }
    void restart() { blob_buf_init(&buf, 0); }
    blob_buf buf{};
};

TEST_F(encoding, of_a_station_in_the_list_has_54_members) {
    ubus_server_get_all_online_sta_info(&buf, full_station());
    const lines expected = {
        "ssid STRING lobby",
        "mac STRING 02:00:00:00:00:01",
        "ip STRING 10.0.0.1",
        "name STRING phone",
        "power STRING 55",
        "status INT16 -32767",
        "online_ts INT64 -1",
        "oltime INT32 -8",
        "offline_ts INT64 1700000009",
        "wifi_up_cnt INT64 -1",
        "wifi_down_cnt INT64 11",
        "uplink_up_cnt INT64 12",
        "uplink_down_cnt INT64 13",
        "flowup_rate_cnt INT32 -14",
        "flowdown_rate_cnt INT32 15",
        "log_type INT32 65535",
        "radio_id INT32 -17",
        "time_delay_cnt INT32 -18",
        "pkt_loserate_cnt INT32 19",
        "floornoise_cnt INT32 -20",
        "utilization_cnt INT32 21",
        "version STRING 1.2.3",
        "maxRate INT32 -16",
        "channel INT32 24",
        "is_reassoc INT32 -1",
        "ap_mac STRING 02:00:00:00:00:99\n",
        "vlanid INT32 27",
        "roam_enable INT32 255",
        "repeater_type INT32 -29",
        "wlanid INT32 30",
        "txper INT32 -1",
        "rxper INT32 32",
        "txPkt INT64 4294967295",
        "txBcast INT64 34",
        "txMcast INT64 35",
        "supportSTBC INT32 36",
        "supportSGI INT32 37",
        "maxMCS INT32 38",
        "maxBW INT32 39",
        "FCAP INT32 40",
        "fromDS INT32 41",
        "toDS INT32 42",
        "cost_assoc_req INT64 4294967283",
        "cost_auth_req INT64 44",
        "cost_msg2 INT64 45",
        "cost_msg4 INT64 46",
        "onesecrxbyte INT64 47",
        "onesectxbyte INT64 48",
        "ap_auth_req STRING auth",
        "ap_assoc_req STRING assoc",
        "key_end STRING end",
        "key_start STRING start",
        "key_msg2 STRING message",
        "ssid_ifname STRING ath0",
    };
    EXPECT_EQ(expected.size(), 54U);
    EXPECT_EQ(members(), expected);
    const lines said = lines_of("ubus_server_get_all_online_sta_info");
    ASSERT_EQ(said.size(), 4U);
    EXPECT_EQ(
        said[0],
        "mac 02:00:00:00:00:01, ip 10.0.0.1, name phone, ssid lobby, power 55, stauts 32769, online_ts -1, "
        "oltime -8, offline_ts 1700000009, radio_id -17, ifname ath0\n");
}

// Writes the message anew with the library, member by member.
std::string written_by_the_library(const blob_attr *message) {
    blob_buf again{};
    blob_buf_init(&again, 0);
    blob_attr *member = nullptr;
    std::size_t rest = 0;
    blobmsg_for_each_attr (member, message, rest)
        blobmsg_add_field(&again, blobmsg_type(member), blobmsg_name(member), blobmsg_data(member),
                          static_cast<unsigned>(blobmsg_data_len(member)));
    std::string bytes(reinterpret_cast<const char *>(again.head), blob_pad_len(again.head));
    blob_buf_free(&again);
    return bytes;
}

TEST_F(encoding, is_byte_for_byte_what_the_library_writes) {
    sta_info_t *sta = full_station();
    for (const std::size_t length : {0U, 1U, 2U, 3U, 4U, 120U, 1900U, 2020U, 5000U}) {
        sta_free(sta->name);
        sta->name = sta_strdup(times(length, 'n').c_str());
        sta_put_text(sta->ssid, times(length, 's').c_str());
        sta_put_text(sta->key_end, times(length, 'k').c_str());
        for (const bool listed : {true, false}) {
            restart();
            blobmsg_add_string(&buf, "x", "what a station follows"); // 23 bytes and their gap
            if (listed)
                ubus_server_get_all_online_sta_info(&buf, sta);
            else
                sta_encode_json_sta_log_table_info(&buf, sta);
            EXPECT_EQ(members().size(), listed ? 55U : 58U) << length;
            const std::string bytes(reinterpret_cast<const char *>(buf.head), blob_pad_len(buf.head));
            EXPECT_EQ(bytes, written_by_the_library(buf.head)) << length;
        }
    }
}

TEST_F(encoding, of_a_station_in_the_notification_has_57_members) {
    sta_info_t *sta = full_station();
    sta->maxRate = 866;
    sta_encode_json_sta_log_table_info(&buf, sta);
    const lines expected = {
        "ssid STRING lobby",
        "mac STRING 02:00:00:00:00:01",
        "ip STRING 10.0.0.1",
        "name STRING phone",
        "power STRING 55",
        "status INT16 -32767",
        "online_ts INT64 -1",
        "oltime INT32 -8",
        "offline_ts INT64 1700000009",
        "wifi_up_cnt INT64 -1",
        "wifi_down_cnt INT64 11",
        "uplink_up_cnt INT64 12",
        "uplink_down_cnt INT64 13",
        "flowup_rate_cnt INT32 -14",
        "flowdown_rate_cnt INT32 15",
        "log_type INT32 65535",
        "radio_id INT32 -17",
        "off_reason_code INT32 112",
        "off_reason STRING OW_STA_DUPLICATE_AUTH",
        "time_delay_cnt INT32 -18",
        "pkt_loserate_cnt INT32 19",
        "floornoise_cnt INT32 -20",
        "utilization_cnt INT32 21",
        "version STRING 1.2.3",
        "channel INT32 24",
        "is_reassoc INT32 -1",
        "ap_mac STRING 02:00:00:00:00:99\n",
        "vlanid INT32 27",
        "roam_enable INT32 255",
        "before_ip STRING 10.0.0.9",
        "wlanid INT32 30",
        "txper INT32 -1",
        "rxper INT32 32",
        "txPkt INT64 4294967295",
        "txBcast INT64 34",
        "txMcast INT64 35",
        "supportSTBC INT32 36",
        "supportSGI INT32 37",
        "maxMCS INT32 38",
        "maxBW INT32 39",
        "FCAP INT32 40",
        "fromDS INT32 41",
        "toDS INT32 42",
        "cost_assoc_req INT64 4294967283",
        "cost_auth_req INT64 44",
        "cost_msg2 INT64 45",
        "cost_msg4 INT64 46",
        "onesecrxbyte INT64 47",
        "onesectxbyte INT64 48",
        "ap_auth_req STRING auth",
        "ap_assoc_req STRING assoc",
        "key_end STRING end",
        "key_start STRING start",
        "key_msg2 STRING message",
        "maxRate INT16 866",
        "ssid_ifname STRING ath0",
        "repeater_type INT32 -29",
    };
    EXPECT_EQ(expected.size(), 57U);
    EXPECT_EQ(members(), expected);
    const lines said = lines_of("sta_encode_json_sta_log_table_info");
    ASSERT_EQ(said.size(), 4U);
    EXPECT_EQ(said[1],
              "wifi_up 18446744073709551615, wifi_down 11, flow_rateup -14, flow_ratedown 15, uplink_up 12, "
              "uplink_down 13, time_delay -18, pkt_loserate 19, log_type 65535 reason_code 112\n");
}

TEST_F(encoding, leaves_out_a_missing_name_and_an_empty_interface) {
    sta_info_t *sta = put_station(first_mac);
    ubus_server_get_all_online_sta_info(&buf, sta);
    EXPECT_EQ(members().size(), 52U);
    EXPECT_THAT(members(), Not(Contains(StartsWith("name "))));
    EXPECT_THAT(members(), Not(Contains(StartsWith("ssid_ifname "))));
    EXPECT_THAT(lines_of("ubus_server_get_all_online_sta_info")[0],
                testing::HasSubstr("name NULL, ssid net"));
    EXPECT_THAT(lines_of("ubus_server_get_all_online_sta_info")[0], testing::EndsWith("ifname NULL\n"));
    restart();
    sta_encode_json_sta_log_table_info(&buf, sta);
    EXPECT_EQ(members().size(), 55U);
    EXPECT_EQ(members().back(), "repeater_type INT32 0");
    sta->name = sta_strdup("");
    restart();
    ubus_server_get_all_online_sta_info(&buf, sta);
    EXPECT_THAT(members(), Contains("name STRING "));
}

TEST_F(encoding, of_a_text_that_fills_its_field_ends_with_the_field) {
    sta_info_t *sta = put_station(first_mac);
    std::memset(sta->ap_mac, 'm', 20);
    ubus_server_get_all_online_sta_info(&buf, sta);
    EXPECT_THAT(members(), Contains("ap_mac STRING " + times(20, 'm')));
}

TEST_F(encoding, notification_takes_a_rate_above_2000_out_of_the_record) {
    sta_info_t *sta = put_station(first_mac);
    for (const auto &[rate, shown] : std::vector<std::pair<std::uint32_t, unsigned>>{
             {2000, 2000}, {2001, 0}, {3000, 0}, {0xffffffff, 0}, {0, 0}}) {
        sta->maxRate = rate;
        restart();
        sta_encode_json_sta_log_table_info(&buf, sta);
        EXPECT_THAT(members(), Contains("maxRate INT16 " + std::to_string(shown)));
        EXPECT_EQ(sta->maxRate, shown);
    }
    sta->maxRate = 3000;
    restart();
    ubus_server_get_all_online_sta_info(&buf, sta); // the list shows it as it is
    EXPECT_THAT(members(), Contains("maxRate INT32 3000"));
    EXPECT_EQ(sta->maxRate, 3000U);
}

TEST_F(encoding, without_buffer_or_record_appends_nothing) {
    sta_info_t *sta = put_station(first_mac);
    ubus_server_get_all_online_sta_info(nullptr, sta);
    ubus_server_get_all_online_sta_info(&buf, nullptr);
    sta_encode_json_sta_log_table_info(nullptr, sta);
    sta_encode_json_sta_log_table_info(&buf, nullptr);
    EXPECT_THAT(members(), IsEmpty());
    EXPECT_THAT(log_lines(), IsEmpty());
}

class driver_entries : public encoding {
protected:
    static table_entry entry() {
        return table_entry("02:ab:00:00:00:01")
            .basic_text(16, "lobby")
            .basic_text(49, "ath0")
            .basic32(80, -95)
            .basic32(84, 33)
            .basic32(88, 866)
            .basic32(92, 10)
            .basic32(96, -20)
            .basic32(120, 36)
            .basic32(128, 77)
            .basic8(132, -1)
            .basic8(133, -128)
            .basic8(134, 5)
            .basic8(135, 0)
            .basic32(140, 1);
    }
    // The table as it is in memory: header and basic entries.
    static std::vector<std::uint8_t> table(const std::vector<table_entry> &entries) {
        std::vector<std::uint8_t> bytes(16);
        bytes[0] = static_cast<std::uint8_t>(entries.size());
        for (const table_entry &one : entries) bytes.insert(bytes.end(), one.basic.begin(), one.basic.end());
        return bytes;
    }
};

TEST_F(driver_entries, have_12_texts_each) {
    const auto list = table({entry(), table_entry(second_mac)});
    EXPECT_EQ(ubus_server_get_wlan_online_sta_info(&buf, list.data(), nullptr), 2U);
    EXPECT_EQ(members(), (lines{"TABLE",
                                "  mac STRING 02:ab:00:00:00:01",
                                "  ssid STRING lobby",
                                "  ssid_ifname STRING ath0",
                                "  channel STRING 36",
                                "  rxrate STRING 10M",
                                "  txrate STRING -20M",
                                "  rssi STRING -1,-128,5,0",
                                "  maxRate STRING 866M",
                                "  oltime STRING 77",
                                "  utilization_cnt STRING 33",
                                "  floornoise_cnt STRING -95",
                                "  psm STRING 1",
                                "TABLE",
                                "  mac STRING 02:00:00:00:00:02",
                                "  ssid STRING ",
                                "  ssid_ifname STRING ",
                                "  channel STRING 0",
                                "  rxrate STRING 0M",
                                "  txrate STRING 0M",
                                "  rssi STRING 0,0,0,0",
                                "  maxRate STRING 0M",
                                "  oltime STRING 0",
                                "  utilization_cnt STRING 0",
                                "  floornoise_cnt STRING 0",
                                "  psm STRING 0"}));
    EXPECT_EQ(log_lines(), (lines{"ubus_server_get_wlan_online_sta_info: rssi=-1,-128,5,0 \n",
                                  "ubus_server_get_wlan_online_sta_info: rssi=0,0,0,0 \n"}));
}

TEST_F(driver_entries, can_be_asked_for_by_mac) {
    const auto list = table({entry(), table_entry(second_mac)});
    EXPECT_EQ(ubus_server_get_wlan_online_sta_info(&buf, list.data(), second_mac), 1U);
    EXPECT_EQ(members().at(1), "  mac STRING 02:00:00:00:00:02");
    restart();
    EXPECT_EQ(ubus_server_get_wlan_online_sta_info(&buf, list.data(), "02:AB:00:00:00:01"), 0U);
    EXPECT_THAT(members(), IsEmpty());
}

TEST_F(driver_entries, have_texts_that_end_with_their_fields) {
    const auto list = table({entry().basic_text(16, times(33, 's')).basic_text(49, times(23, 'i'))});
    ubus_server_get_wlan_online_sta_info(&buf, list.data(), nullptr);
    EXPECT_EQ(members().at(2), "  ssid STRING " + times(33, 's'));
    EXPECT_EQ(members().at(3), "  ssid_ifname STRING " + times(23, 'i'));
}

TEST_F(driver_entries, without_buffer_or_list_are_none) {
    const auto list = table({entry()});
    EXPECT_EQ(ubus_server_get_wlan_online_sta_info(nullptr, list.data(), nullptr), 0U);
    EXPECT_EQ(ubus_server_get_wlan_online_sta_info(&buf, nullptr, nullptr), 0U);
    EXPECT_EQ(log_lines(), lines(2, "ubus_server_get_wlan_online_sta_info: param is null!!\n"));
}

class station_list : public encoding {
protected:
    static sta_info_t *station_on(const char *mac, std::int32_t radio, const char *ifname) {
        sta_info_t *sta = put_station(mac);
        sta->radio_id = radio;
        sta_put_text(sta->ifname, ifname);
        return sta;
    }
    lines answer(const char *param, const char *mac = nullptr, const char *wlan = nullptr) {
        restart();
        sta_encode_json_sta_array_info(&buf, param, mac, wlan);
        EXPECT_EQ(pthread_mutex_trylock(&g_sta_server_mutex), 0) << "the mutex is free again";
        pthread_mutex_unlock(&g_sta_server_mutex);
        return members();
    }
    // The MACs listed, and the count.
    lines listed(const char *mac = nullptr, const char *wlan = nullptr) {
        lines short_form;
        for (const std::string &line : answer("online", mac, wlan)) {
            if (line.starts_with("    mac STRING ")) short_form.push_back(line.substr(15));
            if (line.starts_with("count")) short_form.push_back(line);
        }
        return short_form;
    }
};

TEST_F(station_list, of_nobody_is_an_empty_array_and_a_count_of_text) {
    EXPECT_EQ(answer("online"), (lines{"online_list ARRAY", "count STRING 0"}));
    EXPECT_EQ(log_lines(), (lines{"sta_encode_json_sta_array_info: encode start\n",
                                  "sta_encode_json_sta_array_info: encode end\n"}));
}

TEST_F(station_list, of_any_other_word_is_only_the_count) {
    put_station(first_mac, sta_status_online);
    for (const char *param : {"all", "Online", "online ", ""})
        EXPECT_EQ(answer(param), lines{"count STRING 0"});
    forget_log();
    EXPECT_EQ(answer(nullptr), lines{});
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(station_list, holds_every_station_with_a_mac_whatever_its_status) {
    put_station(first_mac, sta_status_online);
    put_station("");
    put_station(second_mac);
    EXPECT_EQ(listed(), (lines{first_mac, second_mac, "count STRING 2"}));
    const lines all = answer("online");
    EXPECT_EQ(all[0], "online_list ARRAY");
    EXPECT_EQ(all[1], "  TABLE");
    EXPECT_EQ(all[2], "    ssid STRING net");
}

TEST_F(station_list, can_be_asked_for_one_mac) {
    put_station(first_mac);
    put_station(second_mac);
    EXPECT_EQ(listed(second_mac), (lines{second_mac, "count STRING 1"}));
    EXPECT_EQ(listed(third_mac), lines{"count STRING 0"});
    EXPECT_EQ(listed("02:00:00:00:00:0"), lines{"count STRING 0"});
}

TEST_F(station_list, shows_fresh_figures_and_the_time_until_now) {
    sta_info_t *sta = station_on(first_mac, 0, "ath0");
    sta->online_clock.sec = sta_monotonic_seconds() - 100;
    driver_lists({{"ath0", {table_entry(first_mac).basic32(120, 36).extended32(0, 7)}}});
    const lines all = answer("online");
    EXPECT_THAT(all, Contains("    channel INT32 36"));
    EXPECT_THAT(all, Contains("    txper INT32 7"));
    EXPECT_THAT(sta->oltime, testing::AllOf(testing::Ge(100), testing::Le(102)));
    EXPECT_THAT(all, Contains("    oltime INT32 " + std::to_string(sta->oltime)));
    EXPECT_EQ(sta->channel, 36);
    EXPECT_EQ(driver_requests().at(1).bytes.at(4), 3);
}

TEST_F(station_list, asks_the_driver_once_per_radio_even_when_it_refuses) {
    for (const char *mac : {first_mac, second_mac}) station_on(mac, 0, "");
    for (const char *mac : {third_mac, "02:00:00:00:00:04"}) station_on(mac, 1, "ath1");
    const std::uint32_t before = mem_total_cnt;
    EXPECT_EQ(listed().back(), "count STRING 4");
    EXPECT_THAT(driver_commands(), ElementsAre(5, 5));
    driver_lists({{"ath1", {table_entry(third_mac)}}});
    EXPECT_EQ(listed().back(), "count STRING 4");
    EXPECT_THAT(driver_commands(), ElementsAre(5, 5, 5, 5, 1));
    EXPECT_EQ(mem_total_cnt, before);
}

TEST_F(station_list, holds_a_station_of_a_third_radio_too) {
    station_on(first_mac, 2, "ath2");
    EXPECT_EQ(listed(), (lines{first_mac, "count STRING 1"}));
    EXPECT_TRUE(logged("sta_encode_json_sta_array_info", "sta:02:00:00:00:00:01 radio is inexistence \n"));
    EXPECT_THAT(driver_requests(), IsEmpty());
}

TEST_F(station_list, of_the_drivers_entries_has_each_radio_once) {
    sta_info_t *sta = station_on(first_mac, 0, "ath0");
    station_on(second_mac, 0, "ath0");
    station_on(third_mac, 1, "ath1");
    station_on("02:00:00:00:00:04", 2, "ath2");
    sta->oltime = -5;
    driver_lists({{"ath0", {table_entry("02:00:00:00:00:0a").basic32(120, 36), table_entry(first_mac)}},
                  {"ath1", {table_entry("02:00:00:00:00:0b")}}});
    EXPECT_EQ(listed(nullptr, "stainfo"),
              (lines{"02:00:00:00:00:0a", first_mac, "02:00:00:00:00:0b", "count STRING 3"}));
    EXPECT_THAT(driver_commands(), ElementsAre(5, 1, 5, 1));
    EXPECT_EQ(sta->oltime, -5); // stations are not touched
    EXPECT_THAT(lines_of("sta_encode_json_sta_array_info"), Not(Contains(testing::HasSubstr("inexistence"))));
}

TEST_F(station_list, of_the_drivers_entries_can_be_asked_for_one_mac) {
    station_on(first_mac, 0, "ath0");
    station_on(second_mac, 0, "ath0");
    driver_lists({{"ath0", {table_entry(first_mac), table_entry(second_mac)}}});
    EXPECT_EQ(listed(second_mac, "stainfo"), (lines{second_mac, "count STRING 1"}));
    const std::size_t asked = driver_requests().size();
    EXPECT_EQ(answer("online", third_mac, "stainfo"), (lines{"online_list ARRAY", "count STRING 0"}));
    EXPECT_EQ(driver_requests().size(), asked);
}

TEST_F(station_list, with_any_other_word_for_the_entries_is_of_stations) {
    station_on(first_mac, 0, "ath0");
    driver_lists({{"ath0", {table_entry(second_mac)}}});
    for (const char *word : {"Stainfo", "stainfo ", "x"}) EXPECT_EQ(listed(nullptr, word).at(0), first_mac);
}

TEST_F(station_list, of_entries_without_a_table_is_empty) {
    station_on(first_mac, 0, "ath0");
    EXPECT_EQ(listed(nullptr, "stainfo"), lines{"count STRING 0"});
    EXPECT_THAT(lines_of("ubus_server_get_wlan_online_sta_info"), IsEmpty());
    set_driver([](const driver_request &request, std::span<std::uint8_t> bytes) {
        std::copy_n("-3", 2, bytes.begin());
        return request.cmd == 5 ? 0 : -1;
    });
    EXPECT_EQ(listed(nullptr, "stainfo"), lines{"count STRING 0"}); // a negative count is not 0 either
    EXPECT_EQ(lines_of("ubus_server_get_wlan_online_sta_info"), lines{"param is null!!\n"});
}

TEST_F(station_list, believes_no_more_entries_than_were_fetched) {
    station_on(first_mac, 0, "ath0");
    set_driver([](const driver_request &request, std::span<std::uint8_t> bytes) {
        if (request.cmd == 5)
            bytes[0] = '1';
        else
            std::fill_n(bytes.begin(), 4, 0x7f);
        return 0;
    });
    EXPECT_EQ(listed(nullptr, "stainfo"), (lines{"00:00:00:00:00:00", "count STRING 1"}));
    set_driver([](const driver_request &request, std::span<std::uint8_t> bytes) {
        bytes[0] = request.cmd == 5 ? '2' : 1; // fewer
        return 0;
    });
    EXPECT_EQ(listed(nullptr, "stainfo"), (lines{"00:00:00:00:00:00", "count STRING 1"}));
}

TEST_F(station_list, is_never_cut_when_memory_runs_out) {
    static int grown;
    static int fails_at;
    for (int i = 0; i < 100; ++i) put_station(("02:00:00:00:01:" + std::to_string(i)).c_str());
    restart();
    static bool (*usual)(blob_buf *, int);
    usual = buf.grow;
    const auto grow = [](blob_buf *mine, int length) { return ++grown != fails_at && usual(mine, length); };
    bool failed = true;
    for (fails_at = 1; failed; ++fails_at) {
        grown = 0;
        blob_buf_free(&buf);
        buf.grow = grow;
        if (blob_buf_init(&buf, 0) != 0) continue;
        sta_encode_json_sta_array_info(&buf, "online", nullptr, nullptr);
        failed = grown >= fails_at;
        if (failed)
            EXPECT_FALSE(sta_bus_can_carry(&buf)) << "after growth " << fails_at;
        else
            EXPECT_EQ(members().back(), "count STRING 100");
    }
    EXPECT_GT(fails_at, 4);
}

TEST_F(station_list, too_long_for_the_bus_is_given_up) {
    for (int i = 0; i < 2000; ++i) {
        char mac[18];
        std::snprintf(mac, sizeof(mac), "02:00:00:00:%02x:%02x", (i >> 8) & 0xff, i & 0xff);
        put_station(mac);
    }
    restart();
    sta_encode_json_sta_array_info(&buf, "online", nullptr, nullptr);
    EXPECT_FALSE(sta_bus_can_carry(&buf));
    EXPECT_EQ(pthread_mutex_trylock(&g_sta_server_mutex), 0);
    pthread_mutex_unlock(&g_sta_server_mutex);
}

using station_count = encoding;

TEST_F(station_count, is_a_number_of_normal_stations_repeaters_or_all) {
    put_station(first_mac);
    put_station(second_mac)->repeater_type = 1;
    put_station(third_mac)->repeater_type = 2; // no repeater
    put_station("")->repeater_type = 1;        // without a MAC
    for (const auto &[selector, count] : std::vector<std::pair<const char *, int>>{
             {"normal_sta", 2}, {"repeater_sta", 1}, {"all", 3}, {"", 3}, {nullptr, 3}, {"Normal_sta", 3}}) {
        restart();
        EXPECT_EQ(sta_encode_json_sta_count_info(&buf, selector), 0);
        EXPECT_EQ(members(), lines{"count INT32 " + std::to_string(count)});
    }
    EXPECT_THAT(driver_requests(), IsEmpty());
}

} // namespace
