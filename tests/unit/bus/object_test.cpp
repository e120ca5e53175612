// The daemon's object on a real bus: connecting, and the methods get, set and delete.
#include <gmock/gmock.h>

#include "support/bus_house.h"

#include "life/timers.h"
#include "model/table.h"
#include "support/driver_tables.h"
#include "tools/text.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using lines = std::vector<std::string>;

constexpr const char *first_mac = "02:00:00:00:00:01";
constexpr const char *second_mac = "02:00:00:00:00:02";

// The status that a caller gets when the handler fails.
constexpr int handler_failed = -1;

using connecting = BusHouse;

TEST_F(connecting, publishes_the_object_with_its_three_methods) {
    EXPECT_EQ(sta_ubus_object_init(), 0);
    peer other;
    EXPECT_THAT(other.objects(), ElementsAre("sta", "wsmd"));
    EXPECT_EQ(
        other.signature("sta"),
        (lines{"get TABLE", "  get_all_sta_status INT32 3", "  get_all_tk_sta_status INT32 3",
               "  get_sta_mac INT32 3", "  get_sta_count INT32 3", "  get_wlan_sta_info INT32 3", "set TABLE",
               "  set_update_log_period INT32 5", "delete TABLE", "  mac INT32 3", "  radio INT32 5"}));
}

TEST_F(connecting, of_a_router_registers_its_events_and_no_subscription) {
    EXPECT_EQ(sta_ubus_object_init(), 0);
    EXPECT_EQ(log_lines(), (lines{"file: Run in function sta_ubus_object_connect!\n",
                                  "sta_ubus_object_connect: success!\n",
                                  "file: Run in function sta_sta_register_ip_change_event!\n",
                                  "file: Run in function sta_sta_register_dhcp_update_event!\n",
                                  "file: Run in function sta_sta_register_dev_mode_change_event!\n"}));
}

TEST_F(connecting, of_any_other_device_subscribes_to_the_dhcp_monitor) {
    forward_mode("AP");
    peer other;
    other.publish("dhcpmon.client.notify");
    EXPECT_EQ(sta_ubus_object_init(), 0);
    EXPECT_TRUE(loop_until([&] { return other.has_subscribers("dhcpmon.client.notify"); }));
    EXPECT_THAT(log_lines(), Not(Contains(testing::HasSubstr("Failed"))));
}

TEST_F(connecting, without_the_dhcp_monitor_tries_twice_at_once_and_goes_on) {
    forward_mode("AP");
    EXPECT_EQ(sta_ubus_object_init(), 0);
    EXPECT_EQ(log_lines(), (lines{"file: Run in function sta_ubus_object_connect!\n",
                                  "sta_ubus_object_connect: success!\n",
                                  "file: Run in function sta_sta_register_ip_change_event!\n",
                                  "file: Run in function sta_sta_register_dhcp_update_event!\n",
                                  "ERROR in sta_ubus: Failed to lookup object: Not found\n",
                                  "ERROR in sta_ubus: Failed to lookup object: Not found\n",
                                  "file: Run in function sta_sta_register_dev_mode_change_event!\n"}));
}

TEST_F(connecting, with_its_name_taken_still_registers_its_events) {
    peer other;
    other.publish("sta");
    EXPECT_EQ(sta_ubus_object_init(), 0);
    EXPECT_EQ(lines_of("sta_ubus_object_connect"), (lines{"add object fail!\n", "success!\n"}));
    EXPECT_TRUE(filed("Run in function sta_sta_register_dev_mode_change_event!\n"));
}

TEST_F(connecting, without_a_timer_is_refused) {
    EXPECT_EQ(sta_ubus_object_connect(nullptr), -1);
    EXPECT_EQ(log_lines(), (lines{"file: Run in function sta_ubus_object_connect!\n",
                                  "ERROR in sta_ubus: The parameter error.\n"}));
    EXPECT_EQ(sta_ubus_ctx, nullptr);
}

