// Connecting, losing the connection, coming back.
#include <fcntl.h>
#include <unistd.h>

#include "bus_fixture.h"

namespace {

int g_lost;
void count_loss(ubus_context *) { ++g_lost; }

struct completion {
    ubus_request req{};
    int calls = 0;
    int status = -1000;
};

void on_complete(ubus_request *req, int status) {
    auto *c = container_of(req, completion, req);
    ++c->calls;
    c->status = status;
}

const ubus_method no_methods[] = {UBUS_METHOD_NOARG("none", nullptr)};
ubus_object_type g_type = UBUS_OBJECT_TYPE("test", no_methods);

ubus_object named(const char *name) {
    ubus_object obj{};
    obj.name = name;
    obj.type = &g_type;
    return obj;
}

class connection : public bus_test {
protected:
    void SetUp() override {
        bus_test::SetUp();
        g_lost = 0;
        g_type.id = 0;
    }
};

class greeting : public testing::Test {};

} // namespace

TEST_F(greeting, may_arrive_in_pieces) {
    scripted_broker broker([](conversation &c) {
        c.say({0, 0, 0, 0, 0x12});
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        c.say({0x34, 0x56, 0x78, 0, 0, 0, 4});
        EXPECT_TRUE(c.is_left());
    });
    ubus_context *ctx = ubus_connect(broker.socket().c_str());
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(ctx->local_id, cpu_to_be32(0x12345678)) << "as the bytes came";
    ubus_free(ctx);
}

TEST_F(greeting, may_have_a_body) {
    scripted_broker broker([](conversation &c) {
        c.say({0, 0, 0, 0, 0, 0, 8, 8, 0, 0, 0, 12, 1, 0, 0, 8, 0, 0, 0, 0});
        EXPECT_TRUE(c.is_left());
    });
    ubus_context *ctx = ubus_connect(broker.socket().c_str());
    EXPECT_NE(ctx, nullptr);
    ubus_free(ctx);
}

TEST_F(greeting, that_is_none_is_refused) {
    const bytes wrong[] = {
        {1, 0, 0, 0, 0x12, 0x34, 0x56, 0x78, 0, 0, 0, 4}, // version
        {0, 1, 0, 0, 0x12, 0x34, 0x56, 0x78, 0, 0, 0, 4}, // type
        {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 4},             // nobody's id
        {0, 0, 0, 0, 0x12, 0x34, 0x56, 0x78, 0, 0, 0, 3}, // length
        {0, 0, 0, 0, 0x12},                               // the end
    };
    for (const bytes &data : wrong) {
        scripted_broker broker([&data](conversation &c) { c.say(data); });
        EXPECT_EQ(ubus_connect(broker.socket().c_str()), nullptr);
    }
}

TEST_F(greeting, of_nobody_is_a_failure) {
    temporary_folder folder;
    ubus_context ctx;
    EXPECT_EQ(ubus_connect(folder.file("nobody").c_str()), nullptr);
    EXPECT_EQ(ubus_connect(std::string(300, 'x').c_str()), nullptr);
    EXPECT_EQ(ubus_connect_ctx(&ctx, folder.file("nobody").c_str()), -1);
    EXPECT_EQ(ubus_reconnect(&ctx, folder.file("nobody").c_str()), UBUS_STATUS_CONNECTION_FAILED);
    ubus_shutdown(&ctx);
}

TEST_F(greeting, that_is_wrong_keeps_the_context_for_another_try) {
    scripted_broker wrong([](conversation &c) { c.say({0, 1, 0, 0, 0, 0, 0, 9, 0, 0, 0, 4}); });
    scripted_broker right([](conversation &c) {
        c.greet();
        EXPECT_TRUE(c.is_left());
    });
    ubus_context ctx;
    EXPECT_EQ(ubus_connect_ctx(&ctx, wrong.socket().c_str()), -1);
    EXPECT_EQ(ubus_reconnect(&ctx, right.socket().c_str()), 0);
    ubus_shutdown(&ctx);
}

TEST(status_text, covers_all_numbers) {
    const char *const texts[] = {"Success",
                                 "Invalid command",
                                 "Invalid argument",
                                 "Method not found",
                                 "Not found",
                                 "No response",
                                 "Permission denied",
                                 "Request timed out",
                                 "Operation not supported",
                                 "Unknown error",
                                 "Connection failed",
                                 "Out of memory",
                                 "Parsing message data failed",
                                 "System error"};
    for (int i = 0; i < 14; ++i) EXPECT_STREQ(ubus_strerror(i), texts[i]);
    EXPECT_STREQ(ubus_strerror(14), "Unknown error: 14");
    EXPECT_STREQ(ubus_strerror(-1), "Unknown error: -1");
    EXPECT_STREQ(ubus_strerror(INT32_MIN), "Unknown error: -2147483648");
}

