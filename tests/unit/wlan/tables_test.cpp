// The driver's station table: asking for it, and reading a station's figures out of it.
#include <climits>
#include <gmock/gmock.h>

#include "support/house.h"

#include "inputs/network.h"
#include "model/table.h"
#include "support/driver_tables.h"
#include "tools/memory.h"
#include "tools/text.h"
#include "wlan/tables.h"

namespace {

using testing::ElementsAre;
using lines = std::vector<std::string>;
using bytes = std::vector<std::uint8_t>;

constexpr const char *first_mac = "02:00:00:00:00:01";
constexpr const char *second_mac = "02:00:00:00:00:02";

class table_fetch : public House {
protected:
    ~table_fetch() override { sta_free(table); }
    void count_is(const std::string &text) {
        set_driver([text](const driver_request &request, std::span<std::uint8_t> answer) {
            if (request.cmd == 5) std::copy(text.begin(), text.end(), answer.begin());
            return 0;
        });
    }
    sta_info_t *sta = put_station(first_mac);
    std::uint8_t *table = nullptr;
};

TEST_F(table_fetch, of_two_stations_with_both_sections_asks_for_784_bytes) {
    count_is("2");
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 3), 2);
    ASSERT_NE(table, nullptr);
    ASSERT_EQ(driver_requests().size(), 2U);
    const driver_request &count = driver_requests()[0];
    EXPECT_EQ(count.cmd, 5);
    EXPECT_EQ(count.size, 1024);
    EXPECT_EQ(count.ifname, "ath0");
    EXPECT_EQ(count.arg, 0);
    EXPECT_EQ(count.bytes, bytes(1024, 0));
    const driver_request &request = driver_requests()[1];
    EXPECT_EQ(request.cmd, 1);
    EXPECT_EQ(request.size, 784);
    EXPECT_EQ(request.ifname, "ath0");
    EXPECT_EQ(request.arg, 0);
    bytes expected(784, 0);
    expected[0] = 2; // entries
    expected[4] = 3; // sections
    EXPECT_EQ(request.bytes, expected);
}

TEST_F(table_fetch, of_two_stations_with_the_basic_section_asks_for_336_bytes) {
    count_is("2");
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 1), 2);
    ASSERT_EQ(driver_requests().size(), 2U);
    bytes expected(336, 0);
    expected[0] = 2;
    expected[4] = 1;
    EXPECT_EQ(driver_requests()[1].bytes, expected);
}

TEST_F(table_fetch, of_one_station_shrinks_the_buffer_and_clears_the_count_text) {
    count_is("1 station");
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 1), 1);
    bytes expected(176, 0);
    expected[0] = 1;
    expected[4] = 1;
    EXPECT_EQ(driver_requests().at(1).bytes, expected);
}

TEST_F(table_fetch, takes_a_count_that_fills_all_1024_bytes) {
    count_is(times(1023, ' ') + "7");
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 1), 7);
    EXPECT_EQ(driver_requests().at(1).size, 16 + 7 * 160);
    count_is(times(1024, '0'));
    sta_free(table);
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 1), 0);
}

TEST_F(table_fetch, that_gets_no_count_gives_0) {
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 3), 0);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(log_lines(), lines{"sta_get_ioctl_stainfo: ifname:ath0 get sta num fail \n"});
    EXPECT_THAT(driver_commands(), ElementsAre(5));
}

TEST_F(table_fetch, of_a_count_below_1_gives_that_count_and_no_table) {
    for (const auto &[text, number] :
         std::vector<std::pair<std::string, int>>{{"0", 0}, {"-4", -4}, {"no", 0}, {"", 0}}) {
        count_is(text);
        forget_log();
        EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 3), number);
        EXPECT_EQ(table, nullptr);
        EXPECT_EQ(log_lines(),
                  lines{"sta_get_ioctl_stainfo: get_sta_num=" + std::to_string(number) + " is invalid \n"});
    }
    EXPECT_THAT(driver_commands(), ElementsAre(5, 5, 5, 5));
}

