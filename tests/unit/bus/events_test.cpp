// What the daemon listens to: events, and the DHCP monitor's client list.
#include <gmock/gmock.h>

#include "support/bus_house.h"

#include "bus/events.h"
#include "inputs/dhcpmon_list.h"
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
constexpr const char *monitor = "dhcpmon.client.notify";

// A message as the library hands it to a handler.
class message {
public:
    explicit message(const std::string &json) {
        blob_buf_init(&buf, 0);
        EXPECT_TRUE(blobmsg_add_json_from_string(&buf, json.c_str())) << json;
    }
    ~message() { blob_buf_free(&buf); }
    message(const message &) = delete;
    message &operator=(const message &) = delete;
    operator blob_attr *() { return buf.head; }

private:
    blob_buf buf{};
};

lines entries() {
    lines all;
    list_head *at = nullptr;
    list_for_each (at, &dhcpmon_list) {
        const auto *entry = reinterpret_cast<const dhcpmon_entry *>(at);
        all.push_back(std::string(entry->mac) + " " + entry->ip + " " + entry->hostName);
    }
    return all;
}

class address_event : public House {
protected:
    // The error that an event ends with.
    static std::string error_of(const std::string &json) {
        forget_log();
        message text{json};
        sta_sta_ip_change_event_cb(nullptr, nullptr, "ip_change", text);
        EXPECT_EQ(log_lines().at(0), "sta_sta_ip_change_event_cb: Receive ip change event.\n");
        EXPECT_EQ(log_lines().size(), 2U) << json;
        return log_lines().back();
    }
    sta_info_t *sta = put_station(first_mac, sta_status_online);
};

TEST_F(address_event, moves_the_station) {
    message text{"{\"mac\":\"02:00:00:00:00:01\",\"before_ip\":\"10.0.0.1\",\"changed_ip\":\"10.0.0.2\"}"};
    sta_sta_ip_change_event_cb(nullptr, nullptr, "ip_change", text);
    EXPECT_STREQ(sta->ip, "10.0.0.2");
}

TEST_F(address_event, without_a_member_is_refused) {
    EXPECT_EQ(error_of("{}"), "ERROR in sta_ubus: Parse sta_mac failed!\n");
    EXPECT_EQ(error_of("{\"before_ip\":\"10.0.0.1\",\"changed_ip\":\"10.0.0.2\"}"),
              "ERROR in sta_ubus: Parse sta_mac failed!\n");
    EXPECT_EQ(error_of("{\"mac\":1,\"before_ip\":\"10.0.0.1\",\"changed_ip\":\"10.0.0.2\"}"),
              "ERROR in sta_ubus: Parse sta_mac failed!\n");
    EXPECT_EQ(error_of("{\"mac\":\"02:00:00:00:00:01\",\"changed_ip\":\"10.0.0.2\"}"),
              "ERROR in sta_ubus: Parse sta_before_ip failed!\n");
    EXPECT_EQ(error_of("{\"mac\":\"short\",\"before_ip\":\"1\"}"),
              "ERROR in sta_ubus: Parse sta_changed_ip failed!\n");
}

TEST_F(address_event, with_a_short_member_is_refused) {
    const auto event = [](const char *mac, const char *before, const char *changed) {
        return std::string("{\"mac\":\"") + mac + "\",\"before_ip\":\"" + before + "\",\"changed_ip\":\"" +
               changed + "\"}";
    };
    EXPECT_EQ(error_of(event("020000000001", "10.0.0.1", "10.0.0.2")),
              "ERROR in sta_ubus: The parameter mac error.\n");
    EXPECT_EQ(error_of(event(first_mac, "1.1.1.", "10.0.0.2")),
              "ERROR in sta_ubus: The parameter before_ip error.\n");
    EXPECT_EQ(error_of(event(first_mac, "10.0.0.1", "")),
              "ERROR in sta_ubus: The parameter changed_ip error.\n");
    EXPECT_EQ(error_of(event(first_mac, "10.0.0.1", "0.0.0.0")),
              "sta_sta_ip_change_event_cb: changed_ip is 0.0.0.0.\n");
    EXPECT_EQ(error_of(event(first_mac, "0.0.0.0", "10.0.0.2")),
              "sta_sta_ip_change_event_cb: before_ip is 0.0.0.0.\n");
    EXPECT_EQ(error_of(event(first_mac, "0.0.0.0", "0.0.0.0")),
              "sta_sta_ip_change_event_cb: changed_ip is 0.0.0.0.\n");
    EXPECT_STREQ(sta->ip, "");
}

