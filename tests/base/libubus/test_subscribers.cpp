// Subscribing to objects, and what a subscriber is told.
#include "bus_objects.h"

namespace {

using std::string;
using std::vector;

class subscribers : public objects_test {};
class notifications : public objects_test {};

} // namespace

TEST_F(subscribers, registered_twice_are_registered_once) {
    client one(bus()), owner(bus());
    vector<std::unique_ptr<named>> others;
    const vector<string> paths = {"a", "b", "c", "d", "e", "f"};
    for (const string &path : paths) {
        others.push_back(std::make_unique<named>(path.c_str()));
        ASSERT_EQ(ubus_add_object(one, others.back().get()), 0);
    }
    watcher w;
    ASSERT_EQ(ubus_register_subscriber(one, &w), 0);
    const std::uint32_t id = w.obj.id;
    const std::uint16_t requests = one->request_seq;
    EXPECT_EQ(ubus_register_subscriber(one, &w), 0);
    EXPECT_EQ(w.obj.id, id);
    EXPECT_EQ(one->request_seq, requests) << "the broker need not know";
    EXPECT_EQ(one->objects.count, 7u);

    named target("target");
    ASSERT_EQ(ubus_add_object(owner, &target), 0);
    ASSERT_EQ(ubus_subscribe(one, &w, target.id), 0);
    EXPECT_EQ(ubus_register_subscriber(one, &w), 0);
    notification n;
    n.start(owner, &target);
    EXPECT_TRUE(run_until([&] { return n.req.status_msg; }));
    EXPECT_EQ(n.told, (vector<string>{"1:0", "all 0:0"}));
    EXPECT_EQ(w.told, (vector<string>{R"(n{"k":1})"}));
    for (auto &o : others) EXPECT_EQ(ubus_remove_object(one, o.get()), 0);
    EXPECT_EQ(ubus_unregister_subscriber(one, &w), 0);
    EXPECT_EQ(ubus_unregister_subscriber(one, &w), UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(one->objects.count, 0u);
}

TEST_F(subscribers, that_were_never_registered_can_be_unregistered) {
    client one(bus());
    watcher w;
    EXPECT_EQ(ubus_unregister_subscriber(one, &w), UBUS_STATUS_NOT_FOUND);
    w.new_obj_cb = watcher::accept;
    EXPECT_EQ(ubus_unregister_subscriber(one, &w), UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(ubus_subscribe(one, &w, 5), UBUS_STATUS_NOT_FOUND);
}

TEST_F(subscribers, may_leave_return_and_subscribe_anew_when_their_target_goes) {
    client one(bus()), owner(bus());
    named target("target"), next("next");
    ASSERT_EQ(ubus_add_object(owner, &target), 0);
    ASSERT_EQ(ubus_add_object(owner, &next), 0);
    watcher w;
    ASSERT_EQ(ubus_register_subscriber(one, &w), 0);
    ASSERT_EQ(ubus_subscribe(one, &w, target.id), 0);
    const std::uint32_t old_target = target.id;
    w.when_gone = [&](ubus_context *ctx, std::uint32_t id) {
        EXPECT_EQ(id, old_target);
        EXPECT_EQ(ubus_unsubscribe(ctx, &w, id), UBUS_STATUS_NOT_FOUND);
        EXPECT_EQ(ubus_unregister_subscriber(ctx, &w), 0);
        EXPECT_EQ(ubus_register_subscriber(ctx, &w), 0);
        EXPECT_EQ(ubus_subscribe(ctx, &w, next.id), 0);
    };
    ASSERT_EQ(ubus_remove_object(owner, &target), 0);
    EXPECT_TRUE(run_until([&] { return !w.told.empty(); }));
    EXPECT_EQ(ubus_notify(owner, &next, "n", nullptr, -1), 0);
    EXPECT_TRUE(run_until([&] { return w.told.size() == 2; }));
    EXPECT_EQ(w.told, (vector<string>{"gone", "n{}"}));
}

TEST_F(subscribers, without_callbacks_answer_zero) {
    client one(bus()), owner(bus());
    named target("target");
    ASSERT_EQ(ubus_add_object(owner, &target), 0);
    ubus_subscriber mute{};
    ASSERT_EQ(ubus_register_subscriber(one, &mute), 0);
    ASSERT_EQ(ubus_subscribe(one, &mute, target.id), 0);
    notification n;
    n.start(owner, &target);
    EXPECT_TRUE(run_until([&] { return n.req.status_msg; }));
    EXPECT_EQ(n.told, (vector<string>{"1:0", "all 0:0"}));
    EXPECT_EQ(ubus_remove_object(owner, &target), 0);
    for (int i = 0; i < 5; ++i) uloop_run_timeout(1);
}

TEST_F(subscribers, that_choose_are_subscribed_to_what_is_there_what_comes_and_what_returns) {
    client one(bus()), owner(bus());
    named there("auto1"), other("other"), late("auto2");
    ASSERT_EQ(ubus_add_object(owner, &there), 0);
    ASSERT_EQ(ubus_add_object(owner, &other), 0);
    watcher w;
    w.accepted = "auto";
    w.new_obj_cb = watcher::accept;
    ASSERT_EQ(ubus_register_subscriber(one, &w), 0);
    EXPECT_TRUE(run_until([&] { return there.has_subscribers; }));
    ASSERT_EQ(ubus_add_object(owner, &late), 0);
    EXPECT_TRUE(run_until([&] { return late.has_subscribers; }));
    ASSERT_EQ(ubus_remove_object(owner, &there), 0);
    there.has_subscribers = false;
    ASSERT_EQ(ubus_add_object(owner, &there), 0);
    EXPECT_TRUE(run_until([&] { return there.has_subscribers; }));
    EXPECT_FALSE(other.has_subscribers);

    ASSERT_EQ(ubus_unregister_subscriber(one, &w), 0);
    EXPECT_TRUE(run_until([&] { return !late.has_subscribers; }));
    named later("auto3");
    ASSERT_EQ(ubus_add_object(owner, &later), 0);
    for (int i = 0; i < 5; ++i) uloop_run_timeout(1);
    EXPECT_FALSE(later.has_subscribers);
}

TEST_F(subscribers, that_choose_may_unregister_each_other_while_they_choose) {
    client one(bus()), owner(bus());
    static watcher *a, *b;
    watcher first, second;
    a = &first;
    b = &second;
    ASSERT_EQ(ubus_register_event_handler(one, &one->auto_subscribe_event_handler, "unused"), 0);
    for (watcher *w : {a, b}) {
        w->new_obj_cb = [](ubus_context *ctx, ubus_subscriber *s, const char *) {
            ubus_unregister_subscriber(ctx, s == a ? b : a);
            return false;
        };
        ASSERT_EQ(ubus_register_subscriber(one, w), 0);
    }
    ASSERT_EQ(ubus_unregister_event_handler(one, &one->auto_subscribe_event_handler), 0);
    ASSERT_EQ(ubus_unregister_subscriber(one, b), 0);
    ASSERT_EQ(ubus_register_subscriber(one, b), 0);
    named obj("obj");
    ASSERT_EQ(ubus_add_object(owner, &obj), 0);
    EXPECT_TRUE(run_until([&] { return first.obj.id == 0 || second.obj.id == 0; }));
}

TEST_F(subscribers, that_choose_come_back_with_the_connection) {
    client one(bus());
    static bool lost;
    lost = false;
    one->connection_lost = [](ubus_context *) { lost = true; };
    watcher w;
    w.accepted = "auto";
    w.new_obj_cb = watcher::accept;
    ASSERT_EQ(ubus_register_subscriber(one, &w), 0);
    kill_broker();
    EXPECT_TRUE(run_until([] { return lost; }));
    start_broker();
    client owner(bus());
    named there("auto1"), late("auto2");
    ASSERT_EQ(ubus_add_object(owner, &there), 0);
    ASSERT_EQ(ubus_reconnect(one, bus().c_str()), 0);
    ubus_add_uloop(one);
    EXPECT_TRUE(run_until([&] { return there.has_subscribers; }));
    ASSERT_EQ(ubus_add_object(owner, &late), 0);
    EXPECT_TRUE(run_until([&] { return late.has_subscribers; }));
}

TEST_F(notifications, to_nobody_are_over_at_once) {
    client owner(bus());
    named target("target"), unknown("unknown");
    ASSERT_EQ(ubus_add_object(owner, &target), 0);
    EXPECT_EQ(ubus_notify(owner, &target, "n", nullptr, 1000), 0);
    EXPECT_EQ(ubus_notify(owner, &target, "n", nullptr, 0), 0);
    EXPECT_EQ(ubus_notify(owner, &target, "n", nullptr, -1), 0);
    EXPECT_EQ(ubus_notify(owner, &unknown, "n", nullptr, 1000), 0) << "a refusal is not reported";
}

TEST_F(notifications, tell_each_answer_and_when_all_are_in) {
    client owner(bus());
    client one(bus()), two(bus());
    named target("target");
    ASSERT_EQ(ubus_add_object(owner, &target), 0);
    watcher a, b;
    ASSERT_EQ(ubus_register_subscriber(one, &a), 0);
    ASSERT_EQ(ubus_subscribe(one, &a, target.id), 0);
    ASSERT_EQ(ubus_register_subscriber(two, &b), 0);
    ASSERT_EQ(ubus_subscribe(two, &b, target.id), 0);
    a.answer = [] { return 5; };
    notification n;
    n.start(owner, &target);
    EXPECT_TRUE(run_until([&] { return n.req.status_msg; }));
    EXPECT_EQ(n.id[1], b.obj.id) << "newest first";
    EXPECT_EQ(n.id[2], a.obj.id);
    ASSERT_EQ(n.told.size(), 3u);
    std::sort(n.told.begin(), n.told.begin() + 2);
    EXPECT_EQ(n.told, (vector<string>{"1:0", "2:5", "all 0:0"}));
}

TEST_F(notifications, time_out_when_somebody_does_not_answer) {
    client owner(bus()), silent(bus());
    named target("target");
    ASSERT_EQ(ubus_add_object(owner, &target), 0);
    watcher w;
    ASSERT_EQ(ubus_register_subscriber(silent, &w), 0);
    ASSERT_EQ(ubus_subscribe(silent, &w, target.id), 0);
    EXPECT_EQ(ubus_notify(owner, &target, "n", nullptr, 30), UBUS_STATUS_TIMEOUT);
    EXPECT_EQ(ubus_notify(owner, &target, "quiet", nullptr, -1), 0);
    EXPECT_TRUE(run_until([&] { return w.told.size() == 2; }));
}

TEST_F(notifications, wait_for_the_sixteen_newest_subscriptions) {
    client owner(bus()), one(bus());
    named target("target");
    ASSERT_EQ(ubus_add_object(owner, &target), 0);
    vector<watcher> watchers(20);
    for (watcher &w : watchers) {
        ASSERT_EQ(ubus_register_subscriber(one, &w), 0);
        ASSERT_EQ(ubus_subscribe(one, &w, target.id), 0);
    }
    notification n;
    n.start(owner, &target);
    EXPECT_TRUE(run_until([&] { return n.req.status_msg; }));
    EXPECT_EQ(n.told.size(), 17u);
    EXPECT_EQ(n.told.back(), "all 0:0");
    for (int i = 1; i <= 16; ++i) EXPECT_EQ(n.id[i], watchers[static_cast<std::size_t>(20 - i)].obj.id);
    EXPECT_TRUE(run_until([&] { return !watchers[0].told.empty(); })) << "the others are told all the same";
}

TEST_F(notifications, count_a_double_subscription_twice) {
    client owner(bus()), one(bus());
    named target("target");
    ASSERT_EQ(ubus_add_object(owner, &target), 0);
    watcher w;
    ASSERT_EQ(ubus_register_subscriber(one, &w), 0);
    for (int i = 0; i < 2; ++i) ASSERT_EQ(ubus_subscribe(one, &w, target.id), 0);
    notification n;
    n.start(owner, &target);
    EXPECT_TRUE(run_until([&] { return n.req.status_msg; }));
    EXPECT_EQ(n.told, (vector<string>{"1:0", "2:0", "all 0:0"}));
}

TEST_F(notifications, may_be_freed_when_they_are_told) {
    client owner(bus()), one(bus());
    named target("target");
    ASSERT_EQ(ubus_add_object(owner, &target), 0);
    watcher w;
    ASSERT_EQ(ubus_register_subscriber(one, &w), 0);
    ASSERT_EQ(ubus_subscribe(one, &w, target.id), 0);
    static int freed;
    freed = 0;
    for (const bool early : {true, false}) {
        auto *n = new ubus_notify_request;
        ASSERT_EQ(ubus_notify_async(owner, &target, "n", nullptr, n), 0);
        if (early)
            n->status_cb = [](ubus_notify_request *r, int, int) {
                ubus_abort_request(r->req.ctx, &r->req);
                delete r;
                ++freed;
            };
        else
            n->complete_cb = [](ubus_notify_request *r, int, int) {
                delete r;
                ++freed;
            };
        ubus_complete_request_async(owner, &n->req);
    }
    EXPECT_TRUE(run_until([] { return freed == 2; }));
}