TEST_F(table_fetch, that_the_driver_refuses_gives_the_count_without_a_table) {
    set_driver([](const driver_request &request, std::span<std::uint8_t> answer) {
        answer[0] = '3';
        return request.cmd == 5 ? 0 : 22;
    });
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 3), 3);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(log_lines(), lines{"sta_get_ioctl_stainfo: ath0 was ext ioctl get msg fail\n"});
}

TEST_F(table_fetch, of_an_absurd_count_asks_for_nothing_and_gives_the_count) {
    count_is("2147483647");
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 3), INT_MAX);
    EXPECT_EQ(table, nullptr);
    EXPECT_THAT(driver_commands(), ElementsAre(5));
    EXPECT_TRUE(logged("sta_get_ioctl_stainfo", "ath0 was ext ioctl get msg fail\n"));
}

const std::string unbelievable =
    "level 3 NOTICE: the driver counts 8193 stations on ath0, more than 8192: its table is not read\n";

TEST_F(table_fetch, of_more_stations_than_there_can_be_is_refused_and_said) {
    count_is("8192"); // the earlier error has been logged already
    sta_get_ioctl_stainfo(sta, &table, "ath0", 3);
    sta_free(table);
    forget_log();
    const std::size_t asked = driver_commands().size();
    count_is("8193");
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 3), 8193);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(driver_commands().size(), asked + 1);
    EXPECT_EQ(driver_commands().back(), 5);
    EXPECT_THAT(log_lines(),
                ElementsAre(unbelievable, "sta_get_ioctl_stainfo: ath0 was ext ioctl get msg fail\n"));
}

TEST_F(table_fetch, of_more_stations_than_there_can_be_is_said_once) {
    for (const char *count : {"8192", "8193", "8193", "8192", "8193"}) {
        count_is(count);
        sta_get_ioctl_stainfo(sta, &table, "ath0", 1);
        sta_free(table);
    }
    table = nullptr;
    const lines said = log_lines();
    EXPECT_EQ(std::count(said.begin(), said.end(), unbelievable), 2);
}

TEST_F(table_fetch, of_more_stations_than_there_can_be_is_said_once_beside_a_radio_that_is_right) {
    for (const char *ifname : {"ath0", "ath1"}) { // the earlier error has been logged already
        count_is("8192");
        sta_get_ioctl_stainfo(sta, &table, ifname, 1);
        sta_free(table);
    }
    forget_log();
    for (int i = 0; i < 3; ++i) {
        count_is("8193");
        sta_get_ioctl_stainfo(sta, &table, "ath0", 1);
        count_is("1");
        sta_get_ioctl_stainfo(sta, &table, "ath1", 1);
        sta_free(table);
    }
    table = nullptr;
    const lines said = log_lines();
    EXPECT_EQ(std::count(said.begin(), said.end(), unbelievable), 1);
}

TEST_F(table_fetch, of_as_many_stations_as_the_device_may_have_is_asked_for) {
    sta_max_num = 9000;
    count_is("9000");
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 1), 9000);
    EXPECT_NE(table, nullptr);
    EXPECT_EQ(driver_requests().at(1).size, 16 + 9000 * 160);
}

TEST_F(table_fetch, as_a_whole_list_of_more_stations_than_there_can_be_is_no_answer) {
    count_is("8193");
    std::uint32_t entries = 1;
    EXPECT_FALSE(sta_driver_list("ath0", 3, &table, &entries));
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(entries, 0U);
    EXPECT_THAT(driver_commands(), ElementsAre(5));
}

TEST_F(table_fetch, without_arguments_is_refused) {
    count_is("2");
    std::uint8_t unset = 0;
    for (const auto &[record, ifname] :
         {std::pair<sta_info_t *, const char *>{nullptr, "ath0"}, {sta, nullptr}}) {
        std::uint8_t *none = &unset;
        EXPECT_EQ(sta_get_ioctl_stainfo(record, &none, ifname, 3), 0);
        EXPECT_EQ(none, nullptr);
    }
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, nullptr, "ath0", 3), 0);
    EXPECT_EQ(log_lines(), lines(3, "sta_get_ioctl_stainfo: param is null\n"));
    EXPECT_THAT(driver_commands(), ElementsAre());
}

