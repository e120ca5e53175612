// Calls, their answers, and what happens while one waits.
#include <fcntl.h>
#include <unistd.h>

#include "bus_fixture.h"

namespace {

using std::string;
using std::vector;

// An object whose one method does what the test says.
struct service : ubus_object {
    using action = std::function<int(ubus_context *, ubus_request_data *, const char *, blob_attr *)>;

    action act;

    service(const char *path_on_bus, action what) : ubus_object{}, act(std::move(what)) {
        static const ubus_method any = {nullptr, handle, 0, 0, nullptr, 0};
        static ubus_object_type any_type = {"any", 0, &any, 1};
        any_type.id = 0;
        name = path_on_bus;
        type = &any_type;
        methods = &any;
        n_methods = 1;
    }

    static int handle(ubus_context *ctx, ubus_object *obj, ubus_request_data *req, const char *method,
                      blob_attr *msg) {
        return static_cast<service *>(obj)->act(ctx, req, method, msg);
    }
};

int echo(ubus_context *ctx, ubus_request_data *req, const char *, blob_attr *msg) {
    return ubus_send_reply(ctx, req, msg);
}

// What the callbacks of a request are told, in order.
struct call : ubus_request {
    vector<string> told;
    std::function<void()> while_data;

    call() : ubus_request{} {}

    void start(ubus_context *bus, std::uint32_t id, const char *method, const string &json_text = "{}") {
        ASSERT_EQ(ubus_invoke_async(bus, id, method, fields(json_text), this), 0);
        data_cb = on_data;
        complete_cb = on_complete;
        ubus_complete_request_async(bus, this);
    }
    static void on_data(ubus_request *req, int type, blob_attr *msg) {
        auto *c = static_cast<call *>(req);
        EXPECT_EQ(type, UBUS_MSG_DATA);
        const string text = json(msg);
        if (c->while_data) c->while_data();
        EXPECT_EQ(json(msg), text) << "the message must stay while its callback makes calls";
        c->told.push_back(text);
    }
    static void on_complete(ubus_request *req, int status) {
        static_cast<call *>(req)->told.push_back(std::to_string(status));
    }
    bool is_over() const { return status_msg; }
};

class requests : public bus_test {};

// STATUS or DATA as the broker forwards it.
bytes data_of(std::uint8_t number) {
    return {0, 2, 0, 0, 0, 0,  0,    0, 0, 0,  0, 28, 3,   0, 0, 8, 0, 0,
            0, 9, 7, 0, 0, 16, 0x85, 0, 0, 12, 0, 1,  'n', 0, 0, 0, 0, number};
}

} // namespace

TEST_F(requests, data_and_status_reach_their_own_request_in_order) {
    client callee(bus()), caller(bus());
    service s("s", [](ubus_context *ctx, ubus_request_data *req, const char *method, blob_attr *msg) {
        if (string(method) == "twice") echo(ctx, req, method, msg);
        echo(ctx, req, method, msg);
        return 7;
    });
    ASSERT_EQ(ubus_add_object(callee, &s), 0);
    call one, two;
    one.start(caller, s.id, "twice", R"({"a":1})");
    two.start(caller, s.id, "once", R"({"b":2})");
    EXPECT_TRUE(run_until([&] { return one.is_over() && two.is_over(); }));
    EXPECT_EQ(one.told, (vector<string>{R"({"a":1})", R"({"a":1})", "7"}));
    EXPECT_EQ(two.told, (vector<string>{R"({"b":2})", "7"}));
}

TEST_F(requests, handler_results_arrive_unchanged) {
    client callee(bus()), caller(bus());
    int result = 0;
    service s("s", [&](auto...) { return result; });
    ASSERT_EQ(ubus_add_object(callee, &s), 0);
    for (const int value : {0, 1, 14, 1000, -1, INT32_MAX, INT32_MIN}) {
        result = value;
        call c;
        c.start(caller, s.id, "m");
        EXPECT_TRUE(run_until([&] { return c.is_over(); }));
        EXPECT_EQ(c.status_code, value);
    }
}

