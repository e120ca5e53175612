// event.cpp - events: named messages to all listeners.
#include "internal.h"

using ubus_client::is_registered;

namespace {

int on_event(ubus_context *ctx, ubus_object *obj, ubus_request_data *, const char *method, blob_attr *msg) {
    auto *ev = container_of(obj, ubus_event_handler, obj);
    if (ev->cb) ev->cb(ctx, ev, method, msg);
    return UBUS_STATUS_OK;
}

const ubus_method event_method = {nullptr, on_event, 0, 0, nullptr, 0};

// Calls a method of the broker's event object; frees the buffer. `good`: all arguments are in it.
int call_events(ubus_context *ctx, const char *method, blob_buf *arguments, bool good) {
    const int status =
        good ? ubus_invoke(ctx, UBUS_SYSTEM_OBJECT_EVENT, method, arguments->head, nullptr, nullptr, 0)
             : UBUS_STATUS_INVALID_ARGUMENT;
    blob_buf_free(arguments);
    return status;
}

} // namespace

int ubus_send_event(ubus_context *ctx, const char *id, blob_attr *data) {
    blob_buf arguments{};
    const bool good =
        id && blob_buf_init(&arguments, 0) == 0 && blobmsg_add_string(&arguments, "id", id) == 0 &&
        blobmsg_add_field(&arguments, BLOBMSG_TYPE_TABLE, "data", data ? blob_data(data) : nullptr,
                          data ? static_cast<unsigned>(blob_len(data)) : 0) == 0;
    return call_events(ctx, "send", &arguments, good);
}

int ubus_register_event_handler(ubus_context *ctx, ubus_event_handler *ev, const char *pattern) {
    ubus_object *obj = &ev->obj;
    if (ubus_context_is_channel(ctx) || !obj->name != !obj->type) return UBUS_STATUS_INVALID_ARGUMENT;
    const ubus_client::handlers_wait until_listening(ctx);
    if (!is_registered(ctx, obj)) {
        obj->methods = &event_method;
        obj->n_methods = 1;
        const int status = ubus_add_object(ctx, obj);
        if (status) return status;
    }
    blob_buf arguments{};
    const bool good = pattern && blob_buf_init(&arguments, 0) == 0 &&
                      blobmsg_add_u32(&arguments, "object", obj->id) == 0 &&
                      blobmsg_add_string(&arguments, "pattern", pattern) == 0;
    return call_events(ctx, "register", &arguments, good);
}
