// Objects, events, access rules.
#include <cstring>

#include "bus_objects.h"

extern "C" {
extern ubus_object_type c_type;
int count_rules(ubus_acl_key *key);
}

namespace {

using std::string;
using std::vector;

struct listener : ubus_event_handler {
    vector<string> told;
    listener() : ubus_event_handler{} { cb = on_event; }
    static void on_event(ubus_context *, ubus_event_handler *ev, const char *type, blob_attr *msg) {
        static_cast<listener *>(ev)->told.push_back(type + json(msg));
    }
};

// What a lookup has found, as text.
vector<string> g_found;
void collect(ubus_context *, ubus_object_data *found, void *) {
    string text = string(found->path) + "{";
    blob_attr *method;
    std::size_t rem;
    blob_for_each_attr (method, found->signature, rem) {
        text += string(blobmsg_name(method)) + "(";
        blob_attr *argument;
        std::size_t left;
        blobmsg_for_each_attr (argument, method, left)
            text += string(blobmsg_name(argument)) + ":" + std::to_string(blobmsg_get_u32(argument)) + " ";
        text += ")";
    }
    g_found.push_back(text + "}");
}

class objects : public objects_test {
protected:
    void SetUp() override {
        objects_test::SetUp();
        c_type.id = 0;
        g_found.clear();
    }
};
class events : public objects_test {};

// A broker that gives its objects the ids 101, 102 ... and calls 101 before it confirms a later one.
void call_while_adding(conversation &c) {
    c.greet();
    for (std::uint8_t id = 101;;) {
        const bytes request = c.hear();
        if (request[1] == UBUS_MSG_STATUS) break; // the call is answered
        if (request[1] == UBUS_MSG_ADD_OBJECT) {
            c.answer(request, {0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 12, 3, 0, 0, 8, 0, 0, 0, id});
            if (id++ == 102)
                c.say({0, 5, 0, 9,   0, 0, 0, 77, 0,   0, 0, 24, 3, 0, 0, 8,
                       0, 0, 0, 101, 4, 0, 0, 6,  'm', 0, 0, 0,  7, 0, 0, 4});
        }
        c.confirm(request);
    }
    EXPECT_TRUE(c.is_left());
}

// An object within a program's own struct.
struct owned {
    ubus_object *obj;
    void *memory;
    std::size_t size;
    template <class T> owned(ubus_object &o, T &whole) : obj(&o), memory(&whole), size(sizeof whole) {}
    void free() const { std::memset(memory, 0xee, size); }
    bool is_untouched() const {
        const auto *bytes = static_cast<const std::uint8_t *>(memory);
        return std::all_of(bytes, bytes + size, [](std::uint8_t byte) { return byte == 0xee; });
    }
};

// An object that removes and frees others when it is called.
struct remover : named {
    vector<owned> others;
    remover() : named("remover") {
        static const ubus_method remove = {"m", remove_others, 0, 0, nullptr, 0};
        methods = &remove;
    }
    static int remove_others(ubus_context *ctx, ubus_object *obj, ubus_request_data *, const char *,
                             blob_attr *) {
        for (const owned &other : static_cast<remover *>(obj)->others) {
            EXPECT_EQ(ubus_remove_object(ctx, other.obj), 0);
            other.free();
        }
        return 0;
    }
};

} // namespace

TEST_F(objects, publish_the_arguments_that_the_mask_selects) {
    client one(bus());
    ubus_object obj{};
    obj.name = "c";
    obj.type = &c_type;
    ASSERT_EQ(ubus_add_object(one, &obj), 0);
    EXPECT_EQ(ubus_lookup(one, "c", collect, nullptr), 0);
    EXPECT_EQ(g_found,
              (vector<string>{"c{plain(first:3 second:5 )tagged(first:3 second:5 )masked(second:5 )bare()"
                              "bare_tagged()spelt_out(first:3 )bare_spelt_out()}"}));
}