TEST_F(address_event, without_a_message_is_refused) {
    sta_sta_ip_change_event_cb(nullptr, nullptr, "ip_change", nullptr);
    sta_sta_dhcp_update_event_cb(nullptr, nullptr, "dhcp_client_update", nullptr);
    sta_sta_dev_mode_change_event_cb(nullptr, nullptr, "dev_mode", nullptr);
    EXPECT_TRUE(logged_error("sta_ubus", "Parse sta_mac failed!\n"));
    EXPECT_TRUE(logged_error("sta_ubus", "Parse forwardMode failed!\n"));
}

class update_event : public House {
protected:
    static std::string error_of(const std::string &json) {
        forget_log();
        message text{json};
        sta_sta_dhcp_update_event_cb(nullptr, nullptr, "dhcp_client_update", text);
        EXPECT_EQ(log_lines().at(0), "sta_sta_dhcp_update_event_cb: dhcp update event is send\n");
        EXPECT_EQ(log_lines().size(), 2U) << json;
        return log_lines().back();
    }
    sta_info_t *sta = put_station(first_mac);
};

TEST_F(update_event, gives_the_station_address_and_name) {
    collector box;
    message text{"{\"mac\":\"02:00:00:00:00:01\",\"ip\":\"10.0.0.2\",\"hostName\":\"phone\"}"};
    sta_sta_dhcp_update_event_cb(nullptr, nullptr, "dhcp_client_update", text);
    EXPECT_STREQ(sta->ip, "10.0.0.2");
    EXPECT_STREQ(sta->name, "phone");
    EXPECT_THAT(box.kinds(), ElementsAre(1));
}

TEST_F(update_event, that_is_bad_is_refused) {
    EXPECT_EQ(error_of("{}"), "ERROR in sta_ubus: Parse sta_mac failed!\n");
    EXPECT_EQ(error_of("{\"mac\":\"short\"}"), "ERROR in sta_ubus: The parameter mac error.\n");
    EXPECT_EQ(error_of("{\"mac\":\"02:00:00:00:00:01\"}"), "ERROR in sta_ubus: Parse sta_mac failed!\n");
    EXPECT_EQ(error_of("{\"mac\":\"02:00:00:00:00:01\",\"ip\":\"1.1.1\"}"),
              "ERROR in sta_ubus: The parameter ip error.\n");
    EXPECT_EQ(error_of("{\"mac\":\"02:00:00:00:00:01\",\"ip\":\"0.0.0.0\"}"),
              "sta_sta_dhcp_update_event_cb: sta_sta_dhcp_update_event_cb:ip is 0.0.0.0.\n");
    EXPECT_EQ(error_of("{\"mac\":\"02:00:00:00:00:01\",\"ip\":\"1.1.1.1\"}"),
              "ERROR in sta_ubus: Parse sta_mac failed!\n");
    EXPECT_EQ(error_of("{\"mac\":\"02:00:00:00:00:01\",\"ip\":\"1.1.1.1\",\"hostName\":7}"),
              "ERROR in sta_ubus: Parse sta_mac failed!\n");
    EXPECT_STREQ(sta->ip, "");
}

class client_list : public House {
protected:
    client_list() {
        sta_sta_get_dhcpmon_list_by_ubus("10.0.0.99", "old", "02:00:00:00:00:99");
        forget_log();
    }
    static constexpr const char *old_entry = "02:00:00:00:00:99 10.0.0.99 old";
    static constexpr const char *a =
        "{\"mac\":\"02:00:00:00:00:0a\",\"ip\":\"10.0.0.10\",\"hostName\":\"one\"}";
    static constexpr const char *b =
        "{\"mac\":\"02:00:00:00:00:0b\",\"ip\":\"10.0.0.11\",\"hostName\":\"two\"}";
    static constexpr const char *entry_a = "02:00:00:00:00:0a 10.0.0.10 one";
    static constexpr const char *entry_b = "02:00:00:00:00:0b 10.0.0.11 two";

    // A list of `count` (JSON text) with these entries.
    static std::string list(const std::string &count, const std::vector<std::string> &clients) {
        std::string text;
        for (const std::string &one : clients) text += (text.empty() ? "" : ",") + one;
        return "{\"count\":" + count + ",\"list\":[" + text + "]}";
    }
    static lines errors() {
        lines found;
        for (const std::string &line : log_lines())
            if (line.starts_with("ERROR in sta_ubus: ")) found.push_back(line.substr(19));
        return found;
    }
};

