// bus_objects.h - objects, subscribers and notifications that remember what they are told.
#ifndef BUS_OBJECTS_H
#define BUS_OBJECTS_H

#include "bus_fixture.h"

inline int answer_zero(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *) {
    return 0;
}
inline const ubus_method named_methods[] = {UBUS_METHOD_NOARG("m", answer_zero)};
inline ubus_object_type named_type = UBUS_OBJECT_TYPE("test", named_methods);

// An object with a path.
struct named : ubus_object {
    explicit named(const char *path_on_bus) : ubus_object{} {
        name = path_on_bus;
        type = &named_type;
        methods = named_methods;
        n_methods = 1;
    }
};

// What a subscriber was told, in order.
struct watcher : ubus_subscriber {
    std::vector<std::string> told;
    std::function<int()> answer = [] { return 0; };
    std::function<void(ubus_context *, std::uint32_t)> when_gone;
    std::string accepted; // beginning of the paths it subscribes to by itself

    watcher() : ubus_subscriber{} {
        cb = on_notification;
        remove_cb = on_gone;
    }
    static watcher *of(ubus_object *o) {
        return static_cast<watcher *>(container_of(o, ubus_subscriber, obj));
    }
    static int on_notification(ubus_context *, ubus_object *o, ubus_request_data *, const char *method,
                               blob_attr *msg) {
        of(o)->told.push_back(method + json(msg));
        return of(o)->answer();
    }
    static void on_gone(ubus_context *ctx, ubus_subscriber *s, std::uint32_t id) {
        auto *w = static_cast<watcher *>(s);
        w->told.push_back("gone");
        if (w->when_gone) w->when_gone(ctx, id);
    }
    static bool accept(ubus_context *, ubus_subscriber *s, const char *path) {
        return std::string(path).rfind(static_cast<watcher *>(s)->accepted, 0) == 0;
    }
};

// A notification under way.
struct notification : ubus_notify_request {
    std::vector<std::string> told;
    void start(ubus_context *ctx, ubus_object *obj) {
        ASSERT_EQ(ubus_notify_async(ctx, obj, "n", fields(R"({"k":1})"), this), 0);
        status_cb = [](ubus_notify_request *n, int idx, int ret) {
            static_cast<notification *>(n)->told.push_back(std::to_string(idx) + ":" + std::to_string(ret));
        };
        complete_cb = [](ubus_notify_request *n, int idx, int ret) {
            static_cast<notification *>(n)->told.push_back("all " + std::to_string(idx) + ":" +
                                                           std::to_string(ret));
        };
        ubus_complete_request_async(ctx, &req);
    }
};

// A test with a broker that knows no types yet.
class objects_test : public bus_test {
protected:
    void SetUp() override {
        bus_test::SetUp();
        named_type.id = 0;
    }
};

#endif
