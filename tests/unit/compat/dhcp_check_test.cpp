// Asking the DHCP monitor for one client, and its answers.
#include <csignal>
#include <gmock/gmock.h>
#include <malloc.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>

#include "support/bus_house.h"

#include "compat/dhcp_check.h"
#include "model/table.h"
#include "tools/memory.h"
#include "tools/text.h"

// The linker leads the program's calls here.
extern "C" {
char *__real_blobmsg_format_json_with_cb(blob_attr *attr, bool list, blobmsg_json_format_t cb, void *priv,
                                         int indent);
char *__wrap_blobmsg_format_json_with_cb(blob_attr *attr, bool list, blobmsg_json_format_t cb, void *priv,
                                         int indent);
}

namespace {
bool g_formats = true;
}

char *__wrap_blobmsg_format_json_with_cb(blob_attr *attr, bool list, blobmsg_json_format_t cb, void *priv,
                                         int indent) {
    return g_formats ? __real_blobmsg_format_json_with_cb(attr, list, cb, priv, indent) : nullptr;
}

namespace {

using testing::Contains;
using testing::IsEmpty;
using lines = std::vector<std::string>;

constexpr const char *mac = "02:00:00:00:ab:cd";

class answer : public House {
protected:
    answer() {
        sta->name = sta_strdup("old");
        sta_put_text(sta->ip, "10.0.0.1");
    }
    void client(const std::string &json) { hand(json, &selfchk_dhcpmon_data_get_cb); }
    void deleted(const std::string &json) { hand(json, &selfchk_dhcpmon_data_del_cb); }
    void hand(const std::string &json, ubus_data_handler_t handler) {
        blob_buf buf{};
        blob_buf_init(&buf, 0);
        EXPECT_TRUE(blobmsg_add_json_from_string(&buf, json.c_str())) << json;
        ubus_request request{};
        request.priv = sta;
        handler(&request, 0, buf.head);
        blob_buf_free(&buf);
    }
    static std::string entry(const std::string &of, const std::string &ip, const std::string &name) {
        return "{\"mac\":\"" + of + "\",\"ip\":\"" + ip + "\",\"hostName\":\"" + name + "\"}";
    }
    sta_info_t *sta = put_station(mac);
};

TEST_F(answer, whose_last_client_is_the_station_gives_it_address_and_name) {
    client("{\"count\":2,\"list\":[" + entry("02:00:00:00:00:01", "10.0.0.8", "pc") + "," +
           entry(mac, "10.0.0.7", "tv") + "]}");
    EXPECT_STREQ(sta->ip, "10.0.0.7");
    EXPECT_STREQ(sta->name, "tv");
    EXPECT_GE(malloc_usable_size(sta->name), 32U);
    const lines said = lines_of("selfchk_dhcpmon_data_get_cb");
    ASSERT_EQ(said.size(), 3U);
    EXPECT_EQ(said[0], "count:2\n");
    EXPECT_TRUE(said[1].starts_with("list:["));
    EXPECT_EQ(said[2], "ip=10.0.0.7, mac=02:00:00:00:ab:cd, hostName=tv\n");
}

TEST_F(answer, for_a_repeater_gives_it_the_address_and_its_own_kind_of_name) {
    sta->repeater_type = 1;
    client("{\"count\":1,\"list\":[" + entry(mac, "10.0.0.7", "tv") + "]}");
    EXPECT_STREQ(sta->ip, "10.0.0.7");
    EXPECT_STREQ(sta->name, "wireless_repeater_abcd");
}

TEST_F(answer, with_long_texts_is_cut) {
    client("{\"count\":1,\"list\":[" + entry(mac, times(20, '1'), times(40, 'h')) + "]}");
    EXPECT_EQ(std::string(sta->ip), times(16, '1'));
    EXPECT_EQ(std::string(sta->name), times(31, 'h'));
}

TEST_F(answer, whose_last_client_is_somebody_else_changes_nothing) {
    client("{\"count\":2,\"list\":[" + entry(mac, "10.0.0.7", "tv") + "," +
           entry("02:00:00:00:00:01", "10.0.0.8", "pc") + "]}");
    client("{\"count\":0,\"list\":[]}");
    EXPECT_STREQ(sta->ip, "10.0.0.1");
    EXPECT_STREQ(sta->name, "old");
}

TEST_F(answer, with_any_bad_client_changes_nothing) {
    for (const char *bad : {"{\"ip\":\"1.1.1.1\",\"hostName\":\"h\"}", "{\"mac\":\"m\",\"hostName\":\"h\"}",
                            "{\"mac\":\"m\",\"ip\":\"1.1.1.1\"}", "{}", "7", "\"text\"", "[]"}) {
        client("{\"count\":2,\"list\":[" + std::string(bad) + "," + entry(mac, "10.0.0.7", "tv") + "]}");
        EXPECT_STREQ(sta->ip, "10.0.0.1") << bad;
        EXPECT_STREQ(sta->name, "old") << bad;
    }
    EXPECT_TRUE(logged_error("sta_ubus", "get jsondata 'mac' error ...\n"));
    EXPECT_TRUE(logged_error("sta_ubus", "get jsondata 'ip' error ...\n"));
    EXPECT_TRUE(logged_error("sta_ubus", "get jsondata 'hostName' error ...\n"));
}

TEST_F(answer, without_count_is_read_all_the_same) {
    client("{\"list\":[" + entry(mac, "10.0.0.7", "tv") + "]}");
    EXPECT_TRUE(logged_error("sta_ubus", "get jsondata 'count' error ...\n"));
    EXPECT_STREQ(sta->ip, "10.0.0.7");
}

TEST_F(answer, without_a_list_changes_nothing) {
    for (const char *json :
         {"{}", "{\"count\":1}", "{\"count\":1,\"list\":{}}", "{\"count\":1,\"list\":\"x\"}"})
        client(json);
    EXPECT_TRUE(logged_error("sta_ubus", "get jsondata 'list' error ...\n"));
    EXPECT_STREQ(sta->ip, "10.0.0.1");
}

TEST_F(answer, whose_members_are_null_changes_nothing) {
    client("{\"count\":null,\"list\":null}");
    EXPECT_EQ(log_lines(), (lines{"selfchk_dhcpmon_data_get_cb: count node is null \n",
                                  "selfchk_dhcpmon_data_get_cb: list node is null \n"}));
    EXPECT_STREQ(sta->ip, "10.0.0.1");
}

TEST_F(answer, that_cannot_be_made_text_changes_nothing) {
    g_formats = false;
    client("{\"count\":1,\"list\":[" + entry(mac, "10.0.0.7", "tv") + "]}");
    g_formats = true;
    EXPECT_EQ(log_lines(), lines{"selfchk_dhcpmon_data_get_cb: Received Dhcpmon Null\n"});
    EXPECT_STREQ(sta->ip, "10.0.0.1");
}

TEST_F(answer, without_memory_for_the_name_keeps_the_old_one) {
    fail_allocation(1);
    client("{\"count\":1,\"list\":[" + entry(mac, "10.0.0.7", "tv") + "]}");
    EXPECT_TRUE(allocation_failed());
    EXPECT_STREQ(sta->ip, "10.0.0.7");
    EXPECT_STREQ(sta->name, "old");
}

TEST_F(answer, without_a_message_or_a_station_is_ignored) {
    ubus_request request{};
    request.priv = sta;
    selfchk_dhcpmon_data_get_cb(&request, 0, nullptr);
    selfchk_dhcpmon_data_del_cb(&request, 0, nullptr);
    request.priv = nullptr;
    blob_buf buf{};
    blob_buf_init(&buf, 0);
    selfchk_dhcpmon_data_get_cb(&request, 0, buf.head);
    blob_buf_free(&buf);
    EXPECT_THAT(log_lines(), IsEmpty());
}

TEST_F(answer, to_a_deletion_is_logged) {
    deleted("{\"result\":\"ok\"}");
    deleted("{}");
    deleted("{\"result\":1}");
    EXPECT_EQ(log_lines(), (lines{"selfchk_dhcpmon_data_del_cb: del sta ok\n",
                                  "selfchk_dhcpmon_data_del_cb: Parse json failed!\n",
                                  "selfchk_dhcpmon_data_del_cb: Parse json failed!\n"}));
}

using unconnected_question = House;

TEST_F(unconnected_question, is_refused) {
    sta_info_t *sta = put_station(mac);
    EXPECT_EQ(selfchk_ubus_get_del_dhcpip(sta, 1), -1);
    EXPECT_EQ(log_lines(), lines{"selfchk_ubus_get_del_dhcpip: ubus_connect() failed\n"});
    EXPECT_EQ(selfchk_ubus_get_del_dhcpip(nullptr, 1), -1);
}

// The DHCP monitor. It is a process of its own, since the daemon blocks until its answer comes.
class monitor_process {
public:
    monitor_process() : pid(fork()) {
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            run();
            _exit(0);
        }
    }
    ~monitor_process() {
        kill(pid, SIGKILL);
        while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    monitor_process(const monitor_process &) = delete;
    monitor_process &operator=(const monitor_process &) = delete;

private:
    // Answers "client" with the MAC asked for, "del_client" with it as the result.
    static int on_call(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *method,
                       blob_attr *msg) {
        static const blobmsg_policy policy = {"mac", BLOBMSG_TYPE_STRING};
        blob_attr *asked = nullptr;
        blobmsg_parse(&policy, 1, &asked, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
        if (!asked) return UBUS_STATUS_INVALID_ARGUMENT;
        blob_buf reply{};
        blob_buf_init(&reply, 0);
        if (std::string_view{method} == "del_client") {
            blobmsg_add_string(&reply, "result", blobmsg_get_string(asked));
        } else {
            blobmsg_add_u32(&reply, "count", 1);
            void *list = blobmsg_open_array(&reply, "list");
            void *entry = blobmsg_open_table(&reply, nullptr);
            blobmsg_add_string(&reply, "mac", blobmsg_get_string(asked));
            blobmsg_add_string(&reply, "ip", "10.0.0.7");
            blobmsg_add_string(&reply, "hostName", "tv");
            blobmsg_close_table(&reply, entry);
            blobmsg_close_array(&reply, list);
        }
        ubus_send_reply(ctx, req, reply.head);
        blob_buf_free(&reply);
        return 0;
    }

    static void run() {
        ubus_context *ctx = ubus_connect(nullptr);
        if (!ctx) return;
        static ubus_method methods[2] = {};
        methods[0].name = "client";
        methods[1].name = "del_client";
        for (ubus_method &one : methods) one.handler = on_call;
        static ubus_object_type type = {"dhcpmon", 0, methods, 2};
        static ubus_object object = {};
        object.name = "dhcpmon";
        object.type = &type;
        object.methods = methods;
        object.n_methods = 2;
        ubus_add_object(ctx, &object);
        // Not the event loop: its descriptor is shared with the test.
        for (pollfd readable{ctx->sock.fd, POLLIN, 0}; poll(&readable, 1, -1) > 0;) ubus_handle_event(ctx);
    }

    pid_t pid;
};

class question : public ConnectedHouse {
protected:
    bool monitor_there() {
        return soon([&] { return !other.objects("dhcpmon").empty(); });
    }
    sta_info_t *sta = put_station(mac);
};

TEST_F(question, without_the_monitor_fails) {
    EXPECT_EQ(selfchk_ubus_get_del_dhcpip(sta, 1), -1);
    EXPECT_TRUE(logged("selfchk_ubus_get_del_dhcpip", "get ubus_lookup_id() failed\n"));
}

TEST_F(question, for_the_client_brings_address_and_name) {
    const monitor_process monitor;
    ASSERT_TRUE(monitor_there());
    EXPECT_EQ(selfchk_ubus_get_del_dhcpip(sta, 1), 0);
    EXPECT_STREQ(sta->ip, "10.0.0.7");
    EXPECT_STREQ(sta->name, "tv");
}

TEST_F(question, to_drop_the_client_logs_the_result) {
    const monitor_process monitor;
    ASSERT_TRUE(monitor_there());
    EXPECT_EQ(selfchk_ubus_get_del_dhcpip(sta, 0), 0);
    EXPECT_TRUE(logged("selfchk_dhcpmon_data_del_cb", "del sta 02:00:00:00:ab:cd\n"));
    EXPECT_STREQ(sta->ip, "");
}

TEST_F(question, of_any_other_kind_only_looks_the_monitor_up) {
    EXPECT_EQ(selfchk_ubus_get_del_dhcpip(sta, 2), -1);
    const monitor_process monitor;
    ASSERT_TRUE(monitor_there());
    forget_log();
    EXPECT_EQ(selfchk_ubus_get_del_dhcpip(sta, 2), 0);
    EXPECT_THAT(log_lines(), IsEmpty());
}

} // namespace