TEST_F(table_fetch, survives_the_failure_of_every_allocation) {
    count_is("2");
    const std::uint32_t before = mem_total_cnt;
    fail_allocation(1);
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 3), 0);
    EXPECT_EQ(table, nullptr);
    fail_allocation(2); // the growth
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 3), 2);
    EXPECT_EQ(table, nullptr);
    EXPECT_EQ(lines_of("sta_get_ioctl_stainfo"),
              (lines{"ifname:ath0 get sta num fail \n", "ath0 was ext ioctl get msg fail\n"}));
    EXPECT_EQ(mem_total_cnt, before);
    fail_allocation(3);
    EXPECT_EQ(sta_get_ioctl_stainfo(sta, &table, "ath0", 3), 2);
    EXPECT_FALSE(allocation_failed());
    EXPECT_NE(table, nullptr);
}

class table_reading : public table_fetch {
protected:
    // Lets the driver list these stations and fetches the table.
    void fetch(std::vector<table_entry> entries, unsigned mask = 3) {
        sta_free(table);
        driver_lists({{"ath0", std::move(entries)}});
        count = sta_get_ioctl_stainfo(sta, &table, "ath0", mask);
        ASSERT_NE(table, nullptr);
        forget_log();
    }
    // The figures of one station, listed alone.
    void read(const table_entry &entry, unsigned mask = 3) {
        fetch({entry}, mask);
        EXPECT_EQ(sta_sta_get_ioctl(sta, table, mask, count), 0);
    }
    int count = 0;
};

TEST_F(table_reading, copies_every_basic_field) {
    read(table_entry(first_mac)
             .basic32(72, 5999)
             .basic32(80, -95)
             .basic32(84, 255)
             .basic32(88, 866)
             .basic32(92, 10)
             .basic32(96, 20)
             .basic64(104, 0x0102030405060708)
             .basic64(112, 0x1112131415161718)
             .basic32(120, 36)
             .basic8(124, 1)
             .basic8(125, -40));
    EXPECT_EQ(sta->time_delay, 5);
    EXPECT_EQ(sta->floornoise, -95);
    EXPECT_EQ(sta->utilization, 255); // not scaled
    EXPECT_EQ(sta->maxRate, 866U);
    EXPECT_EQ(sta->flow_rateup, 10240);
    EXPECT_EQ(sta->flow_ratedown, 20480);
    EXPECT_EQ(sta->wifi_up, 0x0102030405060708U);
    EXPECT_EQ(sta->wifi_down, 0x1112131415161718U);
    EXPECT_EQ(sta->channel, 36);
    EXPECT_EQ(sta->is_reassoc, 1);
    EXPECT_EQ(sta->rssi, -40);
    EXPECT_STREQ(sta->power, "55");
    EXPECT_TRUE(logged("sta_sta_get_ioctl",
                       "wifi_up = 72623859790382856 flow_rateup = 10240 channel = 36 sta_power = 55 "
                       "txtime = 5\n"));
}

