// subscriber.cpp - watching objects of others.
#include "internal.h"

namespace ubus_client {
namespace {

constexpr const char *object_added = "ubus.object.add";

int on_notification(ubus_context *ctx, ubus_object *obj, ubus_request_data *req, const char *method,
                    blob_attr *msg) {
    auto *s = container_of(obj, ubus_subscriber, obj);
    return s->cb ? s->cb(ctx, obj, req, method, msg) : UBUS_STATUS_OK;
}

// Offers an object to every automatic subscriber. A callback may register and unregister any of them.
void offer(ubus_context *ctx, const char *path, std::uint32_t id) {
    LIST_HEAD(waiting);
    list_splice_tail_init(&ctx->auto_subscribers, &waiting);
    while (!list_empty(&waiting)) {
        auto *s = list_first_entry(&waiting, ubus_subscriber, list);
        list_move_tail(&s->list, &ctx->auto_subscribers);
        if (s->new_obj_cb(ctx, s, path)) ubus_subscribe(ctx, s, id);
    }
}

void on_object_added(ubus_context *ctx, ubus_event_handler *, const char *, blob_attr *msg) {
    enum { ID, PATH, COUNT };
    static const blobmsg_policy policy[COUNT] = {{"id", BLOBMSG_TYPE_INT32}, {"path", BLOBMSG_TYPE_STRING}};
    blob_attr *found[COUNT];
    blobmsg_parse(policy, COUNT, found, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
    if (found[ID] && found[PATH]) offer(ctx, blobmsg_get_string(found[PATH]), blobmsg_get_u32(found[ID]));
}

// The objects that a subscriber accepts. They are subscribed to when the lookup is over.
struct choice {
    ubus_subscriber *subscriber;
    blob_buf ids;
};

void choose(ubus_context *ctx, ubus_object_data *found, void *priv) {
    auto *chosen = static_cast<choice *>(priv);
    if (chosen->subscriber->new_obj_cb(ctx, chosen->subscriber, found->path))
        blob_put_u32(&chosen->ids, 0, found->id);
}

void subscribe_to_existing(ubus_context *ctx, ubus_subscriber *s) {
    choice chosen{s, {}};
    if (blob_buf_init(&chosen.ids, 0)) return;
    ubus_lookup(ctx, nullptr, choose, &chosen);
    blob_attr *id;
    std::size_t rem;
    blob_for_each_attr (id, chosen.ids.head, rem) ubus_subscribe(ctx, s, blob_get_u32(id));
    blob_buf_free(&chosen.ids);
}

// One event handler per context receives the events about new objects.
int watch_new_objects(ubus_context *ctx) {
    ubus_event_handler *ev = &ctx->auto_subscribe_event_handler;
    ev->cb = on_object_added;
    return ubus_register_event_handler(ctx, ev, object_added);
}

} // namespace

const ubus_method watch_method = {nullptr, on_notification, 0, 0, nullptr, 0};

void renew_automatic(ubus_context *ctx) {
    if (list_empty(&ctx->auto_subscribers)) return;
    watch_new_objects(ctx);
    LIST_HEAD(waiting);
    list_splice_tail_init(&ctx->auto_subscribers, &waiting);
    while (!list_empty(&waiting)) {
        auto *s = list_first_entry(&waiting, ubus_subscriber, list);
        list_move_tail(&s->list, &ctx->auto_subscribers);
        subscribe_to_existing(ctx, s);
    }
}

} // namespace ubus_client

using namespace ubus_client;

int ubus_register_subscriber(ubus_context *ctx, ubus_subscriber *s) {
    if (is_registered(ctx, &s->obj)) return UBUS_STATUS_OK;

    const handlers_wait until_subscribed(ctx);
    s->obj.methods = &watch_method;
    s->obj.n_methods = 1;
    const int status = ubus_add_object(ctx, &s->obj);
    if (status) return status;
    INIT_LIST_HEAD(&s->list);
    if (!s->new_obj_cb) return UBUS_STATUS_OK;

    const bool first = !is_registered(ctx, &ctx->auto_subscribe_event_handler.obj);
    list_add_tail(&s->list, &ctx->auto_subscribers);
    if (first) watch_new_objects(ctx);
    subscribe_to_existing(ctx, s);
    return UBUS_STATUS_OK;
}

// For programs that were compiled when this was not yet an inline function.
extern "C" __attribute__((visibility("default"))) int
exported_unregister_subscriber(ubus_context *ctx, ubus_subscriber *s) __asm__("ubus_unregister_subscriber");
int exported_unregister_subscriber(ubus_context *ctx, ubus_subscriber *s) {
    return ubus_unregister_subscriber(ctx, s);
}

static int change_subscription(ubus_context *ctx, ubus_msg_type type, const ubus_subscriber *s,
                               std::uint32_t id) {
    builder b(out_buffer());
    b.u32(UBUS_ATTR_OBJID, s->obj.id).u32(UBUS_ATTR_TARGET, id);
    return ask(ctx, type, b.root());
}

int ubus_subscribe(ubus_context *ctx, ubus_subscriber *s, std::uint32_t id) {
    return change_subscription(ctx, UBUS_MSG_SUBSCRIBE, s, id);
}

int ubus_unsubscribe(ubus_context *ctx, ubus_subscriber *s, std::uint32_t id) {
    return change_subscription(ctx, UBUS_MSG_UNSUBSCRIBE, s, id);
}