TEST_F(connecting, without_a_broker_tries_again_every_two_seconds_until_it_is_there) {
    stop_bus();
    remove("/run/ubus/ubus.sock");
    const auto start =
        std::chrono::steady_clock::now(); // before the first try: whatever takes time makes it longer
    EXPECT_EQ(sta_ubus_object_init(), 0);
    EXPECT_EQ(sta_ubus_ctx, nullptr);
    EXPECT_EQ(log_lines(),
              (lines{"file: Run in function sta_ubus_object_connect!\n",
                     "level 3 NOTICE: no bus broker answers: trying again every two seconds\n"}));
    EXPECT_TRUE(loop_until([] { return log_lines().size() == 3; }));
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GT(waited, std::chrono::milliseconds(1900));
    EXPECT_EQ(log_lines().back(), "file: Run in function sta_ubus_object_connect!\n"); // and no other line
    start_bus();
    EXPECT_TRUE(loop_until([] { return sta_ubus_ctx != nullptr; }));
    peer other;
    EXPECT_THAT(other.objects(), ElementsAre("sta", "wsmd"));
}

class log_object : public BusHouse {
protected:
    log_object() {
        type.name = object.name = "x.debug";
        object.type = &type;
    }
    ubus_object_type type{};
    ubus_object object{};
};

TEST_F(log_object, is_published_on_the_daemons_connection) {
    sta_ubus_object_init();
    EXPECT_EQ(sta_ubus_add_dbg_object(&object), 0);
    peer other;
    EXPECT_THAT(other.objects("x."), ElementsAre("x.debug"));
    disconnect_daemon();
}

TEST_F(log_object, that_comes_before_the_connection_is_published_with_it) {
    EXPECT_EQ(sta_ubus_add_dbg_object(&object), 0);
    sta_ubus_object_init();
    peer other;
    EXPECT_THAT(other.objects("x."), ElementsAre("x.debug"));
    disconnect_daemon();
}

TEST_F(log_object, that_is_missing_is_told) {
    EXPECT_EQ(sta_ubus_add_dbg_object(nullptr), -1);
    EXPECT_EQ(log_lines(), lines{"sta_ubus_add_dbg_object: dbg get ubus object fail!\n"});
}

class methods : public ConnectedHouse {
protected:
    bus_call get(const std::string &arguments) { return other.call("sta", "get", arguments); }
};

TEST_F(methods, get_without_its_first_argument_fails_without_a_reply) {
    for (const char *arguments : {"{}", "{\"get_sta_count\":\"normal_sta\"}", "{\"get_all_sta_status\":1}"}) {
        forget_log();
        const bus_call result = get(arguments);
        EXPECT_EQ(result.status, handler_failed);
        EXPECT_FALSE(result.reply);
        EXPECT_EQ(lines_of("sta_ubus_get_info_methods"),
                  (lines{"sta_ubus_get_info_methods\n", "sta_ubus_get_info_methods param:NULL\n"}));
    }
}

TEST_F(methods, get_lists_all_stations) {
    put_station(first_mac);
    put_station(second_mac, sta_status_online);
    const bus_call result = get("{\"get_all_sta_status\":\"online\"}");
    EXPECT_EQ(result.status, 0);
    ASSERT_TRUE(result.reply);
    EXPECT_EQ(result.reply->front(), "online_list ARRAY");
    EXPECT_EQ(result.reply->back(), "count STRING 2");
    EXPECT_THAT(*result.reply, Contains("    mac STRING 02:00:00:00:00:01"));
    EXPECT_EQ(lines_of("sta_ubus_get_info_methods"),
              (lines{"sta_ubus_get_info_methods\n", "sta_ubus_get_info_methods param:\"online\"\n"}));
}

TEST_F(methods, get_of_another_word_is_a_count_of_0) {
    put_station(first_mac);
    EXPECT_EQ(get("{\"get_all_sta_status\":\"all\"}").reply, lines{"count STRING 0"});
}

TEST_F(methods, get_count_is_a_number_whatever_else_is_asked) {
    put_station(first_mac);
    put_station(second_mac)->repeater_type = 1;
    const bus_call result =
        get("{\"get_all_sta_status\":\"x\",\"get_sta_count\":\"repeater_sta\",\"get_sta_mac\":\"y\","
            "\"get_wlan_sta_info\":\"stainfo\"}");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.reply, lines{"count INT32 1"});
    EXPECT_EQ(lines_of("sta_ubus_get_info_methods"),
              (lines{"sta_ubus_get_info_methods\n", "sta_ubus_get_info_methods param:\"x\"\n"}));
    EXPECT_EQ(get("{\"get_all_sta_status\":\"\",\"get_sta_count\":\"\"}").reply, lines{"count INT32 2"});
}