TEST_F(table_reading, copies_every_extended_field) {
    table_entry entry(first_mac);
    entry.extended32(0, 0xf0000001).extended32(4, 0xf0000002);
    for (int i = 0; i < 7; ++i) entry.extended8(static_cast<std::size_t>(8 + i), 0xf1 + i);
    for (int i = 0; i < 6; ++i) entry.extended32(static_cast<std::size_t>(16 + 4 * i), 0xe0000001LL + i);
    entry.extended32(40, 41).extended32(44, -1).extended32(48, 49).extended32(52, -1).extended32(56, 57);
    entry.extended_text(64, "auth").extended_text(96, "assoc").extended_text(128, "start");
    entry.extended_text(160, "message").extended_text(192, "end");
    read(entry);
    EXPECT_EQ(sta->txper, 0xf0000001U);
    EXPECT_EQ(sta->rxper, 0xf0000002U);
    EXPECT_EQ(sta->supportSTBC, 0xf1);
    EXPECT_EQ(sta->supportSGI, 0xf2);
    EXPECT_EQ(sta->maxMCS, 0xf3);
    EXPECT_EQ(sta->maxBW, 0xf4);
    EXPECT_EQ(sta->FCAP, 0xf5);
    EXPECT_EQ(sta->fromDS, 0xf6);
    EXPECT_EQ(sta->toDS, 0xf7);
    EXPECT_EQ(sta->cost_assoc_req, 0xe0000001U);
    EXPECT_EQ(sta->cost_auth_req, 0xe0000002U);
    EXPECT_EQ(sta->cost_msg2, 0xe0000003U);
    EXPECT_EQ(sta->cost_msg4, 0xe0000004U);
    EXPECT_EQ(sta->onesecrxbyte, 0xe0000005U);
    EXPECT_EQ(sta->onesectxbyte, 0xe0000006U);
    EXPECT_EQ(sta->txBcast, 41U);
    EXPECT_EQ(sta->txMcast, 49U);
    EXPECT_EQ(sta->txPkt, 57U);
    EXPECT_STREQ(sta->ap_auth_req, "auth");
    EXPECT_STREQ(sta->ap_assoc_req, "assoc");
    EXPECT_STREQ(sta->key_start, "start");
    EXPECT_STREQ(sta->key_msg2, "message");
    EXPECT_STREQ(sta->key_end, "end");
}

TEST_F(table_reading, with_the_basic_section_only_leaves_the_extended_fields_alone) {
    sta->txper = 1;
    sta->supportSGI = 2;
    sta->txPkt = 3;
    sta_put_text(sta->key_end, "before");
    read(table_entry(first_mac).basic32(120, 6).extended32(0, 99).extended_text(192, "after"), 1);
    EXPECT_EQ(sta->channel, 6);
    EXPECT_EQ(sta->txper, 1U);
    EXPECT_EQ(sta->supportSGI, 2);
    EXPECT_EQ(sta->txPkt, 3U);
    EXPECT_STREQ(sta->key_end, "before");
}

TEST_F(table_reading, keeps_30_characters_of_a_text_that_fills_its_field) {
    read(table_entry(first_mac).extended_text(64, times(32, 'a')).extended_text(96, "b"));
    EXPECT_EQ(std::string(sta->ap_auth_req), times(30, 'a'));
    EXPECT_STREQ(sta->ap_assoc_req, "b");
}

TEST_F(table_reading, takes_the_drivers_texts_as_format_texts) {
    read(table_entry(first_mac).extended_text(64, "100%%").extended_text(96, "%n%s%d|%"));
    EXPECT_STREQ(sta->ap_auth_req, "100%");
    EXPECT_STREQ(sta->ap_assoc_req, "0|%");
}

TEST_F(table_reading, takes_a_format_text_that_the_record_has_already_and_cuts_a_long_one) {
    std::strcpy(sta->ap_auth_req, times(31, 'a').c_str()); // an event's has one more
    read(table_entry(first_mac).extended_text(64, times(31, 'a')));
    EXPECT_EQ(std::string(sta->ap_auth_req), times(30, 'a'));
    sta_put_text(sta->ap_auth_req, "100%%");
    read(table_entry(first_mac).extended_text(64, "100%%"));
    EXPECT_STREQ(sta->ap_auth_req, "100%");
    read(table_entry(first_mac).extended_text(64, "100"));
    read(table_entry(first_mac).extended_text(64, "100"));
    EXPECT_STREQ(sta->ap_auth_req, "100");
}

TEST_F(table_reading, leaves_nothing_of_an_older_text_behind) {
    read(table_entry(first_mac).extended_text(192, "a long text of before"));
    read(table_entry(first_mac).extended_text(192, "new"));
    EXPECT_EQ(std::string(sta->key_end, 32), "new" + std::string(29, '\0'));
    read(table_entry(first_mac).basic8(125, 10));
    read(table_entry(first_mac).basic8(125, -94));
    EXPECT_EQ(std::string(sta->power, 11), "1" + std::string(10, '\0')); // "105" before
}