TEST_F(requests, caller_is_known_to_the_handler) {
    client callee(bus()), caller(bus());
    string seen;
    service s("s", [&](ubus_context *, ubus_request_data *req, const char *, blob_attr *) {
        seen = string(req->acl.user) + "/" + req->acl.group + "/" + req->acl.object;
        return 0;
    });
    ASSERT_EQ(ubus_add_object(callee, &s), 0);
    call c;
    c.start(caller, s.id, "m");
    EXPECT_TRUE(run_until([&] { return c.is_over(); }));
    EXPECT_EQ(seen, "root/root/s");
}

TEST_F(requests, deferred_ones_are_answered_later_and_in_any_order) {
    client callee(bus()), caller(bus());
    vector<ubus_request_data> waiting;
    service s("s", [&](ubus_context *ctx, ubus_request_data *req, const char *, blob_attr *) {
        waiting.emplace_back();
        ubus_defer_request(ctx, req, &waiting.back());
        return 5; // does not count
    });
    ASSERT_EQ(ubus_add_object(callee, &s), 0);
    call one, two;
    one.start(caller, s.id, "m");
    two.start(caller, s.id, "m");
    ASSERT_TRUE(run_until([&] { return waiting.size() == 2; }));
    EXPECT_EQ(ubus_send_reply(callee, &waiting[1], fields(R"({"second":true})")), 0);
    ubus_complete_deferred_request(callee, &waiting[1], 2);
    EXPECT_TRUE(run_until([&] { return two.is_over(); }));
    EXPECT_FALSE(one.is_over());
    ubus_complete_deferred_request(callee, &waiting[0], 1);
    EXPECT_TRUE(run_until([&] { return one.is_over(); }));
    EXPECT_EQ(one.told, (vector<string>{"1"}));
    EXPECT_EQ(two.told, (vector<string>{R"({"second":true})", "2"}));
}

TEST_F(requests, wait_for_no_longer_than_their_timeout) {
    client caller(bus());
    client silent(bus());
    service s("s", echo);
    ASSERT_EQ(ubus_add_object(silent, &s), 0); // nobody runs the loop meanwhile
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(ubus_invoke(caller, s.id, "m", nullptr, nullptr, nullptr, 50), UBUS_STATUS_TIMEOUT);
    const auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(waited, std::chrono::milliseconds(49));
    EXPECT_EQ(ubus_invoke(caller, s.id, "m", nullptr, nullptr, nullptr, -1), UBUS_STATUS_TIMEOUT);
    EXPECT_TRUE(list_empty(&caller->requests));
    // The late answers are dropped, and the next call gets its own.
    call c;
    c.start(caller, s.id, "m", R"({"x":3})");
    EXPECT_TRUE(run_until([&] { return c.is_over(); }));
    EXPECT_EQ(c.told, (vector<string>{R"({"x":3})", "0"}));
}

TEST_F(requests, without_message_have_empty_arguments_and_replies_too) {
    client callee(bus()), caller(bus());
    string seen;
    service s("s", [&](ubus_context *ctx, ubus_request_data *req, const char *, blob_attr *msg) {
        seen = json(msg);
        return ubus_send_reply(ctx, req, nullptr);
    });
    ASSERT_EQ(ubus_add_object(callee, &s), 0);
    call c;
    ASSERT_EQ(ubus_invoke_async(caller, s.id, "m", nullptr, &c), 0);
    c.data_cb = call::on_data;
    c.complete_cb = call::on_complete;
    ubus_complete_request_async(caller, &c);
    EXPECT_TRUE(run_until([&] { return c.is_over(); }));
    EXPECT_EQ(seen, "{}");
    EXPECT_EQ(c.told, (vector<string>{"{}", "0"}));
}