TEST_F(methods, get_of_one_mac_lists_it_alone) {
    put_station("02:00:00:00:00:ab");
    put_station(second_mac);
    const auto count = [&](const std::string &mac) {
        return get("{\"get_all_sta_status\":\"online\",\"get_sta_mac\":" + mac + "}").reply->back();
    };
    EXPECT_EQ(count("\"02:00:00:00:00:ab\""), "count STRING 1");
    EXPECT_TRUE(
        logged("sta_ubus_get_info_methods", "sta_ubus_get_info_methods sta_mac_param:02:00:00:00:00:ab\n"));
    EXPECT_EQ(count("\"02:00:00:00:00:AB\""), "count STRING 0");
    EXPECT_EQ(count("\"\""), "count STRING 2");
    EXPECT_EQ(count("7"), "count STRING 2"); // no text: not given
}

TEST_F(methods, get_can_be_asked_for_the_drivers_entries) {
    sta_put_text(put_station(first_mac)->ifname, "ath0");
    driver_lists({{"ath0", {table_entry(second_mac)}}});
    const bus_call result = get("{\"get_all_sta_status\":\"online\",\"get_wlan_sta_info\":\"stainfo\"}");
    ASSERT_TRUE(result.reply);
    EXPECT_EQ(result.reply->at(2), "    mac STRING 02:00:00:00:00:02");
    EXPECT_EQ(result.reply->back(), "count STRING 1");
    EXPECT_TRUE(
        logged("sta_ubus_get_info_methods", "sta_ubus_get_info_methods sta_info_param:\"stainfo\"\n"));
}

std::string numbered_mac(int number) {
    char mac[18];
    std::snprintf(mac, sizeof(mac), "02:00:00:00:%02x:%02x", (number >> 8) & 0xff, number & 0xff);
    return mac;
}

TEST_F(methods, get_of_more_stations_than_a_message_can_carry_is_an_error) {
    int stations = 0;
    std::size_t longest = 0;
    for (int status = 0; status == 0; stations += 20) {
        for (int i = 0; i < 20; ++i) put_station(numbered_mac(stations + i).c_str());
        if (stations < 600) continue; // far from the limit
        const bus_call result = get("{\"get_all_sta_status\":\"online\"}");
        status = result.status;
        if (status == 0) {
            EXPECT_EQ(result.reply->back(), "count STRING " + std::to_string(stations + 20)); // whole
            longest = result.size;
        } else {
            EXPECT_EQ(status, UBUS_STATUS_NO_MEMORY);
            EXPECT_FALSE(result.reply);
        }
        ASSERT_LT(stations, 2000);
    }
    EXPECT_GT(longest, 1048560U - 40000U);
    EXPECT_LE(longest, 1048560U);
    EXPECT_EQ(get("{\"get_all_sta_status\":\"x\",\"get_sta_count\":\"all\"}").reply,
              lines{"count INT32 " + std::to_string(stations)});
}

TEST_F(methods, get_gives_the_room_of_its_answer_back_when_nobody_asks_for_ten_seconds) {
    for (int i = 0; i < 300; ++i) put_station(numbered_mac(i).c_str());
    EXPECT_EQ(get("{\"get_all_sta_status\":\"online\"}").status, 0);
    EXPECT_GT(sta_ubus_reply_buf.buflen, 300 * 1000);
    EXPECT_GT(uloop_timeout_remaining64(&sta_bus_idle_timer), 0);
    EXPECT_LE(uloop_timeout_remaining64(&sta_bus_idle_timer), 10000);
    uloop_timeout_set(&sta_bus_idle_timer, 0); // the ten seconds are over
    EXPECT_TRUE(soon([] { return !sta_ubus_reply_buf.buf; }));
    EXPECT_EQ(get("{\"get_all_sta_status\":\"online\"}").reply->back(), "count STRING 300");
}

