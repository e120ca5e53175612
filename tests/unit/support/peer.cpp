#include "support/peer.h"

#include <stdexcept>

#include "outputs/bus_link.h"
#include "support/bus.h"
#include "support/members.h"

namespace {

// The peer's callbacks find it here; a test has one at a time.
peer *g_peer = nullptr;

class json_message {
public:
    explicit json_message(const std::string &json) {
        blob_buf_init(&buf, 0);
        if (!json.empty() && !blobmsg_add_json_from_string(&buf, json.c_str()))
            throw std::invalid_argument("no JSON object: " + json);
    }
    ~json_message() { blob_buf_free(&buf); }
    json_message(const json_message &) = delete;
    json_message &operator=(const json_message &) = delete;
    blob_attr *head() { return buf.head; }

private:
    blob_buf buf{};
};

void must(int status, const std::string &what) {
    if (status != 0) throw std::runtime_error(what + ": " + ubus_strerror(status));
}

std::uint32_t id_of(ubus_context *ctx, const std::string &object) {
    std::uint32_t id = 0;
    must(ubus_lookup_id(ctx, object.c_str(), &id), object);
    return id;
}

std::vector<std::string> named_members(const char *name, blob_attr *msg) {
    std::vector<std::string> all = members_of(msg);
    all.insert(all.begin(), name);
    return all;
}

int on_notification(ubus_context *, ubus_object *, ubus_request_data *, const char *method, blob_attr *msg) {
    g_peer->notifications.push_back(named_members(method, msg));
    return 0;
}

void on_event(ubus_context *, ubus_event_handler *, const char *type, blob_attr *msg) {
    g_peer->events.push_back(named_members(type, msg));
}

} // namespace

peer::peer() : ctx(ubus_connect(nullptr)) {
    if (!ctx) throw std::runtime_error("no bus");
    ubus_add_uloop(ctx);
    g_peer = this;
}

peer::~peer() {
    ubus_free(ctx);
    g_peer = nullptr;
}

bus_call peer::call(const std::string &object, const std::string &method, const std::string &arguments) {
    json_message message{arguments};
    struct waiting {
        bus_call result;
        bool done = false;
    } call;
    ubus_request request{};
    must(ubus_invoke_async(ctx, id_of(ctx, object), method.c_str(), message.head(), &request), method);
    request.priv = &call;
    request.data_cb = [](ubus_request *req, int, blob_attr *msg) {
        auto *mine = static_cast<waiting *>(req->priv);
        mine->result.reply = members_of(msg);
        mine->result.size = blob_len(msg);
    };
    request.complete_cb = [](ubus_request *req, int status) {
        auto *mine = static_cast<waiting *>(req->priv);
        mine->result.status = status;
        mine->done = true;
    };
    ubus_complete_request_async(ctx, &request);
    if (!loop_until([&] { return call.done; })) {
        ubus_abort_request(ctx, &request);
        call.result.status = UBUS_STATUS_TIMEOUT;
    }
    return call.result;
}

void peer::subscribe(const std::string &object) {
    subscriber.cb = on_notification;
    must(ubus_register_subscriber(ctx, &subscriber), "subscriber");
    must(ubus_subscribe(ctx, &subscriber, id_of(ctx, object)), object);
}

void peer::listen(const std::string &pattern) {
    handler.cb = on_event;
    must(ubus_register_event_handler(ctx, &handler, pattern.c_str()), pattern);
}

void peer::send_event(const std::string &name, const std::string &json) {
    json_message message{json};
    must(ubus_send_event(ctx, name.c_str(), message.head()), name);
}

void peer::publish(const std::string &name) {
    published &one = own.emplace_back();
    one.name = name;
    one.type.name = one.name.c_str();
    one.object.name = one.name.c_str();
    one.object.type = &one.type;
    must(ubus_add_object(ctx, &one.object), name);
}

peer::published *peer::find(const std::string &name) const {
    for (const published &one : own)
        if (one.name == name) return const_cast<published *>(&one);
    throw std::invalid_argument("not published: " + name);
}

void peer::take_back(const std::string &name) {
    must(ubus_remove_object(ctx, &find(name)->object), name);
    find(name)->name.clear();
}

bool peer::has_subscribers(const std::string &name) const { return find(name)->object.has_subscribers; }

void peer::notify(const std::string &name, const std::string &json) {
    json_message message{json};
    must(ubus_notify(ctx, &find(name)->object, "notify", message.head(), -1), name);
}

std::vector<std::string> peer::objects(const std::string &prefix) {
    std::vector<std::string> names;
    ubus_lookup(
        ctx, (prefix + "*").c_str(),
        [](ubus_context *, ubus_object_data *object, void *all) {
            static_cast<std::vector<std::string> *>(all)->emplace_back(object->path);
        },
        &names);
    return names;
}

std::vector<std::string> peer::signature(const std::string &object) {
    std::vector<std::string> all;
    ubus_lookup(
        ctx, object.c_str(),
        [](ubus_context *, ubus_object_data *found, void *lines) {
            *static_cast<std::vector<std::string> *>(lines) = members_of(found->signature);
        },
        &all);
    return all;
}

void disconnect_daemon() {
    if (!sta_ubus_ctx) return;
    while (!avl_is_empty(&sta_ubus_ctx->objects)) {
        ubus_object *object = avl_first_element(&sta_ubus_ctx->objects, object, avl);
        if (ubus_remove_object(sta_ubus_ctx, object) == 0) continue;
        // The broker has gone, and the object's registration with it.
        avl_delete(&sta_ubus_ctx->objects, &object->avl);
        object->id = 0;
        if (object->type) object->type->id = 0;
    }
    uloop_timeout_cancel(&sta_bus_idle_timer);
    ubus_free(sta_ubus_ctx);
    sta_ubus_ctx = nullptr;
}