TEST(common_beginning, is_measured_up_to_the_first_difference) {
    int len = -1;
    EXPECT_TRUE(ubus_strmatch_len("same", "same", &len));
    EXPECT_EQ(len, 4);
    EXPECT_FALSE(ubus_strmatch_len("ab", "abc", &len));
    EXPECT_EQ(len, 2);
    EXPECT_FALSE(ubus_strmatch_len("", "x", &len));
    EXPECT_EQ(len, 0);
}

TEST_F(connection, is_close_on_exec_and_does_not_block) {
    client one(bus());
    EXPECT_TRUE(fcntl(one->sock.fd, F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(fcntl(one->sock.fd, F_GETFL) & O_NONBLOCK);
}

TEST_F(connection, lost_while_idle_ends_what_waits_and_tells_once) {
    client one(bus()), two(bus());
    ubus_object obj = named("callee");
    ASSERT_EQ(ubus_add_object(two, &obj), 0);
    completion call;
    ASSERT_EQ(ubus_invoke_async(one, obj.id, "none", nullptr, &call.req), 0);
    call.req.complete_cb = on_complete;
    ubus_complete_request_async(one, &call.req);
    one->connection_lost = two->connection_lost = count_loss;

    kill_broker();
    EXPECT_TRUE(run_until([] { return g_lost == 2; }));
    EXPECT_EQ(call.calls, 1);
    EXPECT_EQ(call.status, UBUS_STATUS_TIMEOUT);
    for (int i = 0; i < 10; ++i) uloop_run_timeout(0);
    EXPECT_EQ(g_lost, 2);
    EXPECT_FALSE(one->sock.registered) << "nothing to wake up for";
}

TEST_F(connection, lost_while_idle_does_not_end_the_loop) {
    client one(bus());
    kill_broker();
    EXPECT_TRUE(run_until([&] { return one->sock.fd < 0; }));
    EXPECT_FALSE(uloop_cancelled);
}

TEST_F(connection, lost_during_a_call_fails_the_call_and_ends_the_loop) {
    scripted_broker broker([](conversation &c) {
        c.greet();
        c.hear();
    });
    client one(broker.socket());
    EXPECT_EQ(ubus_invoke(one, 1234, "m", nullptr, nullptr, nullptr, 0), UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_TRUE(uloop_cancelled);
    uloop_cancelled = false;
}

TEST_F(connection, that_breaks_within_a_message_is_lost_at_once) {
    scripted_broker broker([](conversation &c) {
        c.greet();
        EXPECT_FALSE(c.is_left()) << "the message begins, and nobody reads on";
    });
    client one(broker.socket());
    one->connection_lost = count_loss;
    completion other;
    other.req.complete_cb = on_complete;
    ubus_complete_request_async(one, &other.req);
    const fields large(R"({"text":")" + std::string(900000, 'x') + R"("})");
    EXPECT_EQ(ubus_invoke(one, 1234, "m", large, nullptr, nullptr, 0), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_LT(one->sock.fd, 0) << "the next message would be taken for the rest of this one";
    EXPECT_EQ(g_lost, 1);
    EXPECT_EQ(other.status, UBUS_STATUS_TIMEOUT);
}

TEST_F(connection, that_is_dead_refuses_requests) {
    client one(bus());
    one->connection_lost = count_loss;
    ubus_object obj = named("obj");
    ASSERT_EQ(ubus_add_object(one, &obj), 0);
    completion late;
    ASSERT_EQ(ubus_invoke_async(one, 1, "send", nullptr, &late.req), 0);
    late.req.complete_cb = on_complete;
    kill_broker();
    EXPECT_TRUE(run_until([] { return g_lost == 1; }));

    ubus_request req;
    ubus_object other = named("other");
    EXPECT_EQ(ubus_invoke(one, 1, "m", nullptr, nullptr, nullptr, 0), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_invoke_async(one, 1, "m", nullptr, &req), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_lookup(one, nullptr, nullptr, nullptr), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_add_object(one, &other), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_remove_object(one, &obj), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_send_event(one, "e", fields()), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_notify(one, &obj, "n", nullptr, -1), UBUS_STATUS_OK);
    EXPECT_EQ(ubus_notify(one, &obj, "n", nullptr, 100), UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(ubus_complete_request(one, &req, 100), UBUS_STATUS_CONNECTION_FAILED);
    ubus_complete_request_async(one, &late.req);
    EXPECT_EQ(late.status, UBUS_STATUS_TIMEOUT) << "nobody will ever answer it";
    EXPECT_EQ(g_lost, 1);
}

TEST_F(connection, comes_back_with_its_objects_but_not_its_patterns) {
    client one(bus());
    one->connection_lost = count_loss;
    ubus_object a = named("a"), b = named("b");
    ubus_event_handler events{};
    ASSERT_EQ(ubus_add_object(one, &a), 0);
    ASSERT_EQ(ubus_add_object(one, &b), 0);
    ASSERT_EQ(ubus_register_event_handler(one, &events, "*"), 0);
    const std::uint32_t old[] = {a.id, b.id, events.obj.id, g_type.id};

    kill_broker();
    EXPECT_TRUE(run_until([] { return g_lost == 1; }));
    EXPECT_EQ(ubus_reconnect(one, bus().c_str()), UBUS_STATUS_CONNECTION_FAILED);
    start_broker();
    EXPECT_EQ(ubus_reconnect(one, bus().c_str()), 0);
    EXPECT_FALSE(one->sock.registered);

    std::uint32_t id = 0;
    client two(bus());
    EXPECT_EQ(ubus_lookup_id(two, "a", &id), 0);
    EXPECT_EQ(id, a.id);
    EXPECT_EQ(ubus_lookup_id(two, "b", &id), 0);
    EXPECT_EQ(id, b.id);
    EXPECT_NE(a.id, old[0]);
    EXPECT_NE(b.id, old[1]);
    EXPECT_NE(events.obj.id, old[2]);
    EXPECT_NE(g_type.id, old[3]);
    EXPECT_EQ(one->objects.count, 3u);
    EXPECT_EQ(ubus_remove_object(one, &a), 0);
    EXPECT_EQ(ubus_register_event_handler(one, &events, "*"), 0);
}

TEST_F(connection, comes_back_without_what_was_removed_meanwhile) {
    client one(bus());
    one->connection_lost = count_loss;
    ubus_object obj = named("obj");
    ubus_event_handler events{};
    ubus_subscriber automatic{};
    automatic.new_obj_cb = [](ubus_context *, ubus_subscriber *, const char *) { return false; };
    ASSERT_EQ(ubus_add_object(one, &obj), 0);
    ASSERT_EQ(ubus_register_event_handler(one, &events, "*"), 0);
    ASSERT_EQ(ubus_register_subscriber(one, &automatic), 0);
    kill_broker();
    EXPECT_TRUE(run_until([] { return g_lost == 1; }));

    EXPECT_EQ(ubus_remove_object(one, &obj), UBUS_STATUS_INVALID_ARGUMENT)
        << "the broker does not hear of it";
    EXPECT_EQ(ubus_unregister_event_handler(one, &events), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_unregister_subscriber(one, &automatic), UBUS_STATUS_INVALID_ARGUMENT);
    ASSERT_EQ(one->objects.count, 1u) << "the context's own handler of new objects";
    EXPECT_TRUE(list_empty(&one->auto_subscribers));
    EXPECT_EQ(obj.id, 0u);

    start_broker();
    EXPECT_EQ(ubus_reconnect(one, bus().c_str()), 0);
    std::uint32_t id = 0;
    EXPECT_EQ(ubus_lookup_id(one, "obj", &id), UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(ubus_add_object(one, &obj), 0);
    EXPECT_EQ(ubus_lookup_id(one, "obj", &id), 0);
    EXPECT_EQ(id, obj.id) << "nobody sees an object with a type of the old broker";
}

TEST_F(connection, lost_while_an_object_is_removed_does_not_bring_it_back) {
    scripted_broker broker([](conversation &c) {
        c.greet();
        const bytes request = c.hear();
        c.answer(request, {0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 12, 3, 0, 0, 8, 0, 0, 0, 101});
        c.confirm(request);
        c.hear();
    });
    client one(broker.socket());
    one->connection_lost = count_loss;
    ubus_object obj = named("obj");
    ASSERT_EQ(ubus_add_object(one, &obj), 0);
    EXPECT_EQ(ubus_remove_object(one, &obj), UBUS_STATUS_CONNECTION_FAILED);
    EXPECT_EQ(one->objects.count, 0u);
}

TEST_F(connection, lost_again_while_coming_back_keeps_all_objects_for_the_next_time) {
    ubus_object a = named("a"), b = named("b");
    client one(bus());
    one->connection_lost = count_loss;
    ASSERT_EQ(ubus_add_object(one, &a), 0);
    ASSERT_EQ(ubus_add_object(one, &b), 0);
    {
        scripted_broker dying([](conversation &c) {
            c.greet();
            c.hear(); // the first of the objects
        });
        EXPECT_EQ(ubus_reconnect(one, dying.socket().c_str()), 0);
        EXPECT_EQ(g_lost, 1);
    }
    EXPECT_EQ(ubus_reconnect(one, bus().c_str()), 0);
    std::uint32_t id = 0;
    EXPECT_EQ(ubus_lookup_id(one, "a", &id), 0);
    EXPECT_EQ(id, a.id);
    EXPECT_EQ(ubus_lookup_id(one, "b", &id), 0);
    EXPECT_EQ(id, b.id);
}

TEST_F(connection, ends_when_the_stream_makes_no_sense) {
    const bytes nonsense[] = {
        {0, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 3},    // shorter than its own header
        {0, 1, 0, 1, 0, 0, 0, 0, 0, 0x10, 0, 1}, // longer than a message may be
        {0, 1, 0, 1, 0, 0, 0, 0, 0, 0xff, 0xff, 0xff},
        {9, 1, 0, 1, 0, 0, 0, 0, 0, 0, 0, 4}, // another version
    };
    for (const bytes &data : nonsense) {
        scripted_broker broker([&data](conversation &c) {
            c.greet();
            c.say(data);
            EXPECT_TRUE(c.is_left());
        });
        client one(broker.socket());
        one->connection_lost = count_loss;
        g_lost = 0;
        EXPECT_TRUE(run_until([] { return g_lost == 1; }));
    }
}

TEST_F(connection, waits_for_the_rest_of_a_message_without_blocking) {
    scripted_broker broker([](conversation &c) {
        c.greet();
        c.say({0, 1, 0, 1, 0, 0, 4, 0xd2, 0, 0, 0, 12, 1}); // half an answer
        c.hear();
        c.say({0, 0, 8, 0, 0, 0, 0});
        EXPECT_TRUE(c.is_left());
    });
    client one(broker.socket());
    ubus_request req;
    for (int i = 0; i < 10; ++i) uloop_run_timeout(1);
    ASSERT_EQ(ubus_invoke_async(one, 1234, "m", nullptr, &req), 0);
    EXPECT_EQ(ubus_complete_request(one, &req, 10000), 0);
}

TEST_F(connection, ignores_messages_that_are_not_for_clients) {
    scripted_broker broker([](conversation &c) {
        c.greet();
        for (const std::uint8_t type : bytes{0, 3, 4, 6, 7, 8, 11, 77, 255})
            c.say({0, type, 0, 1, 0, 0, 0, 0, 0, 0, 0, 4});
        c.confirm(c.hear());
        EXPECT_TRUE(c.is_left());
    });
    client one(broker.socket());
    EXPECT_EQ(ubus_invoke(one, 1234, "m", nullptr, nullptr, nullptr, 10000), 0);
}

TEST_F(connection, by_itself_waits_for_a_broker_and_returns_to_it) {
    static int g_connected;
    g_connected = 0;
    stop_broker();
    ubus_auto_conn conn{};
    const std::string path = bus();
    conn.path = path.c_str();
    conn.cb = [](ubus_context *) { ++g_connected; };
    testing::internal::CaptureStderr();
    ubus_auto_connect(&conn);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "failed to connect to ubus\n");
    EXPECT_EQ(g_connected, 0);
    start_broker();
    EXPECT_TRUE(run_until([] { return g_connected == 1; }));
    ubus_object obj = named("obj");
    ASSERT_EQ(ubus_add_object(&conn.ctx, &obj), 0);

    kill_broker();
    EXPECT_TRUE(run_until([&] { return conn.ctx.sock.fd < 0; }));
    start_broker();
    EXPECT_TRUE(run_until([&] { return conn.ctx.sock.registered; }));
    std::uint32_t id = 0;
    EXPECT_EQ(ubus_lookup_id(&conn.ctx, "obj", &id), 0);
    EXPECT_EQ(id, obj.id);
    EXPECT_EQ(g_connected, 1);
    ubus_auto_shutdown(&conn);
}
