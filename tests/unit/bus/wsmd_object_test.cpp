// The object `wsmd` on a real bus: typed stations in pages, and what is refused.
#include <gmock/gmock.h>

#include "support/bus_house.h"

#include "model/departures.h"
#include "model/identity.h"
#include "model/table.h"
#include "outputs/collector.h"
#include "outputs/happenings.h"
#include "support/driver_tables.h"
#include "tools/health.h"
#include "tools/memory.h"
#include "tools/text.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::StartsWith;
using lines = std::vector<std::string>;

constexpr const char *first_mac = "02:00:00:00:00:01";
constexpr const char *second_mac = "00:11:22:33:44:ab";

class explaining : public ConnectedHouse {
protected:
    bus_call ask(const std::string &method, const std::string &arguments = "{}") {
        return other.call("wsmd", method, arguments);
    }
    // The members of an answer without "boot" and "seq".
    lines members(const std::string &method, const std::string &arguments = "{}") {
        lines found = ask(method, arguments).reply.value_or(lines(2));
        EXPECT_THAT(found.at(0), StartsWith("boot STRING "));
        EXPECT_THAT(found.at(1), StartsWith("seq INT32 "));
        found.erase(found.begin(), found.begin() + 2);
        return found;
    }
    // The MACs of a page, and its other members.
    static lines macs(const bus_call &page) {
        lines found;
        for (const std::string &line : page.reply.value_or(lines{}))
            if (line.starts_with("    mac STRING ")) found.push_back(line.substr(15));
        return found;
    }
    void expect_refused(const std::string &method, const std::string &arguments, const std::string &why,
                        const std::string &name) {
        const bus_call refused = ask(method, arguments);
        EXPECT_EQ(refused.status, UBUS_STATUS_INVALID_ARGUMENT) << arguments;
        EXPECT_EQ(refused.reply, (lines{"error STRING " + why, "name STRING " + name})) << arguments;
    }
};

std::string numbered_mac(int number) {
    char mac[18];
    std::snprintf(mac, sizeof(mac), "02:00:00:00:%02x:%02x", (number >> 8) & 0xff, number & 0xff);
    return mac;
}

// A station with a value of its own in every member that is shown.
sta_info_t *full_station() {
    sta_info_t *sta = put_station(first_mac, sta_status_online);
    sta_put_text(sta->ssid, "lobby");
    sta_put_text(sta->ifname, "ath0");
    sta_put_text(sta->ip, "10.0.0.1");
    sta->name = sta_strdup("phone");
    sta_put_text(sta->ap_mac, "02:54:4b:00:00:01\n");
    sta_put_text(sta->protocol, "11ax");
    sta->online_clock.sec = sta_monotonic_seconds() - 7;
    sta->online_ts.sec = 1700000000;
    sta->radio_id = 1;
    sta->channel = 36;
    sta->vlanid = 12;
    sta->repeater_type = 1;
    sta->roam_enable = 1;
    sta->rssi = -51;
    sta->floornoise = -96;
    sta->flow_rateup = 200 * 1024;
    sta->flow_ratedown = 300 * 1024;
    sta->driver_rate = 4804;
    sta->wifi_up = 0x123456789ULL;
    sta->wifi_down = 22;
    sta->onesecrxbyte = 23;
    sta->onesectxbyte = 24;
    sta->txPkt = 25;
    sta->rxper = 26;
    sta->txper = 27;
    sta->maxBW = 2;
    sta->maxMCS = 11;
    sta_put_text(sta->ap_auth_req, "18:12:19.120");
    sta_put_text(sta->key_end, "18:12:19.144");
    sta->cost_auth_req = 2;
    sta->cost_msg4 = 14;
    return sta;
}

