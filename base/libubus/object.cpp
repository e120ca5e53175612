// object.cpp - own objects: registering them, and what others send to them.
#include <cstring>

#include <unistd.h>

#include "internal.h"

namespace ubus_client {
namespace {

ubus_object *find_object(ubus_context *ctx, std::uint32_t id) {
    ubus_object *obj = nullptr;
    return avl_find_element(&ctx->objects, &id, obj, avl);
}

// Whether argument `i` of the type's policy belongs to the method.
bool is_argument(const ubus_method &method, int i) {
    constexpr int bits = static_cast<int>(8 * sizeof method.mask);
    return method.mask == 0 || (i < bits && (method.mask >> i & 1));
}

void add_signature(builder &b, const ubus_object_type &type) {
    void *signature = blob_nest_start(b.raw(), UBUS_ATTR_SIGNATURE);
    if (!signature) return b.fail();
    for (int m = 0; m < type.n_methods; ++m) {
        const ubus_method &method = type.methods[m];
        if (!method.name) continue; // takes every name, so it has none to publish
        void *arguments = blobmsg_open_table(b.raw(), method.name);
        if (!arguments) return b.fail();
        for (int i = 0; i < method.n_policy; ++i) {
            if (!is_argument(method, i)) continue;
            const blobmsg_policy &argument = method.policy[i];
            if (blobmsg_add_u32(b.raw(), argument.name, argument.type)) b.fail();
        }
        blobmsg_close_table(b.raw(), arguments);
    }
    blob_nest_end(b.raw(), signature);
}

void on_added(ubus_request *req, int, blob_attr *body) {
    auto *obj = static_cast<ubus_object *>(req->priv);
    blob_attr *attrs[UBUS_ATTR_MAX];
    ubus_wire::parse(body, attrs);
    if (attrs[UBUS_ATTR_OBJID]) obj->id = blob_get_u32(attrs[UBUS_ATTR_OBJID]);
    if (attrs[UBUS_ATTR_OBJTYPE] && obj->type) obj->type->id = blob_get_u32(attrs[UBUS_ATTR_OBJTYPE]);
}

void on_removed(ubus_request *req, int, blob_attr *body) {
    auto *obj = static_cast<ubus_object *>(req->priv);
    blob_attr *attrs[UBUS_ATTR_MAX];
    ubus_wire::parse(body, attrs);
    if (attrs[UBUS_ATTR_OBJTYPE] && obj->type) obj->type->id = 0;
}

void send_status(ubus_context *ctx, const ubus_request_data &req, int status, int fd = -1) {
    builder b(out_buffer());
    b.u32(UBUS_ATTR_STATUS, static_cast<std::uint32_t>(status)).u32(UBUS_ATTR_OBJID, req.object);
    send(ctx, UBUS_MSG_STATUS, req.seq, req.peer, b.root(), fd);
}

ubus_handler_t find_handler(const ubus_object &obj, const char *method) {
    for (int i = 0; i < obj.n_methods; ++i)
        if (!obj.methods[i].name || !std::strcmp(obj.methods[i].name, method)) return obj.methods[i].handler;
    return nullptr;
}

void deliver_invoke(ubus_context *ctx, message &msg, blob_attr **attrs) {
    if (!attrs[UBUS_ATTR_OBJID]) return;

    ubus_request_data req{};
    req.object = blob_get_u32(attrs[UBUS_ATTR_OBJID]);
    req.peer = msg.peer;
    req.seq = msg.seq;
    req.fd = -1;
    req.req_fd = -1;

    const bool channel = ubus_context_is_channel(ctx);
    ubus_object *obj = channel ? nullptr : find_object(ctx, req.object);
    if (!channel && !obj) return send_status(ctx, req, UBUS_STATUS_NOT_FOUND);
    if (!attrs[UBUS_ATTR_METHOD] || !attrs[UBUS_ATTR_DATA])
        return send_status(ctx, req, UBUS_STATUS_INVALID_ARGUMENT);

    const char *method = blob_get_string(attrs[UBUS_ATTR_METHOD]);
    const ubus_handler_t handler = channel ? ctx->request_handler : find_handler(*obj, method);
    if (!handler) return send_status(ctx, req, UBUS_STATUS_METHOD_NOT_FOUND);

    if (obj && attrs[UBUS_ATTR_USER] && attrs[UBUS_ATTR_GROUP]) {
        req.acl.user = blob_get_string(attrs[UBUS_ATTR_USER]);
        req.acl.group = blob_get_string(attrs[UBUS_ATTR_GROUP]);
        req.acl.object = obj->name;
    }
    const bool no_reply = attrs[UBUS_ATTR_NO_REPLY] && blob_get_u8(attrs[UBUS_ATTR_NO_REPLY]);

    req.req_fd = msg.fd;
    msg.fd = -1;
    const int status = handler(ctx, obj, &req, method, attrs[UBUS_ATTR_DATA]); // may remove and free `obj`
    if (req.req_fd >= 0) close(req.req_fd);
    if (!req.deferred && !no_reply) return send_status(ctx, req, status, req.fd);
    if (req.fd >= 0) close(req.fd);
}

void deliver_active(ubus_context *ctx, blob_attr **attrs) {
    if (!attrs[UBUS_ATTR_OBJID] || !attrs[UBUS_ATTR_ACTIVE]) return;
    ubus_object *obj = find_object(ctx, blob_get_u32(attrs[UBUS_ATTR_OBJID]));
    if (!obj) return;
    obj->has_subscribers = blob_get_u8(attrs[UBUS_ATTR_ACTIVE]);
    if (obj->subscribe_cb) obj->subscribe_cb(ctx, obj);
}

void deliver_gone(ubus_context *ctx, blob_attr **attrs) {
    if (!attrs[UBUS_ATTR_OBJID] || !attrs[UBUS_ATTR_TARGET]) return;
    ubus_object *obj = find_object(ctx, blob_get_u32(attrs[UBUS_ATTR_OBJID]));
    if (!obj || obj->methods != &watch_method) return;
    auto *s = container_of(obj, ubus_subscriber, obj);
    if (s->remove_cb) s->remove_cb(ctx, s, blob_get_u32(attrs[UBUS_ATTR_TARGET]));
}

} // namespace

void deliver(ubus_context *ctx, message &msg) {
    blob_attr *attrs[UBUS_ATTR_MAX];
    ubus_wire::parse(msg.body, attrs);
    const bool channel = ubus_context_is_channel(ctx);
    ++ctx->stack_depth;
    if (msg.type == UBUS_MSG_INVOKE)
        deliver_invoke(ctx, msg, attrs);
    else if (msg.type == UBUS_MSG_NOTIFY && !channel)
        deliver_active(ctx, attrs);
    else if (msg.type == UBUS_MSG_UNSUBSCRIBE && !channel)
        deliver_gone(ctx, attrs);
    --ctx->stack_depth;
}

bool is_registered(ubus_context *ctx, const ubus_object *obj) {
    return obj->id != 0 && find_object(ctx, obj->id) == obj;
}

int compare_ids(const void *a, const void *b, void *) {
    const std::uint32_t x = *static_cast<const std::uint32_t *>(a),
                        y = *static_cast<const std::uint32_t *>(b);
    return (x > y) - (x < y);
}

} // namespace ubus_client