TEST_F(client_list, replaces_the_one_before) {
    const std::string text = list("2", {a, b});
    EXPECT_EQ(sta_ubus_json_parse(text.c_str()), 0);
    EXPECT_EQ(entries(), (lines{entry_a, entry_b}));
    EXPECT_EQ(
        log_lines(),
        (lines{"sta_sta_empty_dhcpmon_list: To empty the dhcpmon_list\n",
               "sta_ubus_json_parse: data=" + text + "\n",
               "sta_ubus_json_parse: ip=10.0.0.10, mac=02:00:00:00:00:0a, hostName=one\n",
               "sta_sta_get_dhcpmon_list_by_ubus: ip=10.0.0.10, mac=02:00:00:00:00:0a, hostName=one\n",
               "sta_ubus_json_parse: ip=10.0.0.11, mac=02:00:00:00:00:0b, hostName=two\n",
               "sta_sta_get_dhcpmon_list_by_ubus: ip=10.0.0.11, mac=02:00:00:00:00:0b, hostName=two\n"}));
}

TEST_F(client_list, is_read_as_far_as_its_count_says) {
    for (const auto &[count, expected] : std::vector<std::pair<std::string, lines>>{{"1", {entry_a}},
                                                                                    {"0", {}},
                                                                                    {"-1", {}},
                                                                                    {"\"2\"", {}},
                                                                                    {"1.9", {entry_a}},
                                                                                    {"true", {}},
                                                                                    {"[1]", {}},
                                                                                    {"{}", {}}}) {
        EXPECT_EQ(sta_ubus_json_parse(list(count, {a, b}).c_str()), 0) << count;
        EXPECT_EQ(entries(), expected) << count;
        EXPECT_THAT(errors(), IsEmpty()) << count;
    }
}

