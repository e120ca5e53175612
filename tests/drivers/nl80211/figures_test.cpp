#include "nl80211/figures.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <linux/nl80211.h>

namespace {

class figures_of_a_station : public testing::Test {
protected:
    void SetUp() override {
        setenv("TZ", "UTC0", 1);
        tzset();
        about.mac = {{2, 0, 0, 0, 0, 1}};
        about.is_reassociation = true;
        about.can.newest = generation::ac;
        about.can.streams[static_cast<int>(generation::ac)] = 2;
        about.can.mcs[static_cast<int>(generation::ac)] = 9;
        about.can.width = width_80;
        about.can.short_gi = true;
        about.can.fast_transition = true;
        about.auth_wall_ms = 1'700'000'000'042;
        about.cost_auth = 5;
        about.cost_assoc = 10;
        about.cost_key = 20;
        std::memcpy(where.ifname, "wlan1", 6);
        std::memcpy(where.ssid, "Lobby", 5);
        where.ssid_size = 5;
        where.radio = 1;
        where.frequency = 5180;
        where.width = width_80;
        where.noise = -92;
        where.busy = 51;
        figures.rx_bytes = 0x100000001;
        figures.tx_bytes = 1674;
        figures.tx_packets = 98;
        figures.tx_failed = 2;
        figures.rx_rate = 65;
        figures.tx_rate = 8667;
        figures.signal = -27;
        figures.associated_at = 40'000'000'000;
        figures.chain[1] = -33;
    }
    station about{};
    station_figures figures{};
    network_facts where{};
    moment now{5, 1'700'000'100'000};
    std::uint64_t boot = 48'500'000'000;
};

TEST_F(figures_of_a_station, in_its_event) {
    const station_event event = make_event(true, about, figures, where, 0, now, boot);
    EXPECT_EQ(event.assoc, 1U);
    EXPECT_EQ(event.mac[5], 1);
    EXPECT_STREQ(event.ssid, "Lobby");
    EXPECT_STREQ(event.ifname, "wlan1");
    EXPECT_EQ(event.time_stamp, 1'700'000'100U);
    EXPECT_EQ(event.radio_id, 1);
    EXPECT_EQ(event.floornoise, -92);
    EXPECT_EQ(event.utilization, 51) << "a share of 255";
    EXPECT_EQ(event.maxRate, 866U);
    EXPECT_STREQ(event.version, "11ac");
    EXPECT_EQ(event.sta_rxrate, 6656) << "6.5 Mbit/s in 1024ths";
    EXPECT_EQ(event.sta_txrate, 887500);
    EXPECT_EQ(event.sta_rxbyte, 0x100000001U);
    EXPECT_EQ(event.sta_txbyte, 1674U);
    EXPECT_EQ(event.channel, 36);
    EXPECT_EQ(event.is_reassoc, 1);
    EXPECT_EQ(event.rssi, -27);
    EXPECT_EQ(event.roam_enable, 1);
    EXPECT_EQ(event.txper, 2U);
    EXPECT_EQ(event.txPkt, 98U);
    EXPECT_EQ(event.maxMCS, 9);
    EXPECT_EQ(event.maxBW, 2);
    EXPECT_EQ(event.cost_auth_req, 5U);
    EXPECT_EQ(event.cost_assoc_req, 10U);
    EXPECT_EQ(event.cost_msg4, 20U);
    EXPECT_STREQ(event.ap_auth_req, "22:13:20.042");
    EXPECT_STREQ(event.key_start, "") << "not seen";
}

TEST_F(figures_of_a_station, at_its_end_have_the_reason) {
    const station_event event = make_event(false, about, figures, where, off_deauth_received, now, boot);
    EXPECT_EQ(event.assoc, 0U);
    EXPECT_EQ(event.off_reason_code, 307);
    EXPECT_EQ(make_event(true, about, figures, where, 307, now, boot).off_reason_code, 0);
}

TEST_F(figures_of_a_station, that_was_found_have_the_time_of_its_association) {
    about.found = true;
    about.associated_at = 40'000'000'000;
    EXPECT_EQ(make_event(true, about, figures, where, 0, now, boot).time_stamp, 1'700'000'092U);
    about.associated_at = boot + 1;
    EXPECT_EQ(make_event(true, about, figures, where, 0, now, boot).time_stamp, 1'700'000'100U)
        << "a time to come is none";
}

TEST_F(figures_of_a_station, in_its_table_entry_have_the_tables_units) {
    const driver_basic entry = make_basic(about, figures, where, boot);
    EXPECT_STREQ(entry.ssid, "Lobby");
    EXPECT_STREQ(entry.ifname, "wlan1");
    EXPECT_EQ(entry.utilization, 20) << "per cent";
    EXPECT_EQ(entry.rx_rate, 6U);
    EXPECT_EQ(entry.tx_rate, 866U);
    EXPECT_EQ(entry.rx_bytes, 0x100000001U);
    EXPECT_EQ(entry.online_time, 8);
    EXPECT_EQ(entry.chain_rssi1, -33);
    EXPECT_EQ(entry.maxRate, 866U);
    EXPECT_EQ(make_extended(about, figures).cost_auth_req, 5U);
}

TEST_F(figures_of_a_station, that_is_hardly_known_say_so) {
    const station_event event = make_event(true, {}, {}, {}, 0, now, boot);
    EXPECT_EQ(event.rssi, -95);
    EXPECT_STREQ(event.version, "");
    EXPECT_EQ(event.maxRate, 0U);
    EXPECT_EQ(event.txper, 0U);
    EXPECT_EQ(make_basic({}, {}, {}, boot).online_time, 0);
}

TEST_F(figures_of_a_station, have_a_network_name_of_32_bytes_whole) {
    std::memset(where.ssid, 'x', 32);
    where.ssid_size = 32;
    EXPECT_EQ(std::strlen(make_event(true, about, figures, where, 0, now, boot).ssid), 32U);
    EXPECT_EQ(std::strlen(make_basic(about, figures, where, boot).ssid), 32U);
}

TEST(width, is_as_the_daemon_counts) {
    EXPECT_EQ(width_of(NL80211_CHAN_WIDTH_20_NOHT), 0);
    EXPECT_EQ(width_of(NL80211_CHAN_WIDTH_20), 0);
    EXPECT_EQ(width_of(NL80211_CHAN_WIDTH_40), 1);
    EXPECT_EQ(width_of(NL80211_CHAN_WIDTH_80), 2);
    EXPECT_EQ(width_of(NL80211_CHAN_WIDTH_160), 3);
    EXPECT_EQ(width_of(13), 4);
}

} // namespace