using namespace ubus_client;

int ubus_add_object(ubus_context *ctx, ubus_object *obj) {
    if (is_registered(ctx, obj)) return UBUS_STATUS_INVALID_ARGUMENT;

    const handlers_wait until_added(ctx);
    builder b(out_buffer());
    if (obj->name && obj->type) {
        b.text(UBUS_ATTR_OBJPATH, obj->name);
        if (obj->type->id)
            b.u32(UBUS_ATTR_OBJTYPE, obj->type->id);
        else
            add_signature(b, *obj->type);
    }
    obj->id = 0;
    const int status = ask(ctx, UBUS_MSG_ADD_OBJECT, b.root(), on_added, obj);
    if (status) {
        obj->id = 0;
        return status;
    }
    if (obj->id == 0) return UBUS_STATUS_NO_DATA;

    obj->avl.key = &obj->id;
    if (avl_insert(&ctx->objects, &obj->avl)) {
        obj->id = 0; // the broker gave one id twice
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    return UBUS_STATUS_OK;
}

int ubus_remove_object(ubus_context *ctx, ubus_object *obj) {
    builder b(out_buffer());
    b.u32(UBUS_ATTR_OBJID, obj->id);
    const int status = ask(ctx, UBUS_MSG_REMOVE_OBJECT, b.root(), on_removed, obj);
    const bool lost = ctx->sock.fd < 0; // then the broker does not have the object either
    if (status && !lost) return status;
    if (is_registered(ctx, obj)) avl_delete(&ctx->objects, &obj->avl);
    if (lost && obj->type) obj->type->id = 0;
    obj->id = 0;
    return status;
}

int ubus_send_reply(ubus_context *ctx, ubus_request_data *req, blob_attr *msg) {
    builder b(out_buffer());
    // Answers can be long: the content is sent from where the program has put it together.
    const ubus_wire::apart data = b.u32(UBUS_ATTR_OBJID, req->object).content_apart(UBUS_ATTR_DATA, msg);
    return send(ctx, UBUS_MSG_DATA, req->seq, req->peer, b.root(), -1, data) ? UBUS_STATUS_OK
                                                                             : UBUS_STATUS_NO_DATA;
}

void ubus_complete_deferred_request(ubus_context *ctx, ubus_request_data *req, int ret) {
    const int fd = req->fd;
    req->fd = -1;
    send_status(ctx, *req, ret, fd);
}