TEST_F(requests, that_were_aborted_are_not_told) {
    client callee(bus()), caller(bus());
    service s("s", echo);
    ASSERT_EQ(ubus_add_object(callee, &s), 0);
    call aborted, other;
    aborted.start(caller, s.id, "m");
    ubus_abort_request(caller, &aborted);
    other.start(caller, s.id, "m");
    EXPECT_TRUE(run_until([&] { return other.is_over(); }));
    EXPECT_TRUE(aborted.told.empty());
    ubus_request never{};
    ubus_abort_request(caller, &never);
}

TEST_F(requests, may_be_aborted_and_freed_in_their_own_data_callback) {
    client callee(bus()), caller(bus());
    service s("s", [](ubus_context *ctx, ubus_request_data *req, const char *method, blob_attr *msg) {
        echo(ctx, req, method, msg);
        return echo(ctx, req, method, msg);
    });
    ASSERT_EQ(ubus_add_object(callee, &s), 0);
    auto *o = new ubus_request{};
    static int told;
    told = 0;
    ASSERT_EQ(ubus_invoke_async(caller, s.id, "m", nullptr, o), 0);
    o->data_cb = [](ubus_request *r, int, blob_attr *) {
        ++told;
        ubus_abort_request(r->ctx, r);
        delete r;
    };
    ubus_complete_request_async(caller, o);
    call next;
    next.start(caller, s.id, "m");
    EXPECT_TRUE(run_until([&] { return next.is_over(); }));
    EXPECT_EQ(told, 1);
}

TEST_F(requests, may_be_freed_in_their_complete_callback) {
    client caller(bus());
    auto *o = new ubus_request{};
    static int status;
    status = -1;
    ASSERT_EQ(ubus_invoke_async(caller, 12345, "m", nullptr, o), 0);
    o->complete_cb = [](ubus_request *r, int ret) {
        status = ret;
        delete r;
    };
    ubus_complete_request_async(caller, o);
    EXPECT_TRUE(run_until([] { return status >= 0; }));
    EXPECT_EQ(status, UBUS_STATUS_NOT_FOUND);
}

TEST_F(requests, that_wait_can_be_ended_all_at_once_and_new_ones_started_meanwhile) {
    client callee(bus()), caller(bus());
    service s("s", [](auto...) { return 0; });
    ASSERT_EQ(ubus_add_object(callee, &s), 0);
    struct restarting : ubus_request {
        call again;
        std::uint32_t id;
    } r;
    r.id = s.id;
    ASSERT_EQ(ubus_invoke_async(caller, s.id, "m", nullptr, &r), 0);
    r.complete_cb = [](ubus_request *req, int status) {
        auto *self = static_cast<restarting *>(req);
        EXPECT_EQ(status, UBUS_STATUS_TIMEOUT);
        self->again.start(req->ctx, self->id, "m");
    };
    ubus_complete_request_async(caller, &r);
    ubus_flush_requests(caller);
    EXPECT_FALSE(r.again.is_over());
    EXPECT_TRUE(run_until([&] { return r.again.is_over(); }));
    EXPECT_EQ(r.again.told, (vector<string>{"0"}));
}

TEST_F(requests, keep_their_data_in_order_while_a_data_callback_makes_a_call) {
    // All three replies and the status are in the socket before the first is delivered.
    scripted_broker broker([](conversation &c) {
        c.greet();
        const bytes outer = c.hear();
        for (std::uint8_t n : bytes{1, 2, 3}) c.answer(outer, data_of(n));
        c.confirm(outer);
        for (int i = 0; i < 3; ++i) c.confirm(c.hear());
        EXPECT_TRUE(c.is_left());
    });
    client one(broker.socket());
    call outer;
    outer.while_data = [&] { EXPECT_EQ(ubus_invoke(one, 1, "inner", nullptr, nullptr, nullptr, 10000), 0); };
    outer.start(one, 9, "outer");
    EXPECT_TRUE(run_until([&] { return outer.is_over(); }));
    EXPECT_EQ(outer.told, (vector<string>{R"({"n":1})", R"({"n":2})", R"({"n":3})", "0"}));
}