const lines full_members{"mac STRING 02:00:00:00:00:01",
                         "private BOOL 1",
                         "state STRING online",
                         "confirmed BOOL 1",
                         "ip STRING 10.0.0.1",
                         "name STRING phone",
                         "ssid STRING lobby",
                         "interface STRING ath0",
                         "access_point STRING 02:54:4b:00:00:01",
                         "radio INT32 1",
                         "band STRING 5 GHz",
                         "channel INT32 36",
                         "vlan INT32 12",
                         "protocol STRING 11ax",
                         "repeater BOOL 1",
                         "roaming BOOL 1",
                         "came INT64 1700000000",
                         "connected INT32 7",
                         "signal INT32 -51",
                         "noise INT32 -96",
                         "rx_rate INT64 200000000",
                         "tx_rate INT64 300000000",
                         "max_rate INT64 4804000000",
                         "rx_bytes INT64 4886718345",
                         "tx_bytes INT64 22",
                         "rx_bytes_second INT64 23",
                         "tx_bytes_second INT64 24",
                         "tx_packets INT64 25",
                         "rx_error_percent INT32 26",
                         "tx_error_percent INT32 27",
                         "width INT32 80",
                         "max_mcs INT32 11",
                         "steps TABLE",
                         "  auth STRING 18:12:19.120",
                         "  key_end STRING 18:12:19.144",
                         "  auth_ms INT32 2",
                         "  msg4_ms INT32 14"};

TEST_F(explaining, a_station_has_numbers_in_plain_units) {
    full_station();
    const bus_call result = ask("station", R"({"mac":"02:00:00:00:00:01"})");
    EXPECT_EQ(result.status, 0);
    ASSERT_TRUE(result.reply);
    lines members = *result.reply;
    // The clock may advance by a second between the test and the daemon.
    std::replace(members.begin(), members.end(), std::string{"connected INT32 8"},
                 std::string{"connected INT32 7"});
    EXPECT_EQ(members, full_members);
}

TEST_F(explaining, what_is_not_known_of_a_station_is_left_out) {
    sta_info_t *sta = put_station(second_mac);
    sta_put_text(sta->ssid, "");
    sta_put_text(sta->ip, "0.0.0.0");
    sta->name = sta_strdup("-");
    sta->online_clock = {};
    sta->restored = 1;
    EXPECT_EQ(ask("station", R"({"mac":"00:11:22:33:44:AB"})").reply,
              (lines{"mac STRING 00:11:22:33:44:ab", "private BOOL 0", "state STRING waiting",
                     "confirmed BOOL 0", "radio INT32 0", "repeater BOOL 0", "roaming BOOL 0",
                     "rx_bytes INT64 0", "tx_bytes INT64 0", "rx_bytes_second INT64 0",
                     "tx_bytes_second INT64 0", "tx_packets INT64 0", "rx_error_percent INT32 0",
                     "tx_error_percent INT32 0", "width INT32 20", "max_mcs INT32 0", "steps TABLE"}));
}

TEST_F(explaining, addresses_and_names_are_shown_with_how_and_since_when) {
    sta_info_t *sta = put_station(first_mac);
    sta_identity_add_address(sta, "10.0.0.1", station_origin::lease);
    sta_identity_add_address(sta, "fe80::1", station_origin::neighbour);
    sta_identity_add_name(sta, "phone", station_origin::dhcpmon);
    lines found = ask("stations", R"({"fields":["addresses","names"]})").reply.value();
    found.erase(found.begin(), found.begin() + 3);
    for (std::string &line : found)
        for (const char *time : {"        since INT64 ", "        seen INT64 "})
            if (line.starts_with(time)) {
                EXPECT_NEAR(std::stod(line.substr(std::strlen(time))),
                            static_cast<double>(std::time(nullptr)), 3);
                line = time;
            }
    const lines how{"        since INT64 ", "        seen INT64 "};
    EXPECT_EQ(found, (lines{"stations ARRAY",
                            "  TABLE",
                            "    mac STRING 02:00:00:00:00:01",
                            "    addresses ARRAY",
                            "      TABLE",
                            "        address STRING 10.0.0.1",
                            "        origin STRING lease",
                            how[0],
                            how[1],
                            "      TABLE",
                            "        address STRING fe80::1",
                            "        origin STRING neighbour",
                            how[0],
                            how[1],
                            "    names ARRAY",
                            "      TABLE",
                            "        name STRING phone",
                            "        origin STRING dhcpmon",
                            how[0],
                            how[1]}));
}