TEST_F(objects, without_name_or_type_are_anonymous) {
    client one(bus());
    named no_name(nullptr), no_type("x");
    no_type.type = nullptr;
    EXPECT_EQ(ubus_add_object(one, &no_name), 0);
    EXPECT_EQ(ubus_add_object(one, &no_type), 0);
    EXPECT_NE(no_name.id, 0u);
    EXPECT_EQ(ubus_lookup(one, nullptr, collect, nullptr), 0);
    EXPECT_TRUE(g_found.empty());
}

TEST_F(objects, that_are_registered_already_are_refused_and_stay) {
    client one(bus()), two(bus());
    named obj("obj"), same_path("obj");
    ASSERT_EQ(ubus_add_object(one, &obj), 0);
    const std::uint32_t id = obj.id;
    EXPECT_EQ(ubus_add_object(one, &obj), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(obj.id, id);
    EXPECT_EQ(ubus_add_object(two, &same_path), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(same_path.id, 0u);
    EXPECT_EQ(ubus_remove_object(one, &obj), 0);
    EXPECT_EQ(obj.id, 0u);
    EXPECT_EQ(named_type.id, 0u) << "the type went with its last object";
    EXPECT_EQ(ubus_remove_object(one, &obj), UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(ubus_add_object(two, &same_path), 0);
}

TEST_F(objects, can_be_registered_again_on_a_new_connection_without_being_removed) {
    named obj("obj");
    {
        client one(bus());
        ASSERT_EQ(ubus_add_object(one, &obj), 0);
    }
    named_type.id = 0;
    client two(bus());
    ASSERT_TRUE(
        run_until([&] { return ubus_lookup(two, "obj", nullptr, nullptr) == UBUS_STATUS_NOT_FOUND; }));
    EXPECT_EQ(ubus_add_object(two, &obj), 0);
}

TEST_F(objects, whose_id_does_not_come_are_not_registered) {
    scripted_broker broker([](conversation &c) {
        c.greet();
        c.confirm(c.hear());
        EXPECT_TRUE(c.is_left());
    });
    client one(broker.socket());
    named obj("obj");
    EXPECT_EQ(ubus_add_object(one, &obj), UBUS_STATUS_NO_DATA);
    EXPECT_EQ(one->objects.count, 0u);
}

TEST_F(objects, may_be_removed_by_a_handler_as_soon_as_they_are_added) {
    remover first;
    named object("other");
    ubus_subscriber subscriber{};
    ubus_event_handler handler{};
    const struct {
        owned memory;
        std::function<int(ubus_context *)> add;
    } others[] = {
        {{object, object}, [&](ubus_context *ctx) { return ubus_add_object(ctx, &object); }},
        {{subscriber.obj, subscriber},
         [&](ubus_context *ctx) { return ubus_register_subscriber(ctx, &subscriber); }},
        {{handler.obj, handler},
         [&](ubus_context *ctx) { return ubus_register_event_handler(ctx, &handler, "*"); }},
    };
    for (const auto &other : others) {
        scripted_broker broker(call_while_adding);
        ubus_context *ctx = ubus_connect(broker.socket().c_str());
        ASSERT_NE(ctx, nullptr);
        first.others = {other.memory};
        ASSERT_EQ(ubus_add_object(ctx, &first), 0);
        EXPECT_EQ(other.add(ctx), 0);
        EXPECT_TRUE(other.memory.is_untouched());
        EXPECT_EQ(ctx->objects.count, 1u);
        ubus_free(ctx);
    }
}

TEST_F(objects, may_be_removed_by_a_handler_while_they_come_back) {
    scripted_broker before([](conversation &c) {
        c.greet();
        for (const std::uint8_t id : bytes{1, 2, 3}) {
            const bytes request = c.hear();
            c.answer(request, {0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 12, 3, 0, 0, 8, 0, 0, 0, id});
            c.confirm(request);
        }
        EXPECT_TRUE(c.is_left());
    });
    scripted_broker after(call_while_adding);
    ubus_context *ctx = ubus_connect(before.socket().c_str());
    ASSERT_NE(ctx, nullptr);
    remover first;
    named second("second"), third("third");
    for (ubus_object *obj : {static_cast<ubus_object *>(&first), static_cast<ubus_object *>(&second),
                             static_cast<ubus_object *>(&third)})
        ASSERT_EQ(ubus_add_object(ctx, obj), 0);
    first.others = {owned(second, second), owned(third, third)};
    EXPECT_EQ(ubus_reconnect(ctx, after.socket().c_str()), 0);
    for (const owned &other : first.others) EXPECT_TRUE(other.is_untouched());
    EXPECT_EQ(ctx->objects.count, 1u);
    ubus_free(ctx);
}

TEST_F(objects, are_told_of_their_first_and_last_subscriber) {
    client owner(bus()), other(bus());
    static vector<bool> told;
    told.clear();
    named obj("obj");
    obj.subscribe_cb = [](ubus_context *, ubus_object *o) { told.push_back(o->has_subscribers); };
    ASSERT_EQ(ubus_add_object(owner, &obj), 0);
    watcher w;
    ASSERT_EQ(ubus_register_subscriber(other, &w), 0);
    ASSERT_EQ(ubus_subscribe(other, &w, obj.id), 0);
    ASSERT_EQ(ubus_unsubscribe(other, &w, obj.id), 0);
    EXPECT_TRUE(run_until([&] { return told.size() == 2; }));
    EXPECT_EQ(told, (vector<bool>{true, false}));
}

TEST_F(objects, may_remove_themselves_in_their_handler) {
    client owner(bus()), other(bus());
    static named *obj;
    obj = new named("obj");
    static const ubus_method suicide = {
        "m",
        [](ubus_context *ctx, ubus_object *o, ubus_request_data *, const char *, blob_attr *) {
            EXPECT_EQ(ubus_remove_object(ctx, o), 0);
            delete obj;
            obj = nullptr;
            return 0;
        },
        0,
        0,
        nullptr,
        0};
    obj->methods = &suicide;
    ASSERT_EQ(ubus_add_object(owner, obj), 0);
    ubus_request req;
    ASSERT_EQ(ubus_invoke_async(other, obj->id, "m", nullptr, &req), 0);
    EXPECT_TRUE(run_until([] { return obj == nullptr; }));
    EXPECT_EQ(owner->objects.count, 0u);
}

TEST_F(events, come_with_their_name_and_data) {
    client one(bus()), two(bus());
    listener l;
    ASSERT_EQ(ubus_register_event_handler(one, &l, "a*"), 0);
    ASSERT_EQ(ubus_register_event_handler(one, &l, "b"), 0);
    EXPECT_EQ(one->objects.count, 1u);
    EXPECT_EQ(ubus_send_event(two, "abc", fields(R"({"n":1})")), 0);
    EXPECT_EQ(ubus_send_event(two, "c", nullptr), 0);
    EXPECT_EQ(ubus_send_event(two, "b", nullptr), 0) << "no data is fine";
    EXPECT_EQ(ubus_send_event(two, "ubus.no", nullptr), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_TRUE(run_until([&] { return l.told.size() == 2; }));
    EXPECT_EQ(l.told, (vector<string>{R"(abc{"n":1})", "b{}"}));
    EXPECT_EQ(ubus_unregister_event_handler(one, &l), 0);
    EXPECT_EQ(ubus_unregister_event_handler(one, &l), UBUS_STATUS_NOT_FOUND);
}

TEST_F(events, need_a_pattern) {
    client one(bus());
    listener l, half;
    EXPECT_EQ(ubus_register_event_handler(one, &l, nullptr), UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_NE(l.obj.id, 0u) << "the object stays";
    EXPECT_EQ(ubus_register_event_handler(one, &l, ""), UBUS_STATUS_PERMISSION_DENIED);
    EXPECT_EQ(ubus_register_event_handler(one, &l, "x"), 0);
    half.obj.name = "name without type";
    EXPECT_EQ(ubus_register_event_handler(one, &half, "x"), UBUS_STATUS_INVALID_ARGUMENT);
}

TEST_F(events, may_lead_to_calls_and_come_in_order) {
    client one(bus()), two(bus());
    struct calling : listener {
        vector<int> found;
    } l;
    l.cb = [](ubus_context *ctx, ubus_event_handler *ev, const char *type, blob_attr *msg) {
        auto *self = static_cast<calling *>(static_cast<listener *>(ev));
        self->found.push_back(ubus_lookup(ctx, "nobody", nullptr, nullptr));
        self->told.push_back(type + json(msg));
    };
    ASSERT_EQ(ubus_register_event_handler(one, &l, "*"), 0);
    for (int i = 0; i < 5; ++i) ASSERT_EQ(ubus_send_event(two, std::to_string(i).c_str(), nullptr), 0);
    EXPECT_TRUE(run_until([&] { return l.told.size() == 5; }));
    EXPECT_EQ(l.told, (vector<string>{"0{}", "1{}", "2{}", "3{}", "4{}"}));
    EXPECT_EQ(l.found, vector<int>(5, UBUS_STATUS_NOT_FOUND));
}

TEST_F(events, are_all_seen_by_a_monitor) {
    client watcher(bus()), other(bus());
    static int copies;
    copies = 0;
    watcher->monitor_cb = [](ubus_context *, std::uint32_t seq, blob_attr *) {
        EXPECT_EQ(seq, static_cast<std::uint32_t>(++copies));
    };
    ASSERT_EQ(ubus_monitor_start(watcher), 0);
    ASSERT_EQ(ubus_send_event(other, "e", nullptr), 0);
    EXPECT_TRUE(run_until([] { return copies == 3; }))
        << "the answer to the start, the event, the answer to it";
    EXPECT_EQ(ubus_monitor_stop(watcher), 0);
}

// Answers the requests of ubus_register_acl: an object id, 0, and one rule.
TEST(access_rules, are_cached_and_found_by_object_and_user_or_group) {
    scripted_broker broker([](conversation &c) {
        c.greet();
        const bytes add = c.hear();
        c.answer(add, {0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 12, 3, 0, 0, 8, 0, 0, 0x10, 0});
        c.confirm(add);
        c.confirm(c.hear()); // register
        const bytes query = c.hear();
        fields rules(R"({"seq":1,"acl":[{"obj":"o","user":"u","acl":{"x":1}},{"obj":"o","group":"g","acl":{}},
                         {"obj":"p","user":"u","acl":{}},{"obj":"broken"},7]})");
        blob_buf reply{};
        blob_buf_init(&reply, 0);
        blob_put_u32(&reply, UBUS_ATTR_OBJID, UBUS_SYSTEM_OBJECT_ACL);
        blob_attr *content = rules;
        blob_put(&reply, UBUS_ATTR_DATA, blob_data(content), static_cast<unsigned>(blob_len(content)));
        bytes message = {0, 2, 0, 0, 0, 0, 0, 0};
        const auto *root = reinterpret_cast<const std::uint8_t *>(reply.head);
        message.insert(message.end(), root, root + blob_raw_len(reply.head));
        blob_buf_free(&reply);
        c.answer(query, message);
        c.confirm(query);
        EXPECT_TRUE(c.is_left());
    });
    {
        client one(broker.socket());
        EXPECT_EQ(ubus_register_acl(one), 0);
    }
    uloop_done();
    const auto count = [](const char *user, const char *group, const char *object) {
        ubus_acl_key key{user, group, object};
        return count_rules(&key);
    };
    EXPECT_EQ(count("u", "x", "o"), 1);
    EXPECT_EQ(count("x", "g", "o"), 1);
    EXPECT_EQ(count("u", "g", "o"), 2);
    EXPECT_EQ(count("u", "g", "p"), 1);
    EXPECT_EQ(count("x", "x", "o"), 0);
    EXPECT_EQ(count("u", "g", "broken"), 0);
    EXPECT_EQ(count("u", "g", nullptr), -1);
    EXPECT_EQ(count(nullptr, "g", "o"), 0) << "a caller of whom a part is missing";
    EXPECT_EQ(count("u", nullptr, "o"), 0);
    // Programs that were compiled elsewhere look rules up in the tree, by the caller's key.
    const ubus_acl_key caller{"u", "x", "o"};
    const acl_object *rule = avl_find_ge_element(&acl_objects, &caller, rule, avl);
    ASSERT_NE(rule, nullptr);
    EXPECT_STREQ(rule->key.object, "o");
    EXPECT_STREQ(rule->key.user, "u");
}
