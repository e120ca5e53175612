// Records what a daemon receives on the bus: its handlers are wrapped when it registers them with the bus library.
#include "base/cxx/ubus.h"
#include "record/recorder.h"
#include "record/watched_files.h"

#include <algorithm>
#include <dlfcn.h>
#include <iterator>
#include <string_view>

namespace {

constexpr std::string_view object_name{"sta"};

template <class Function> Function *next(const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

// The daemon's own handlers, by the registered object. If the table is full, further ones are not recorded.
template <class Owner, class Handler> struct wrapped {
    const Owner *owner;
    Handler handler;
};
constinit wrapped<ubus_event_handler, ubus_event_handler_t> event_handlers[8] = {};
constinit wrapped<ubus_object, ubus_handler_t> subscribers[4] = {};
constinit ubus_method methods[16] = {}; // of the object "sta", with our handler
constinit ubus_handler_t method_handlers[std::size(methods)] = {};

template <class Owner, class Handler, std::size_t N>
bool remember(wrapped<Owner, Handler> (&known)[N], const Owner *owner, Handler handler) {
    for (auto &slot : known) {
        if (slot.owner && slot.owner != owner) continue;
        slot = {owner, handler};
        return true;
    }
    return false;
}

template <class Owner, class Handler, std::size_t N>
Handler handler_of(const wrapped<Owner, Handler> (&known)[N], const Owner *owner) {
    for (const auto &slot : known)
        if (slot.owner == owner) return slot.handler;
    return nullptr;
}

void record(record_kind kind, const char *name, const blob_attr *message) {
    if (!recorder_runs()) return;
    watched_files_look();
    const std::size_t length = std::min<std::size_t>(name ? std::strlen(name) : 0, UINT16_MAX);
    std::uint8_t header[bus_header];
    wire::put(header + bus_name_size_offset, static_cast<std::uint16_t>(length));
    recorder_write(kind, recorder_now(),
                   {recorder_part(header, sizeof(header)), recorder_part(name, length),
                    recorder_part(message, message ? blob_raw_len(message) : 0)});
}

void on_event(ubus_context *ctx, ubus_event_handler *handler, const char *type, blob_attr *message) {
    record(record_event, type, message);
    if (const auto own = handler_of(event_handlers, handler)) own(ctx, handler, type, message);
}

int on_notification(ubus_context *ctx, ubus_object *object, ubus_request_data *request, const char *method,
                    blob_attr *message) {
    record(record_notification, method, message);
    const auto own = handler_of(subscribers, object);
    return own ? own(ctx, object, request, method, message) : 0;
}

int on_call(ubus_context *ctx, ubus_object *object, ubus_request_data *request, const char *method,
            blob_attr *message) {
    record(record_call, method, message); // queries as well: they make the daemon ask the driver
    for (std::size_t i = 0; i < std::size(methods); ++i)
        if (methods[i].name && std::string_view{methods[i].name} == method)
            return method_handlers[i](ctx, object, request, method, message);
    return UBUS_STATUS_METHOD_NOT_FOUND;
}

// Replaces the daemon's methods by a copy with our handler.
void wrap_methods(ubus_object *object) {
    const int count = object->n_methods;
    if (object->methods == methods || count < 0 || static_cast<std::size_t>(count) > std::size(methods))
        return;
    for (int i = 0; i < count; ++i)
        if (!object->methods[i].name || !object->methods[i].handler) return;
    std::fill(std::begin(methods), std::end(methods), ubus_method{});
    for (int i = 0; i < count; ++i) {
        methods[i] = object->methods[i];
        method_handlers[i] = methods[i].handler;
        methods[i].handler = on_call;
    }
    object->methods = methods;
}

} // namespace

#pragma GCC visibility push(default)

extern "C" int ubus_register_event_handler(ubus_context *ctx, ubus_event_handler *handler,
                                           const char *pattern) {
    const auto real = next<decltype(ubus_register_event_handler)>(__func__);
    if (!real) return UBUS_STATUS_NOT_SUPPORTED;
    if (recorder_runs() && handler->cb && handler->cb != on_event &&
        remember(event_handlers, handler, handler->cb))
        handler->cb = on_event;
    return real(ctx, handler, pattern);
}

extern "C" int ubus_register_subscriber(ubus_context *ctx, ubus_subscriber *subscriber) {
    const auto real = next<decltype(ubus_register_subscriber)>(__func__);
    if (!real) return UBUS_STATUS_NOT_SUPPORTED;
    const ubus_object *object = &subscriber->obj;
    if (recorder_runs() && subscriber->cb && subscriber->cb != on_notification &&
        remember(subscribers, object, subscriber->cb))
        subscriber->cb = on_notification;
    return real(ctx, subscriber);
}

extern "C" int ubus_add_object(ubus_context *ctx, ubus_object *object) {
    const auto real = next<decltype(ubus_add_object)>(__func__);
    if (!real) return UBUS_STATUS_NOT_SUPPORTED;
    if (recorder_runs() && object->name && object_name == object->name) wrap_methods(object);
    return real(ctx, object);
}

#pragma GCC visibility pop