TEST_F(explaining, a_page_has_addresses_and_names_only_where_they_are_asked_for) {
    sta_identity_add_address(put_station(first_mac), "10.0.0.1", station_origin::lease);
    EXPECT_THAT(ask("stations").reply.value(), Not(Contains("    addresses ARRAY")));
    EXPECT_THAT(ask("station", R"({"mac":"02:00:00:00:00:01"})").reply.value(), Contains("addresses ARRAY"));
}

TEST_F(explaining, a_band_is_named_where_a_channel_belongs_to_one) {
    sta_info_t *sta = put_station(first_mac);
    const auto band = [&](std::int32_t channel) {
        sta->channel = channel;
        const lines reply = ask("stations", R"({"fields":["band"]})").reply.value();
        return reply.at(reply.size() - 1);
    };
    EXPECT_EQ(band(1), "    band STRING 2.4 GHz");
    EXPECT_EQ(band(14), "    band STRING 2.4 GHz");
    EXPECT_EQ(band(36), "    band STRING 5 GHz");
    EXPECT_EQ(band(177), "    band STRING 5 GHz");
    for (const std::int32_t none : {0, 15, 35, 178, -1})
        EXPECT_EQ(band(none), "    mac STRING 02:00:00:00:00:01");
}

TEST_F(explaining, a_station_shows_the_drivers_figures_of_now) {
    sta_put_text(put_station(first_mac)->ifname, "ath0");
    driver_lists({{"ath0", {table_entry(first_mac).basic8(125, -40)}}});
    EXPECT_THAT(ask("station", R"({"mac":"02:00:00:00:00:01"})").reply.value(), Contains("signal INT32 -40"));
    EXPECT_EQ(driver_commands(), (std::vector<int>{5, 1}));
}

TEST_F(explaining, members_that_the_driver_does_not_give_do_not_ask_it) {
    sta_put_text(put_station(first_mac)->ifname, "ath0");
    driver_lists({{"ath0", {table_entry(first_mac)}}});
    ask("stations", R"({"fields":["mac","ip","name","state"]})");
    EXPECT_TRUE(driver_commands().empty());
}

TEST_F(explaining, an_unknown_station_is_not_found) {
    const bus_call result = ask("station", R"({"mac":"02:00:00:00:00:01"})");
    EXPECT_EQ(result.status, UBUS_STATUS_NOT_FOUND);
    EXPECT_FALSE(result.reply);
}

TEST_F(explaining, no_stations_are_an_empty_list) {
    EXPECT_EQ(members("stations"), (lines{"total INT32 0", "stations ARRAY"}));
}

TEST_F(explaining, stations_come_in_the_order_of_their_addresses_with_the_members_asked_for) {
    put_station(first_mac, sta_status_online);
    put_station(second_mac);
    EXPECT_EQ(members("stations", R"({"fields":["state","private"]})"),
              (lines{"total INT32 2", "stations ARRAY", "  TABLE", "    mac STRING 00:11:22:33:44:ab",
                     "    private BOOL 0", "    state STRING waiting", "  TABLE",
                     "    mac STRING 02:00:00:00:00:01", "    private BOOL 1", "    state STRING online"}));
}