TEST_F(requests, of_others_are_answered_inside_a_synchronous_call) {
    scripted_broker broker([](conversation &c) {
        c.greet();
        const bytes first = c.hear(), second = c.hear();
        c.answer(first, data_of(1));
        c.confirm(first);
        c.confirm(second);
        EXPECT_TRUE(c.is_left());
    });
    client one(broker.socket());
    call waiting;
    waiting.start(one, 9, "m");
    EXPECT_EQ(ubus_invoke(one, 10, "m", nullptr, nullptr, nullptr, 10000), 0);
    EXPECT_EQ(waiting.told, (vector<string>{R"({"n":1})", "0"}));
}

// A call of object 0x1000, method "m".
const bytes incoming = {0, 5, 0,    77, 0, 0, 0, 99, 0,   0, 0, 24, 3, 0, 0, 8,
                        0, 0, 0x10, 0,  4, 0, 0, 6,  'm', 0, 0, 0,  7, 0, 0, 4};
// DATA {OBJID 0x1000} and STATUS 0, in answer to ADD_OBJECT.
const bytes object_added = {0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 12, 3, 0, 0, 8, 0, 0, 0x10, 0};

TEST_F(requests, that_come_in_during_a_synchronous_call_are_served_after_it) {
    for (const bool in_loop : {true, false}) {
        scripted_broker broker([](conversation &c) {
            c.greet();
            const bytes add = c.hear();
            c.answer(add, object_added);
            c.confirm(add);
            const bytes outgoing = c.hear();
            c.say(incoming);
            c.say(incoming);
            c.confirm(outgoing);
            for (int i = 0; i < 2; ++i) {
                const bytes answer = c.hear();
                EXPECT_EQ(answer, (bytes{0, 1, 0, 77, 0, 0, 0, 99, 0, 0, 0, 20, 1,    0,
                                         0, 8, 0, 0,  0, 0, 3, 0,  0, 8, 0, 0,  0x10, 0}));
            }
            EXPECT_TRUE(c.is_left());
        });
        ubus_context *one = ubus_connect(broker.socket().c_str());
        ASSERT_NE(one, nullptr);
        if (in_loop) ubus_add_uloop(one);
        int served = 0, depth_seen = 0;
        bool in_call = false, overlapped = false;
        service s("s", [&](auto...) {
            ++served;
            depth_seen = one->stack_depth;
            overlapped |= in_call;
            return 0;
        });
        ASSERT_EQ(ubus_add_object(one, &s), 0);
        in_call = in_loop;
        EXPECT_EQ(ubus_invoke(one, 5, "m", nullptr, nullptr, nullptr, 10000), 0);
        in_call = false;
        EXPECT_EQ(served, in_loop ? 0 : 2) << "in the loop they wait for the loop";
        EXPECT_TRUE(run_until([&] { return served == 2; }));
        EXPECT_EQ(depth_seen, 1);
        EXPECT_FALSE(overlapped);
        ubus_free(one);
    }
}

TEST_F(requests, that_wait_for_delivery_go_with_the_context) {
    scripted_broker broker([](conversation &c) {
        c.greet();
        const bytes outgoing = c.hear();
        c.say(incoming);
        c.confirm(outgoing);
        EXPECT_TRUE(c.is_left());
    });
    client one(broker.socket());
    EXPECT_EQ(ubus_invoke(one, 5, "m", nullptr, nullptr, nullptr, 10000), 0);
    EXPECT_FALSE(list_empty(&one->pending));
}

