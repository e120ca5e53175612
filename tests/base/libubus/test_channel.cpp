// Two contexts that talk without a broker.
#include <unistd.h>

#include "bus_fixture.h"

namespace {

std::vector<std::string> g_called;

int serve(ubus_context *ctx, ubus_object *obj, ubus_request_data *req, const char *method, blob_attr *msg) {
    EXPECT_EQ(obj, nullptr);
    g_called.push_back(method + json(msg));
    ubus_send_reply(ctx, req, msg);
    return 3;
}

class channel : public testing::Test {
protected:
    void SetUp() override {
        uloop_init();
        g_called.clear();
        int remote = -1;
        ASSERT_EQ(ubus_channel_create(&near_, &remote, serve), 0);
        ASSERT_EQ(ubus_channel_connect(&far_, remote, serve), 0);
        ubus_add_uloop(&near_);
        ubus_add_uloop(&far_);
    }
    void TearDown() override {
        ubus_shutdown(&near_);
        ubus_shutdown(&far_);
        uloop_done();
    }
    ubus_context near_, far_;
};

} // namespace

TEST_F(channel, carries_calls_and_answers_in_both_directions) {
    for (ubus_context *caller : {&near_, &far_}) {
        struct asked : ubus_request {
            std::string reply;
        } req;
        ASSERT_EQ(ubus_invoke_async(caller, 7, "hello", fields(R"({"x":1})"), &req), 0);
        req.data_cb = [](ubus_request *r, int, blob_attr *msg) {
            static_cast<asked *>(r)->reply = json(msg);
        };
        ubus_complete_request_async(caller, &req);
        EXPECT_TRUE(run_until([&] { return req.status_msg; }));
        EXPECT_EQ(req.status_code, 3);
        EXPECT_EQ(req.reply, R"({"x":1})");
    }
    EXPECT_EQ(g_called, (std::vector<std::string>{R"(hello{"x":1})", R"(hello{"x":1})"}));
}

TEST_F(channel, has_no_objects_subscriptions_or_events) {
    EXPECT_TRUE(ubus_context_is_channel(&near_));
    ubus_object obj{};
    ubus_subscriber s{};
    ubus_event_handler ev{};
    EXPECT_EQ(ubus_add_object(&near_, &obj), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_remove_object(&near_, &obj), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_lookup(&near_, nullptr, nullptr, nullptr), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_register_subscriber(&near_, &s), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_unregister_subscriber(&near_, &s), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_subscribe(&near_, &s, 1), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_unsubscribe(&near_, &s, 1), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_register_event_handler(&near_, &ev, "x"), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_notify(&near_, &obj, "n", nullptr, -1), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_notify(&near_, &obj, "n", nullptr, 10), UBUS_STATUS_INVALID_ARGUMENT);
    ubus_notify_request req;
    EXPECT_EQ(ubus_notify_async(&near_, &obj, "n", nullptr, &req), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_monitor_start(&near_), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_reconnect(&near_, nullptr), -1);
    EXPECT_EQ(ubus_register_acl(&near_), UBUS_STATUS_INVALID_ARGUMENT);
    for (int i = 0; i < 5; ++i) uloop_run_timeout(1);
    EXPECT_TRUE(g_called.empty()) << "nothing of this was sent";
}

TEST_F(channel, carries_an_event_as_a_call) {
    ubus_request req;
    ASSERT_EQ(
        ubus_invoke_async(&near_, UBUS_SYSTEM_OBJECT_EVENT, "send", fields(R"({"id":"e","data":{}})"), &req),
        0);
    EXPECT_TRUE(run_until([] { return !g_called.empty(); }));
    EXPECT_EQ(g_called[0], R"(send{"id":"e","data":{}})");
}

TEST_F(channel, ends_when_the_other_side_goes) {
    static bool lost;
    lost = false;
    near_.connection_lost = [](ubus_context *) { lost = true; };
    ubus_shutdown(&far_);
    EXPECT_TRUE(run_until([] { return lost; }));
}

TEST(channel_on_nothing, is_refused) {
    ubus_context ctx;
    EXPECT_EQ(ubus_channel_connect(&ctx, -1, serve), -1);
    EXPECT_EQ(ubus_channel_connect(&ctx, 12345, serve), -1);
    uloop_done();
}