TEST_F(table_reading, divides_the_transmit_time_towards_zero) {
    for (const auto &[given, kept] :
         std::vector<std::pair<int, int>>{{1999, 1}, {-1999, -1}, {999, 0}, {-999, 0}, {INT_MIN, -2147483}}) {
        read(table_entry(first_mac).basic32(72, given));
        EXPECT_EQ(sta->time_delay, kept) << given;
    }
}

TEST_F(table_reading, makes_the_power_from_the_signal_which_it_keeps_unclamped) {
    for (const auto &[signal, power] : std::vector<std::pair<int, std::string>>{
             {-40, "55"}, {-94, "1"}, {-95, "65"}, {-100, "65"}, {-128, "65"}, {0, "95"}, {127, "222"}}) {
        read(table_entry(first_mac).basic8(125, signal));
        EXPECT_EQ(sta->rssi, signal);
        EXPECT_EQ(sta->power, power) << signal;
    }
}

TEST_F(table_reading, lets_a_rate_wrap_in_32_bits) {
    read(table_entry(first_mac).basic32(92, 0x00400001).basic32(96, 0x00200000));
    EXPECT_EQ(sta->flow_rateup, 1024);
    EXPECT_EQ(sta->flow_ratedown, INT_MIN);
}

TEST_F(table_reading, stores_vlan_1_without_a_configured_one) {
    read(table_entry(first_mac));
    EXPECT_EQ(sta->vlanid, 1);
    write_file("/etc/config/wifiinfo", "config wifiinfo 'global'\n\toption sdk 'mtk'\n");
    write_file("/etc/config/wireless", "config wifi-iface\n\toption ifname 'ath0'\n\toption vlanid '30'\n");
    sta_put_text(sta->ifname, "ath0");
    read(table_entry(first_mac));
    EXPECT_EQ(sta->vlanid, 30);
}

TEST_F(table_reading, takes_basic_and_extended_entry_of_the_same_index) {
    fetch({table_entry(second_mac).basic32(120, 1).extended32(0, 100),
           table_entry(first_mac).basic32(120, 2).extended32(0, 200)});
    EXPECT_EQ(sta_sta_get_ioctl(sta, table, 3, count), 0);
    EXPECT_EQ(sta->channel, 2);
    EXPECT_EQ(sta->txper, 200U);
}

TEST_F(table_reading, of_a_station_that_is_not_listed_changes_nothing) {
    sta->channel = 11;
    sta->vlanid = 4;
    fetch({table_entry(second_mac).basic32(120, 36)});
    const sta_info_t before = *sta;
    EXPECT_EQ(sta_sta_get_ioctl(sta, table, 3, count), 1);
    EXPECT_EQ(std::memcmp(&before, sta, sizeof(before)), 0);
    EXPECT_EQ(log_lines(), lines{});
}

TEST_F(table_reading, finds_a_station_by_the_beginning_of_its_mac) {
    for (const char *mac : {"02:00", "02:0", "0", "02:00:00:00:00:01", "02:00:"}) {
        sta_put_text(sta->mac, mac);
        fetch({table_entry(first_mac).basic32(120, 36)});
        EXPECT_EQ(sta_sta_get_ioctl(sta, table, 3, count), 0) << mac;
    }
    for (const char *mac :
         {"", "02:00:00:00:00:01:", "02:00:00:00:00:011", "02-00", "0200", "3", "02:1", "x"}) {
        sta_put_text(sta->mac, mac);
        fetch({table_entry(first_mac)});
        EXPECT_EQ(sta_sta_get_ioctl(sta, table, 3, count), 1) << mac;
    }
    sta_put_text(sta->mac, "02:AB:00:00:00:01"); // the driver's are compared in lower case
    fetch({table_entry("02:ab:00:00:00:01")});
    EXPECT_EQ(sta_sta_get_ioctl(sta, table, 3, count), 1);
}

TEST_F(table_reading, takes_the_first_of_two_entries_with_the_mac) {
    fetch({table_entry(first_mac).basic32(120, 1), table_entry(first_mac).basic32(120, 2)});
    EXPECT_EQ(sta_sta_get_ioctl(sta, table, 3, count), 0);
    EXPECT_EQ(sta->channel, 1);
}