TEST_F(requests, beyond_the_message_limit_are_refused_before_they_are_sent) {
    client callee(bus()), caller(bus());
    int served = 0;
    service s("s", [&](auto...) {
        ++served;
        return 0;
    });
    ASSERT_EQ(ubus_add_object(callee, &s), 0);
    const string text(UBUS_MSG_LIMIT, 'x');
    fields huge("{\"p\":\"" + text + "\"}");
    EXPECT_EQ(ubus_invoke(caller, s.id, "m", huge, nullptr, nullptr, 1000), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_send_event(caller, "e", huge), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_notify(callee, &s, "n", huge, -1), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(ubus_notify(callee, &s, "n", huge, 1000), UBUS_STATUS_INVALID_ARGUMENT);
    ubus_notify_request req;
    EXPECT_EQ(ubus_notify_async(callee, &s, "n", huge, &req), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(served, 0);
}

// The bytes of a reply to request 9 of peer 77, from object 101.
bytes reply_with(const bytes &content) {
    bytes frame = {0, UBUS_MSG_DATA, 0, 9, 0, 0, 0, 77};
    const auto put_head = [&](std::uint8_t id, std::size_t length) {
        for (const int shift : {16, 8, 0}) {
            if (shift == 16) frame.push_back(id);
            frame.push_back(static_cast<std::uint8_t>(length >> shift));
        }
    };
    put_head(0, 4 + 8 + 4 + (content.size() + 3) / 4 * 4);
    put_head(UBUS_ATTR_OBJID, 8);
    frame.insert(frame.end(), {0, 0, 0, 101});
    put_head(UBUS_ATTR_DATA, 4 + content.size());
    frame.insert(frame.end(), content.begin(), content.end());
    while (frame.size() % 4 != 0) frame.push_back(0);
    return frame;
}

TEST_F(requests, are_answered_with_the_content_as_it_is_and_a_gap_of_zeros_behind_it) {
    bytes content;
    for (std::uint32_t i = 0; i < 900003; ++i) // of the longest; more than a socket takes at once
        content.push_back(static_cast<std::uint8_t>(i * i >> 3 | 1));
    std::vector<bytes> contents;
    for (const std::size_t size : {0U, 1U, 2U, 3U, 4U, 5U, 8U, 65533U, 900000U, 900001U, 900003U})
        contents.emplace_back(content.begin(), content.begin() + static_cast<std::ptrdiff_t>(size));

    scripted_broker broker([&](conversation &c) {
        c.greet();
        for (const bytes &one : contents) EXPECT_TRUE(c.hear() == reply_with(one)) << one.size();
        EXPECT_TRUE(c.hear() == reply_with({})); // to no content at all
        EXPECT_TRUE(c.is_left());
    });
    ubus_context *ctx = ubus_connect(broker.socket().c_str());
    ASSERT_NE(ctx, nullptr);
    ubus_request_data request{};
    request.object = 101;
    request.peer = 77;
    request.seq = 9;
    for (const bytes &one : contents) {
        std::vector<std::uint32_t> message(2 + one.size() / 4);
        auto *head = reinterpret_cast<blob_attr *>(message.data());
        blob_set_raw_len(head, static_cast<unsigned>(sizeof(blob_attr) + one.size()));
        std::copy(one.begin(), one.end(), reinterpret_cast<std::uint8_t *>(message.data() + 1));
        EXPECT_EQ(ubus_send_reply(ctx, &request, head), 0) << one.size();
    }
    EXPECT_EQ(ubus_send_reply(ctx, &request, nullptr), 0);
    ubus_free(ctx);
}

TEST_F(requests, get_an_error_from_a_reply_beyond_the_limit_and_the_connection_lives) {
    client callee(bus()), caller(bus());
    service s("s", [](ubus_context *ctx, ubus_request_data *req, const char *, blob_attr *) {
        return ubus_send_reply(ctx, req, fields("{\"p\":\"" + string(UBUS_MSG_LIMIT, 'x') + "\"}"));
    });
    ASSERT_EQ(ubus_add_object(callee, &s), 0);
    for (int i = 0; i < 2; ++i) {
        call c;
        c.start(caller, s.id, "m");
        EXPECT_TRUE(run_until([&] { return c.is_over(); }));
        EXPECT_EQ(c.told, (vector<string>{"5"}));
    }
}

TEST_F(requests, carry_a_descriptor_there_and_back) {
    client callee(bus()), caller(bus());
    ubus_request_data kept;
    for (const bool deferred : {false, true}) {
        service s("s", [&](ubus_context *ctx, ubus_request_data *req, const char *, blob_attr *) {
            const int fd = ubus_request_get_caller_fd(req);
            EXPECT_EQ(ubus_request_get_caller_fd(req), -1) << "it is ours now";
            if (deferred) ubus_defer_request(ctx, req, &kept);
            ubus_request_set_fd(ctx, deferred ? &kept : req, fd);
            if (deferred) ubus_complete_deferred_request(ctx, &kept, 0);
            return 0;
        });
        ASSERT_EQ(ubus_add_object(callee, &s), 0);
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        static int came_back;
        came_back = -1;
        call c;
        ASSERT_EQ(ubus_invoke_async_fd(caller, s.id, "m", nullptr, &c, ends[1]), 0);
        EXPECT_EQ(fcntl(ends[1], F_GETFD), -1) << "the library has closed it";
        c.fd_cb = [](ubus_request *, int fd) { came_back = fd; };
        c.complete_cb = call::on_complete;
        ubus_complete_request_async(caller, &c);
        EXPECT_TRUE(run_until([&] { return c.is_over(); }));
        ASSERT_GE(came_back, 0);
        EXPECT_EQ(write(came_back, "!", 1), 1);
        close(came_back);
        char text[2];
        EXPECT_EQ(read(ends[0], text, 2), 1);
        EXPECT_EQ(read(ends[0], text, 2), 0) << "nobody else holds the other end";
        close(ends[0]);
        ASSERT_EQ(ubus_remove_object(callee, &s), 0);
    }
}

TEST_F(requests, close_descriptors_that_nobody_takes) {
    client callee(bus()), caller(bus());
    service s("s", [](auto...) { return 0; });
    ASSERT_EQ(ubus_add_object(callee, &s), 0);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    call c;
    ASSERT_EQ(ubus_invoke_async_fd(caller, s.id, "m", nullptr, &c, ends[1]), 0);
    c.complete_cb = call::on_complete;
    ubus_complete_request_async(caller, &c);
    EXPECT_TRUE(run_until([&] { return c.is_over(); }));
    char text;
    EXPECT_EQ(read(ends[0], &text, 1), 0);
    close(ends[0]);
}

TEST_F(requests, number_themselves_through_all_sixteen_bits) {
    client one(bus());
    one->request_seq = 65534;
    for (const int expected : {65535, 0, 1}) {
        EXPECT_EQ(ubus_lookup(one, "nothing", nullptr, nullptr), UBUS_STATUS_NOT_FOUND);
        EXPECT_EQ(one->request_seq, expected);
    }
}

TEST_F(requests, ignore_answers_of_a_lookup_that_lack_something) {
    const bytes without_type = {0, 2, 0,   0, 0, 0, 0, 0, 0, 0, 0, 20, 2, 0,
                                0, 6, 'x', 0, 0, 0, 3, 0, 0, 8, 0, 0,  0, 9};
    scripted_broker broker([&](conversation &c) {
        c.greet();
        const bytes lookup = c.hear();
        c.answer(lookup, without_type);
        c.confirm(lookup);
        EXPECT_TRUE(c.is_left());
    });
    client one(broker.socket());
    std::uint32_t id = 42;
    EXPECT_EQ(ubus_lookup_id(one, "x", &id), 0);
    EXPECT_EQ(id, 42u);
}

TEST_F(requests, of_an_own_object_time_out_and_are_served_afterwards) {
    client one(bus());
    int served = 0;
    service s("s", [&](auto...) { return ++served; });
    ASSERT_EQ(ubus_add_object(one, &s), 0);
    EXPECT_EQ(ubus_invoke(one, s.id, "m", nullptr, nullptr, nullptr, 30), UBUS_STATUS_TIMEOUT);
    EXPECT_TRUE(run_until([&] { return served == 1; }));
}