TEST_F(explaining, pages_show_every_station_once) {
    lines wanted, seen;
    for (int i = 0; i < 300; ++i) wanted.push_back(numbered_mac(i));
    for (int i = 299; i >= 0; --i) put_station(numbered_mac(i).c_str());
    std::string after;
    int pages = 0;
    for (bool more = true; more; ++pages) {
        const bus_call page = ask("stations", R"({"limit":128,"fields":["mac"])" +
                                                  (after.empty() ? "" : R"(,"after":")" + after + '"') + "}");
        ASSERT_EQ(page.status, 0);
        const lines found = macs(page);
        seen.insert(seen.end(), found.begin(), found.end());
        more = page.reply->back().starts_with("next ");
        if (more) after = page.reply->back().substr(12);
    }
    EXPECT_EQ(pages, 3);
    EXPECT_EQ(seen, wanted);
}

TEST_F(explaining, a_page_of_64_stations_is_the_default_and_one_of_256_is_the_most) {
    for (int i = 0; i < 300; ++i) put_station(numbered_mac(i).c_str());
    EXPECT_EQ(macs(ask("stations")).size(), 64U);
    EXPECT_EQ(macs(ask("stations", R"({"limit":256})")).size(), 256U);
}

TEST_F(explaining, a_station_that_goes_between_two_pages_shifts_no_other) {
    for (int i = 0; i < 4; ++i) put_station(numbered_mac(i).c_str());
    sta_info_t *gone = stations().at(1);
    EXPECT_EQ(ask("stations", R"({"limit":2,"fields":["mac"]})").reply->back(),
              "next STRING 02:00:00:00:00:01");
    list_del_init(&gone->list);
    EXPECT_THAT(macs(ask("stations", R"({"limit":2,"after":"02:00:00:00:00:01"})")),
                ElementsAre("02:00:00:00:00:02", "02:00:00:00:00:03"));
    list_add_tail(&gone->list, &g_sta_sta_master.list);
}

TEST_F(explaining, a_record_whose_address_is_none_is_not_shown) {
    put_station("02-00-00-00-00-01");
    put_station("02:00:00:00:00:0");
    put_station("");
    EXPECT_EQ(members("stations"), (lines{"total INT32 0", "stations ARRAY"}));
}

TEST_F(explaining, an_unknown_field_is_refused_with_its_name) {
    expect_refused("stations", R"({"fields":["mac","colour"]})", "unknown field", "colour");
    expect_refused("stations", R"({"fields":[""]})", "unknown field", "");
    expect_refused("stations", R"({"fields":["mac",7]})", "unknown field", "fields");
    expect_refused("stations", R"({"fields":[")" + std::string(100, 'x') + R"("]})", "unknown field",
                   std::string(64, 'x'));
}

TEST_F(explaining, bad_arguments_are_refused_with_their_name) {
    put_station(first_mac);
    expect_refused("stations", R"({"limit":0})", "not 1 to 256", "limit");
    expect_refused("stations", R"({"limit":257})", "not 1 to 256", "limit");
    expect_refused("stations", R"({"limit":-1})", "not 1 to 256", "limit");
    expect_refused("stations", R"({"limit":"5"})", "bad argument", "limit");
    expect_refused("stations", R"({"after":"02:00"})", "no MAC address", "after");
    expect_refused("stations", R"({"after":"02:00:00:00:00:01x"})", "no MAC address", "after");
    expect_refused("stations", R"({"after":1})", "bad argument", "after");
    expect_refused("stations", R"({"fields":"mac"})", "bad argument", "fields");
    expect_refused("stations", R"({"colour":"red"})", "bad argument", "colour");
    expect_refused("departed", R"({"limit":0})", "not 1 to 256", "limit");
    expect_refused("departed", R"({"limit":true})", "bad argument", "limit");
    expect_refused("station", R"({})", "no MAC address", "mac");
    expect_refused("station", R"({"mac":""})", "no MAC address", "mac");
    expect_refused("station", R"({"mac":7})", "bad argument", "mac");
    EXPECT_TRUE(driver_requests().empty());
}

TEST_F(explaining, the_session_that_the_web_server_adds_is_no_argument) {
    EXPECT_EQ(ask("stations", R"({"ubus_rpc_session":"0123"})").status, 0);
}

TEST_F(explaining, without_memory_answers_with_an_error_and_goes_on) {
    for (int i = 0; i < 40; ++i) full_station();
    driver_lists({{"ath0", {table_entry(first_mac)}}});
    for (const auto &[method, arguments] :
         {std::pair{"stations", "{}"}, {"station", R"({"mac":"02:00:00:00:00:01"})"}}) {
        for (unsigned nth = 1;; ++nth) {
            fail_allocation(nth);
            const bus_call result = ask(method, arguments);
            const bool failed = allocation_failed();
            fail_allocation(0);
            if (!failed) break;
            if (result.status == 0)
                EXPECT_THAT(result.reply.value(),
                            Contains(StartsWith(method == std::string{"station"} ? "mac " : "total ")));
            else
                EXPECT_EQ(result.status, UBUS_STATUS_NO_MEMORY);
            ASSERT_LT(nth, 600U);
        }
    }
    EXPECT_EQ(macs(ask("stations")).size(), 40U);
}

// A departure with a value of its own in every member.
station_departure full_departure() {
    station_departure one = {};
    sta_put_text(one.mac, first_mac);
    sta_put_text(one.name, "phone");
    sta_put_text(one.ip, "10.0.0.1");
    sta_put_text(one.ssid, "lobby");
    sta_put_text(one.ifname, "ath1");
    one.radio_id = 1;
    one.channel = 36;
    one.came = 1700000000;
    one.left = 1700000060;
    one.lasted = 59;
    one.reason_code = 307;
    one.reason = "OW_STA_DEAUTH_RECV";
    one.rx_bytes = 0x123456789ULL;
    one.tx_bytes = 8;
    one.signal = -70;
    one.ended_by = departure_cause::station;
    return one;
}

TEST_F(explaining, departures_are_shown_with_all_that_is_known) {
    sta_departures_add(full_departure());
    EXPECT_EQ(members("departed"), (lines{"total INT32 1",
                                          "departed ARRAY",
                                          "  TABLE",
                                          "    mac STRING 02:00:00:00:00:01",
                                          "    name STRING phone",
                                          "    ip STRING 10.0.0.1",
                                          "    ssid STRING lobby",
                                          "    interface STRING ath1",
                                          "    radio INT32 1",
                                          "    channel INT32 36",
                                          "    came INT64 1700000000",
                                          "    left INT64 1700000060",
                                          "    lasted INT32 59",
                                          "    ended_by STRING station",
                                          "    known_from STRING event",
                                          "    reason_code INT32 307",
                                          "    reason STRING OW_STA_DEAUTH_RECV",
                                          "    signal INT32 -70",
                                          "    rx_bytes INT64 4886718345",
                                          "    tx_bytes INT64 8"}));
}

TEST_F(explaining, of_a_departure_nothing_is_made_up) {
    station_departure one = {};
    sta_put_text(one.mac, first_mac);
    one.left = 1700000060;
    one.lasted = -1;
    one.inferred = true;
    sta_departures_add(one);
    EXPECT_EQ(members("departed"),
              (lines{"total INT32 1", "departed ARRAY", "  TABLE", "    mac STRING 02:00:00:00:00:01",
                     "    radio INT32 0", "    left INT64 1700000060", "    ended_by STRING unknown",
                     "    known_from STRING inferred", "    rx_bytes INT64 0", "    tx_bytes INT64 0"}));
}

TEST_F(explaining, the_newest_departures_come_first_and_as_many_as_are_asked_for) {
    for (int i = 0; i < 5; ++i) {
        station_departure one = full_departure();
        sta_put_text(one.mac, numbered_mac(i).c_str());
        sta_departures_add(one);
    }
    EXPECT_THAT(macs(ask("departed", R"({"limit":2})")), ElementsAre(numbered_mac(4), numbered_mac(3)));
    EXPECT_EQ(macs(ask("departed")).size(), 5U);
}

TEST_F(explaining, health_shows_what_was_counted) {
    put_station(first_mac, sta_status_online);
    put_station(second_mac);
    sta_health.events_received = 1;
    sta_health.events_malformed = 2;
    sta_health.overruns = 3;
    sta_health.resyncs = 4;
    sta_health.driver_requests = 5;
    sta_health.driver_failures = 6;
    sta_health.driver_slowest = 7;
    sta_health.reports_sent = 8;
    sta_health.reports_without_socket = 9;
    sta_health.reports_not_bound = 10;
    sta_health.reports_not_connected = 11;
    sta_health.reports_not_written = 12;
    sta_health.reports_slowest = 13;
    sta_health.stations_most = 14;
    sta_health.stations_refused = 15;
    sta_health.bus_lookups = 16;
    sta_health.configuration_lookups = 17;
    sta_health.lease_lookups = 18;
    sta_health.neighbours_received = 19;
    sta_health.neighbours_unusable = 20;
    sta_health.neighbours_unknown = 21;
    sta_health.neighbours_foreign = 22;
    sta_health.neighbours_malformed = 23;
    sta_health.neighbours_overruns = 24;
    sta_health.neighbours_dumps = 25;
    sta_health.addresses_kept = 26;
    sta_health.addresses_displaced = 27;
    sta_health.addresses_refused = 28;
    sta_health.longest_turn = 2000000000;
    sta_health.longest_turn_of = "log-up";
    sta_health.started = sta_monotonic_seconds();
    lines found = ask("health").reply.value();
    EXPECT_THAT(found.at(0), StartsWith("version STRING "));
    EXPECT_THAT(found.at(3), StartsWith("uptime INT32 "));
    EXPECT_THAT(found.at(found.size() - 4), StartsWith("  bytes INT64 "));
    found.erase(found.end() - 4);
    found.erase(found.begin(), found.begin() + 4);
    EXPECT_EQ(found, (lines{"role STRING access-point",
                            "family BOOL 0",
                            "events TABLE",
                            "  received INT32 1",
                            "  malformed INT32 2",
                            "  overruns INT32 3",
                            "  resyncs INT32 4",
                            "driver TABLE",
                            "  requests INT32 5",
                            "  failures INT32 6",
                            "  slowest_us INT32 7",
                            "reports TABLE",
                            "  sent INT32 8",
                            "  failed_socket INT32 9",
                            "  failed_bind INT32 10",
                            "  failed_connect INT32 11",
                            "  failed_write INT32 12",
                            "  slowest_us INT32 13",
                            "stations TABLE",
                            "  known INT32 2",
                            "  online INT32 1",
                            "  most INT32 14",
                            "  limit INT32 512",
                            "  refused INT32 15",
                            "neighbours TABLE",
                            "  received INT32 19",
                            "  unusable INT32 20",
                            "  unknown INT32 21",
                            "  foreign INT32 22",
                            "  malformed INT32 23",
                            "  overruns INT32 24",
                            "  dumps INT32 25",
                            "addresses TABLE",
                            "  kept INT32 26",
                            "  displaced INT32 27",
                            "  refused INT32 28",
                            "lookups TABLE",
                            "  bus INT32 16",
                            "  configuration INT32 17",
                            "  leases INT32 18",
                            "memory TABLE",
                            "  blocks INT32 2",
                            "loop TABLE",
                            "  longest_us INT32 2000000000",
                            "  what STRING log-up"}));
    expect_refused("health", R"({"x":1})", "bad argument", "x");
}

TEST_F(explaining, health_counts_reports_that_nobody_takes_and_a_driver_that_refuses) {
    put_station(first_mac);
    sta_domain_socket_send(stations().at(0));
    ask("station", R"({"mac":"02:00:00:00:00:01"})");
    const lines found = ask("health").reply.value();
    EXPECT_THAT(found, Contains("  failed_connect INT32 1"));
    EXPECT_THAT(found, Contains("  sent INT32 0"));
    EXPECT_THAT(found, Contains("  requests INT32 1"));
    EXPECT_THAT(found, Contains("  failures INT32 1"));
}

class telling : public explaining {
protected:
    telling() {
        other.subscribe("wsmd");
        EXPECT_TRUE(soon([] { return sta_wsmd_object.has_subscribers; }));
    }
    // The next notification without "boot" and "seq", which follows the one before.
    lines heard() {
        if (!soon([&] { return other.notifications.size() > taken; })) return {};
        lines found = other.notifications.at(taken++);
        EXPECT_THAT(found.at(1), StartsWith("boot STRING "));
        const int number = std::stoi(found.at(2).substr(10));
        EXPECT_EQ(number, last == 0 ? number : last + 1);
        last = number;
        found.erase(found.begin() + 1, found.begin() + 3);
        return found;
    }
    std::size_t taken = 0;
    int last = 0;
};

TEST_F(telling, who_joins_is_told_with_all_that_is_known) {
    sta_tell_joined(full_station(), true);
    lines wanted{"joined", "mac STRING 02:00:00:00:00:01", "again BOOL 1", "station TABLE"};
    for (const std::string &member : full_members) wanted.push_back("  " + member);
    lines found = heard();
    std::replace(found.begin(), found.end(), std::string{"  connected INT32 8"},
                 std::string{"  connected INT32 7"});
    EXPECT_EQ(found, wanted);
}

TEST_F(telling, each_happening_has_the_next_number) {
    sta_info_t *sta = full_station();
    sta_tell_address(sta, "10.0.0.2", station_origin::lease);
    sta_tell_name(sta, "tv", station_origin::dhcpmon);
    sta_tell_roamed(sta, "ath1", 0);
    sta_tell_left(full_departure());
    sta_tell_resync(2, 3);
    EXPECT_EQ(heard(), (lines{"changed", "mac STRING 02:00:00:00:00:01", "address STRING 10.0.0.2",
                              "origin STRING lease"}));
    EXPECT_EQ(heard(),
              (lines{"changed", "mac STRING 02:00:00:00:00:01", "name STRING tv", "origin STRING dhcpmon"}));
    EXPECT_EQ(heard(),
              (lines{"roamed", "mac STRING 02:00:00:00:00:01", "from TABLE", "  interface STRING ath1",
                     "  radio INT32 0", "to TABLE", "  interface STRING ath0", "  radio INT32 1"}));
    const lines left = heard();
    EXPECT_THAT(left, Contains("  ended_by STRING station"));
    EXPECT_EQ(left.front(), "left");
    EXPECT_EQ(heard(), (lines{"resync", "arrived INT32 2", "departed INT32 3"}));
    EXPECT_EQ(ask("stations").reply->at(1), "seq INT32 " + std::to_string(last));
}

TEST_F(telling, what_nobody_has_heard_leaves_a_gap) {
    sta_info_t *sta = full_station();
    sta_tell_resync(1, 0);
    sta_wsmd_object.has_subscribers = false;
    sta_tell_joined(sta, false);
    sta_wsmd_object.has_subscribers = true;
    sta_tell_resync(2, 0);
    EXPECT_EQ(heard().front(), "resync");
    ++last;
    EXPECT_EQ(heard(), (lines{"resync", "arrived INT32 2", "departed INT32 0"}));
}

TEST_F(explaining, without_a_subscriber_the_numbers_go_on) {
    const auto number = [&] { return std::stoi(ask("stations").reply->at(1).substr(10)); };
    const int before = number();
    sta_tell_resync(1, 1);
    EXPECT_EQ(number(), before + 1);
}

TEST_F(explaining, a_kick_through_the_older_object_is_remembered) {
    put_station(first_mac)->radio_id = 0;
    other.call("sta", "delete", R"({"mac":"02:00:00:00:00:01","radio":1})");
    EXPECT_FALSE(sta_departures_take_kick(first_mac)); // it is on another radio
    other.call("sta", "delete", R"({"mac":"02:00:00:00:00:01","radio":0})");
    EXPECT_TRUE(sta_departures_take_kick(first_mac));
}

} // namespace