TEST_F(methods, set_takes_the_period_and_runs_a_log_up_at_once) {
    const bus_call result = other.call("sta", "set", "{\"set_update_log_period\":30}");
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(result.reply);
    EXPECT_EQ(sta_log_update_period, 30);
    EXPECT_EQ(log_lines().at(0), "sta_ubus_set_info_methods: sta_ubus_set_info_methods\n");
    EXPECT_EQ(log_lines().at(1), "sta_ubus_set_info_methods: update_time = 30\n");
    EXPECT_EQ(log_lines().at(2), "file: update time=30\n");
    EXPECT_THAT(log_lines(), Contains("sta_mem_dump: sta mem_total_cnt 0\n"));
    uloop_timeout_cancel(&sta_log_up_timeout);
}

TEST_F(methods, set_passes_any_number_on) {
    // Set directly and not over the bus: with this period the loop would only do log-ups.
    blob_buf arguments{};
    blob_buf_init(&arguments, 0);
    blobmsg_add_u32(&arguments, "set_update_log_period", 0xfffffffb);
    EXPECT_EQ(sta_ubus_set_info_methods(nullptr, nullptr, nullptr, "set", arguments.head), 0);
    blob_buf_free(&arguments);
    uloop_timeout_cancel(&sta_log_up_timeout);
    EXPECT_EQ(sta_log_update_period, -5);
    EXPECT_TRUE(logged("sta_ubus_set_info_methods", "update_time = -5\n"));
}

TEST_F(methods, set_without_a_number_does_nothing) {
    for (const char *arguments :
         {"{}", "{\"set_update_log_period\":\"30\"}", "{\"set_update_log_period\":4294967296}"}) {
        const bus_call result = other.call("sta", "set", arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_FALSE(result.reply);
    }
    EXPECT_EQ(sta_log_update_period, 60);
    EXPECT_EQ(log_lines(), lines(3, "sta_ubus_set_info_methods: sta_ubus_set_info_methods\n"));
}

TEST_F(methods, delete_asks_the_driver_and_leaves_the_table_alone) {
    sta_info_t *sta = put_station(first_mac);
    sta_put_text(sta->ifname, "ath0");
    driver_lists({});
    const bus_call result = other.call("sta", "delete", "{\"mac\":\"02:00:00:00:00:01\",\"radio\":0}");
    EXPECT_EQ(result.status, 0);
    EXPECT_FALSE(result.reply);
    EXPECT_THAT(driver_commands(), ElementsAre(4));
    EXPECT_THAT(stations(), ElementsAre(sta));
    EXPECT_EQ(lines_of("sta_ubus_delete_info_methods"),
              (lines{"sta_ubus_delete_info_methods\n",
                     "sta_ubus_delete_info_methods mac:02:00:00:00:00:01, radio_id:0\n",
                     "stamac = 02:00:00:00:00:01, sta_radio_id = 0, tempt_radio_id = 0\n"}));
}

TEST_F(methods, delete_of_a_stranger_or_on_another_radio_asks_nothing) {
    put_station(first_mac);
    for (const char *arguments :
         {"{\"mac\":\"02:00:00:00:00:01\",\"radio\":1}", "{\"mac\":\"02:00:00:00:00:02\",\"radio\":0}",
          "{\"mac\":\"\",\"radio\":0}", "{\"mac\":\"02:00:00:00:00:01\",\"radio\":-1}"}) {
        forget_log();
        EXPECT_EQ(other.call("sta", "delete", arguments).status, 0);
        EXPECT_EQ(lines_of("sta_ubus_delete_info_methods").back(), "sta can't find or radio doesn't match\n");
    }
    EXPECT_THAT(driver_requests(), IsEmpty());
}

TEST_F(methods, delete_without_its_arguments_does_nothing) {
    put_station(first_mac);
    for (const char *arguments :
         {"{}", "{\"mac\":\"02:00:00:00:00:01\"}", "{\"radio\":0}",
          "{\"mac\":\"02:00:00:00:00:01\",\"radio\":\"0\"}", "{\"mac\":1,\"radio\":0}"}) {
        forget_log();
        EXPECT_EQ(other.call("sta", "delete", arguments).status, 0);
        EXPECT_EQ(log_lines(), lines{"sta_ubus_delete_info_methods: sta_ubus_delete_info_methods\n"});
    }
    EXPECT_THAT(driver_requests(), IsEmpty());
}

TEST_F(methods, unknown_one_is_refused) {
    EXPECT_EQ(other.call("sta", "restart", "{}").status, UBUS_STATUS_METHOD_NOT_FOUND);
}

} // namespace
