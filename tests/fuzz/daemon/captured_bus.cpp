// The functions of the bus library that the daemon's callbacks call. What is sent is checked and dropped; a look-up
// succeeds. Defined in the program, they are found before the library's own.
#include "base/cxx/ubus.h"
#include "support/members.h"

namespace {

// Fails unless the message is sound.
int take(blob_attr *message) {
    if (message) members_of(message);
    return UBUS_STATUS_OK;
}

} // namespace

extern "C" {

int ubus_send_reply(ubus_context *, ubus_request_data *, blob_attr *msg) { return take(msg); }

int ubus_notify(ubus_context *, ubus_object *, const char *, blob_attr *msg, int) { return take(msg); }

int ubus_send_event(ubus_context *, const char *, blob_attr *data) { return take(data); }

int ubus_lookup_id(ubus_context *, const char *, std::uint32_t *id) {
    *id = 1;
    return UBUS_STATUS_OK;
}

int ubus_register_subscriber(ubus_context *, ubus_subscriber *s) {
    s->obj.id = 1;
    return UBUS_STATUS_OK;
}

// What the inline function that unregisters a subscriber calls.
int ubus_remove_object(ubus_context *, ubus_object *obj) {
    obj->id = 0;
    return UBUS_STATUS_OK;
}

int ubus_subscribe(ubus_context *, ubus_subscriber *, std::uint32_t) { return UBUS_STATUS_OK; }
}