TEST_F(client_list, of_a_megabyte_is_taken_whole) {
    constexpr std::size_t clients = 20000;
    const std::string text = list(std::to_string(clients), std::vector<std::string>(clients, a));
    ASSERT_GT(text.size(), std::size_t{1} << 20);
    EXPECT_EQ(sta_ubus_json_parse(text.c_str()), 0);
    EXPECT_EQ(entries(), lines(clients, entry_a));
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(client_list, with_a_count_beyond_its_entries_takes_what_is_there) {
    for (const char *count : {"3", "2147483647"}) {
        forget_log();
        EXPECT_EQ(sta_ubus_json_parse(list(count, {a, b}).c_str()), -1);
        EXPECT_EQ(entries(), (lines{entry_a, entry_b}));
        EXPECT_EQ(errors(), lines{"get jsondata 'mac' error ...\n"});
    }
}

TEST_F(client_list, without_count_or_list_leaves_the_old_one) {
    const std::vector<std::pair<std::string, std::string>> bad = {
        {"{\"list\":[]}", "count"},
        {"{\"count\":null,\"list\":[]}", "count"},
        {"{}", "count"},
        {"[]", "count"},
        {"7", "count"},
        {"\"text\"", "count"},
        {"{\"count\":1}", "list"},
        {"{\"count\":1,\"list\":null}", "list"},
        {"{\"count\":1,\"list\":{}}", "list"},
        {"{\"count\":1,\"list\":\"text\"}", "list"},
        {"{\"count\":1,\"list\":7}", "list"},
    };
    for (const auto &[text, missing] : bad) {
        forget_log();
        EXPECT_EQ(sta_ubus_json_parse(text.c_str()), -1) << text;
        EXPECT_EQ(entries(), lines{old_entry}) << text;
        EXPECT_EQ(errors(), lines{"get jsondata '" + missing + "' error ...\n"}) << text;
    }
}

TEST_F(client_list, that_is_no_json_leaves_the_old_one) {
    for (const char *text : {"", "hello", "{", "{\"count\":1,\"list\":[", "null", "\xff\xfe"}) {
        EXPECT_EQ(sta_ubus_json_parse(text), -1) << text;
        EXPECT_EQ(entries(), lines{old_entry}) << text;
    }
    EXPECT_EQ(sta_ubus_json_parse(nullptr), -1);
    EXPECT_EQ(sta_ubus_json_parse((times(100, '[') + times(100, ']')).c_str()), -1); // too deep
    EXPECT_THAT(errors(), IsEmpty());
    EXPECT_EQ(entries(), lines{old_entry});
}

TEST_F(client_list, ends_at_a_bad_entry_and_keeps_those_before_it) {
    const std::vector<std::pair<std::string, std::string>> bad = {
        {"{\"ip\":\"1.1.1.1\",\"hostName\":\"h\"}", "mac"},
        {"{\"mac\":null,\"ip\":\"1.1.1.1\",\"hostName\":\"h\"}", "mac"},
        {"{\"mac\":\"m\",\"hostName\":\"h\"}", "ip"},
        {"{\"mac\":\"m\",\"ip\":null,\"hostName\":\"h\"}", "ip"},
        {"{\"mac\":\"m\",\"ip\":\"1.1.1.1\"}", "hostName"},
        {"{\"mac\":\"m\",\"ip\":\"1.1.1.1\",\"hostName\":null}", "hostName"},
        {"null", "mac"},
        {"[]", "mac"},
        {"7", "mac"},
        {"\"text\"", "mac"},
    };
    for (const auto &[client, missing] : bad) {
        forget_log();
        EXPECT_EQ(sta_ubus_json_parse(list("3", {a, client, b}).c_str()), -1) << client;
        EXPECT_EQ(entries(), lines{entry_a}) << client;
        EXPECT_EQ(errors(), lines{"get jsondata '" + missing + "' error ...\n"}) << client;
    }
}

TEST_F(client_list, cuts_long_texts_and_takes_what_is_no_text_as_it_is_written) {
    const std::string client = "{\"mac\":\"" + times(25, 'm') + "\",\"ip\":\"" + times(20, '1') +
                               "\",\"hostName\":\"" + times(40, 'h') + "\"}";
    EXPECT_EQ(sta_ubus_json_parse(list("2", {client, "{\"mac\":1,\"ip\":true,\"hostName\":[2]}"}).c_str()),
              0);
    ASSERT_EQ(entries().size(), 2U);
    EXPECT_EQ(entries()[0], times(19, 'm') + " " + times(16, '1') + " " + times(31, 'h'));
    EXPECT_THAT(entries()[1], testing::StartsWith("1 true ["));
}

TEST_F(client_list, goes_on_without_memory_for_an_entry) {
    fail_allocation(1);
    sta_ubus_json_parse(list("2", {a, b}).c_str());
    EXPECT_TRUE(allocation_failed());
    EXPECT_EQ(entries(), lines{entry_b});
}

TEST_F(client_list, comes_as_text_in_a_notification) {
    message text{"{\"data\":\"{\\\"count\\\":1,\\\"list\\\":[{\\\"mac\\\":\\\"m\\\",\\\"ip\\\":\\\"i\\\","
                 "\\\"hostName\\\":\\\"h\\\"}]}\"}"};
    EXPECT_EQ(sta_ubus_dhcpdump_notify_cb(nullptr, nullptr, nullptr, "whatever", text), 0);
    EXPECT_EQ(entries(), lines{"m i h"});
}

TEST_F(client_list, missing_in_a_notification_leaves_the_old_one) {
    for (const char *json : {"{}", "{\"data\":7}", "{\"data\":\"\"}", "{\"other\":\"{}\"}"}) {
        message text{json};
        EXPECT_EQ(sta_ubus_dhcpdump_notify_cb(nullptr, nullptr, nullptr, "notify", text), 0);
        EXPECT_EQ(entries(), lines{old_entry}) << json;
    }
    EXPECT_EQ(sta_ubus_dhcpdump_notify_cb(nullptr, nullptr, nullptr, "notify", nullptr), 0);
    EXPECT_EQ(entries(), lines{old_entry});
}

class subscription : public ConnectedHouse {
protected:
    bool subscribed() {
        return soon([&] { return other.has_subscribers(monitor); });
    }
    void mode(const std::string &name) { other.send_event("dev_mode", "{\"forwardMode\":\"" + name + "\"}"); }
    bool heard(const std::string &line) {
        return soon([&] {
            const lines all = log_lines();
            return std::find(all.begin(), all.end(), line) != all.end();
        });
    }
};

TEST_F(subscription, is_made_when_the_device_ceases_to_be_a_router) {
    other.publish(monitor);
    mode("AP");
    EXPECT_TRUE(subscribed());
    EXPECT_EQ(log_lines(), (lines{"file: call back dev_mode change!!\n",
                                  "sta_sta_dev_mode_change_event_cb: Receive ip change event.\n",
                                  "file: Change Mode To AP!\n"}));
    other.notify(monitor,
                 "{\"data\":\"{\\\"count\\\":1,\\\"list\\\":[{\\\"mac\\\":\\\"m\\\",\\\"ip\\\":\\\"i\\\","
                 "\\\"hostName\\\":\\\"h\\\"}]}\"}");
    EXPECT_TRUE(soon([] { return entries() == lines{"m i h"}; }));
}

TEST_F(subscription, is_not_made_by_a_router_nor_by_an_event_without_a_mode) {
    other.publish(monitor);
    mode("ROUTER");
    ASSERT_TRUE(heard("sta_sta_dev_mode_change_event_cb: Receive ip change event.\n"));
    EXPECT_THAT(log_lines(), Not(Contains("file: Change Mode To ROUTER!\n")));
    other.send_event("dev_mode", "{\"forwardMode\":1}");
    EXPECT_TRUE(heard("ERROR in sta_ubus: Parse forwardMode failed!\n"));
    EXPECT_FALSE(other.has_subscribers(monitor));
}

TEST_F(subscription, asked_for_again_and_again_notifies_once) {
    other.publish(monitor);
    for (int i = 0; i < 5; ++i) mode("AP " + std::to_string(i));
    ASSERT_TRUE(heard("file: Change Mode To AP 4!\n"));
    ASSERT_TRUE(subscribed());
    forget_log();
    other.notify(monitor, "{\"data\":\"{}\"}");
    other.notify(monitor, "{\"data\":\"[]\"}");
    const std::string error = "ERROR in sta_ubus: get jsondata 'count' error ...\n";
    EXPECT_TRUE(soon([] { return log_lines().size() >= 2; }));
    EXPECT_EQ(log_lines(), (lines{error, error})); // one for each notification
}

TEST_F(subscription, is_tried_every_three_seconds_until_the_monitor_is_there) {
    mode("AP");
    const std::string error = "ERROR in sta_ubus: Failed to lookup object: Not found\n";
    const auto start =
        std::chrono::steady_clock::now(); // before the first try: whatever takes time makes it longer
    ASSERT_TRUE(heard(error));
    EXPECT_TRUE(soon([&] {
        const lines all = log_lines();
        return std::count(all.begin(), all.end(), error) == 2;
    }));
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GT(waited, std::chrono::milliseconds(2900));
    other.publish(monitor);
    EXPECT_TRUE(subscribed());
}

TEST_F(subscription, that_the_broker_refuses_fails) {
    ubus_object_type type{};
    type.name = monitor;
    ubus_object own{}; // an object cannot subscribe to itself
    own.name = monitor;
    own.type = &type;
    ASSERT_EQ(ubus_add_object(sta_ubus_ctx, &own), 0);
    EXPECT_NE(sta_ubus_dhcpdump_subscribe(), 0);
    EXPECT_EQ(log_lines(), lines{"ERROR in sta_ubus: Failed to subscribe: Invalid argument\n"});
    EXPECT_EQ(ubus_remove_object(sta_ubus_ctx, &own), 0);
}

TEST_F(subscription, without_a_broker_is_refused) {
    stop_bus();
    EXPECT_NE(sta_ubus_dhcpdump_subscribe(), 0);
    EXPECT_EQ(log_lines(), lines{"ERROR in sta_ubus: Failed to add watch handler: Invalid argument\n"});
}

TEST_F(subscription, is_made_again_when_the_monitor_comes_back) {
    other.publish(monitor);
    mode("AP");
    ASSERT_TRUE(subscribed());
    other.take_back(monitor);
    EXPECT_TRUE(heard("sta_ubus_dhcpdump_server_remove_cb: Server remove dhcpdump ubus.\n"));
    EXPECT_TRUE(heard("ERROR in sta_ubus: Failed to lookup object: Not found\n"));
    other.publish(monitor);
    EXPECT_TRUE(subscribed());
}

TEST_F(subscription, events_of_the_bus_reach_the_station) {
    sta_info_t *sta = put_station(first_mac, sta_status_online);
    other.send_event("ip_change",
                     "{\"mac\":\"02:00:00:00:00:01\",\"before_ip\":\"10.0.0.1\",\"changed_ip\":\"10.0.0.2\","
                     "\"changed_time\":\"2025-05-03 07:04:09\"}");
    EXPECT_TRUE(soon([&] { return std::string(sta->ip) == "10.0.0.2"; }));
    other.send_event("dhcp_client_update",
                     "{\"mac\":\"02:00:00:00:00:01\",\"ip\":\"10.0.0.3\",\"hostName\":\"tv\"}");
    EXPECT_TRUE(soon([&] { return std::string(sta->ip) == "10.0.0.3"; }));
    EXPECT_STREQ(sta->name, "tv");
}

} // namespace