TEST_F(table_reading, during_a_walk_finds_what_a_single_look_finds_also_without_memory) {
    driver_lists({{"ath0",
                   {table_entry(second_mac).basic32(120, 1), table_entry(first_mac).basic32(120, 2),
                    table_entry(first_mac).basic32(120, 3)}}});
    sta_put_text(sta->ifname, "ath0");
    for (const unsigned failing : {0U, 3U}) { // after the fetch's own two
        if (failing > 0) fail_allocation(failing);
        sta_configuration configuration;
        sta_radio_tables walk{3, configuration};
        EXPECT_TRUE(walk.fetch_for(sta));
        for (const auto &[mac, channel] : std::vector<std::pair<const char *, int>>{
                 {first_mac, 2}, {second_mac, 1}, {"02:00", 1}, {"02:00:00:00:00:03", 0}, {"", 0}}) {
            sta_put_text(sta->mac, mac);
            sta->channel = 0;
            EXPECT_EQ(walk.update(sta), channel == 0 ? 1 : 0) << mac;
            EXPECT_EQ(sta->channel, channel) << mac;
        }
        EXPECT_EQ(allocation_failed(), failing > 0);
        sta_put_text(sta->mac, first_mac);
    }
}

TEST_F(table_reading, during_a_walk_finds_each_of_a_crowd) {
    std::vector<table_entry> crowd;
    const auto mac_of = [](unsigned number) {
        char mac[18];
        std::snprintf(mac, sizeof(mac), "%02x:00:00:%02x:00:%02x", number % 7 * 4, number >> 8,
                      number & 0xff);
        return std::string(mac);
    };
    for (unsigned i = 0; i < 600; ++i) crowd.push_back(table_entry(mac_of(i)).basic32(120, i + 1));
    crowd.push_back(table_entry(mac_of(5)).basic32(120, 999)); // he is listed already
    driver_lists({{"ath0", crowd}});
    sta_put_text(sta->ifname, "ath0");
    sta_configuration configuration;
    sta_radio_tables walk{3, configuration};
    EXPECT_TRUE(walk.fetch_for(sta));
    for (unsigned i = 0; i < 700; ++i) {
        sta_put_text(sta->mac, mac_of(i).c_str());
        sta->channel = 0;
        ASSERT_EQ(walk.update(sta), i < 600 ? 0 : 1) << i;
        ASSERT_EQ(sta->channel, i < 600 ? static_cast<int>(i) + 1 : 0);
    }
    sta_put_text(sta->mac, first_mac);
}

TEST_F(table_reading, searches_all_entries_when_the_driver_says_it_filled_fewer) {
    fetch({table_entry(second_mac), table_entry(first_mac).basic32(120, 9)});
    table[0] = 1;
    EXPECT_EQ(sta_sta_get_ioctl(sta, table, 3, count), 0);
    EXPECT_EQ(sta->channel, 9);
    EXPECT_TRUE(logged("sta_sta_get_ioctl", "pMactab->Num:1 != sta_num:2\n"));
}

TEST_F(table_reading, searches_no_more_than_were_asked_for_when_the_driver_says_it_filled_more) {
    fetch({table_entry(second_mac)});
    std::memset(table, 0x7f, 4);
    EXPECT_EQ(sta_sta_get_ioctl(sta, table, 3, count), 1);
    EXPECT_TRUE(logged("sta_sta_get_ioctl", "pMactab->Num:2139062143 != sta_num:1\n"));
}

TEST_F(table_reading, without_a_table_or_a_station_is_refused) {
    EXPECT_EQ(sta_sta_get_ioctl(sta, nullptr, 3, 2), 1);
    fetch({table_entry(first_mac)});
    EXPECT_EQ(sta_sta_get_ioctl(nullptr, table, 3, 1), 1);
    EXPECT_EQ(log_lines(), lines{"sta_sta_get_ioctl: param is null!!\n"});
    EXPECT_EQ(sta_sta_get_ioctl(sta, table, 3, 0), 1);
    EXPECT_EQ(sta_sta_get_ioctl(sta, table, 3, -1), 1);
}

} // namespace
