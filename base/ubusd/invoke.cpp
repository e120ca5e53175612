#include "invoke.h"

#include <cstring>

#include "access.h"
#include "acl.h"
#include "event.h"
#include "monitor.h"
#include "send.h"

namespace ubusd {
namespace {

// A method of one of the broker's own objects.
struct system_method {
    const char *name;
    handler call;
};

struct system_object {
    std::uint32_t id;
    int unknown_method; // status
    system_method methods[2];
};

constexpr system_object system_objects[] = {
    {UBUS_SYSTEM_OBJECT_EVENT,
     UBUS_STATUS_INVALID_COMMAND,
     {{"register", event_register}, {"send", event_send}}},
    {UBUS_SYSTEM_OBJECT_ACL, UBUS_STATUS_INVALID_COMMAND, {{"query", acl_query}}},
    {UBUS_SYSTEM_OBJECT_MONITOR,
     UBUS_STATUS_METHOD_NOT_FOUND,
     {{"add", [](request &req) { return monitor_start(req.from); }},
      {"remove", [](request &req) { return monitor_stop(req.from); }}}},
};

const system_object *find_system_object(std::uint32_t id) {
    for (const system_object &o : system_objects)
        if (o.id == id) return &o;
    return nullptr;
}

int call_system_object(const system_object &o, request &req) {
    for (const system_method &m : o.methods)
        if (m.name && !std::strcmp(m.name, req.text(UBUS_ATTR_METHOD))) return m.call(req);
    return o.unknown_method;
}

// The message for the receiver. The broker states the caller, not the caller itself.
const blob_attr *make_call(const request &req, std::uint32_t receiver, bool no_reply) {
    builder b(req.bus.out);
    if (no_reply) b.u8(UBUS_ATTR_NO_REPLY, true);
    b.u32(UBUS_ATTR_OBJID, receiver)
        .text(UBUS_ATTR_METHOD, req.text(UBUS_ATTR_METHOD))
        .text(UBUS_ATTR_USER, req.from.who.user)
        .text(UBUS_ATTR_GROUP, req.from.who.group);
    if (req.has(UBUS_ATTR_DATA)) b.content(UBUS_ATTR_DATA, req.attrs[UBUS_ATTR_DATA]);
    return b.root();
}

} // namespace

bool is_system_object(std::uint32_t id) { return find_system_object(id) != nullptr; }

int handle_invoke(request &req) {
    if (!req.has(UBUS_ATTR_METHOD) || !req.has(UBUS_ATTR_OBJID)) return UBUS_STATUS_INVALID_ARGUMENT;
    const std::uint32_t id = req.number(UBUS_ATTR_OBJID);
    if (const system_object *own = find_system_object(id)) return call_system_object(*own, req);

    const object *o = object_find(req.bus, id);
    if (!o) return UBUS_STATUS_NOT_FOUND;
    if (o->path && !access_method(req.from, o->path, req.text(UBUS_ATTR_METHOD)))
        return UBUS_STATUS_PERMISSION_DENIED;

    const blob_attr *call = make_call(req, id, false);
    if (!call) return UBUS_STATUS_INVALID_ARGUMENT;
    client_send(*o->owner, UBUS_MSG_INVOKE, req.seq, req.from.number.id, call, req.fd);
    return no_status;
}

int handle_answer(request &req) {
    const bool is_status = req.hdr.type == UBUS_MSG_STATUS;
    if (!req.has(UBUS_ATTR_OBJID) || !req.has(is_status ? UBUS_ATTR_STATUS : UBUS_ATTR_DATA))
        return no_status;
    const object *o = object_find(req.bus, req.number(UBUS_ATTR_OBJID));
    if (!o || o->owner != &req.from) return no_status;
    client *caller = client_find(req.bus, req.peer);
    if (!caller) return no_status;

    ubus_msghdr hdr = req.hdr;
    hdr.peer = cpu_to_be32(o->number.id);
    client_send(*caller, hdr, req.body, is_status ? req.fd : -1);
    return no_status;
}

bool wants_no_reply(const request &req) {
    return req.hdr.type == UBUS_MSG_NOTIFY && req.has(UBUS_ATTR_NO_REPLY) &&
           blob_get_u8(req.attrs[UBUS_ATTR_NO_REPLY]);
}

bool can_forward(const request &req) { return make_call(req, 0, wants_no_reply(req)) != nullptr; }

void forward_notification(const request &req, const object &subscriber) {
    client_send(*subscriber.owner, UBUS_MSG_INVOKE, req.seq, req.from.number.id,
                make_call(req, subscriber.number.id, wants_no_reply(req)));
}

} // namespace ubusd
