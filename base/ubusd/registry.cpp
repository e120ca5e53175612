#include "registry.h"

#include <cstdlib>
#include <cstring>

#include "access.h"
#include "event.h"
#include "invoke.h"
#include "subscription.h"

namespace ubusd {
namespace {

// Beside path and signature, in the largest message about an object: ids, the name of the event, headers.
constexpr std::size_t about_object = 128;

// Every entry of a signature is a named field.
bool is_signature(const blob_attr *signature) {
    blob_attr *method;
    std::size_t rem;
    blob_for_each_attr (method, signature, rem) {
        if (!blobmsg_check_attr_len(method, true, rem)) return false;
    }
    return true;
}

object_type *type_find(const broker &bus, std::uint32_t id) {
    numbered *found = ids_find(bus.types, id);
    return container_of_safe(found, object_type, number);
}

object_type *type_add(broker &bus, const blob_attr *signature) {
    auto *type = static_cast<object_type *>(std::calloc(1, sizeof(object_type)));
    if (!type) return nullptr;
    type->signature = blob_memdup(const_cast<blob_attr *>(signature));
    if (!type->signature) {
        std::free(type);
        return nullptr;
    }
    ids_insert(bus.types, type->number);
    return type;
}

void type_drop_unused(broker &bus, object_type *type) {
    if (!type || type->users > 0) return;
    avl_delete(&bus.types, &type->number.node);
    std::free(type->signature);
    std::free(type);
}

// The bytes that a type adds to those that the broker keeps for a client: none if an object of the client has it
// already.
std::size_t type_cost(const client &c, const object_type *type) {
    if (!type || is_root(c)) return 0;
    const object *o;
    list_for_each_entry (o, &c.objects, of_owner) {
        if (o->type == type) return 0;
    }
    return blob_pad_len(type->signature);
}

// The type that a new object asks for, if any.
object_type *wanted_type(const request &req) {
    if (req.has(UBUS_ATTR_OBJTYPE)) return type_find(req.bus, req.number(UBUS_ATTR_OBJTYPE));
    const blob_attr *signature = req.attrs[UBUS_ATTR_SIGNATURE];
    return signature && is_signature(signature) ? type_add(req.bus, signature) : nullptr;
}

object *object_add(client &owner, const char *path, object_type *type) {
    auto *o = static_cast<object *>(std::calloc(1, sizeof(object)));
    if (!o) return nullptr;
    if (path && !(o->path = strdup(path))) {
        std::free(o);
        return nullptr;
    }
    owner.type_bytes += type_cost(owner, type);
    o->owner = &owner;
    o->type = type;
    if (type) ++type->users;
    INIT_LIST_HEAD(&o->subscribers);
    INIT_LIST_HEAD(&o->subscriptions);
    INIT_LIST_HEAD(&o->patterns);
    list_add(&o->of_owner, &owner.objects);
    ++owner.n_objects;
    ids_insert(owner.bus->objects, o->number);
    if (path) {
        o->by_path.key = o->path;
        avl_insert(&owner.bus->paths, &o->by_path);
    }
    return o;
}

void object_remove(object *o) {
    broker &bus = *o->owner->bus;
    subscription_remove_all(*o);
    event_forget_patterns(*o);

    list_del(&o->of_owner);
    --o->owner->n_objects;
    o->owner->type_bytes -= type_cost(*o->owner, o->type);
    avl_delete(&bus.objects, &o->number.node);
    if (o->path) {
        avl_delete(&bus.paths, &o->by_path);
        event_object_changed(bus, "ubus.object.remove", *o);
    }
    if (o->type) --o->type->users;
    type_drop_unused(bus, o->type);
    std::free(o->path);
    std::free(o);
}

} // namespace

void object_remove_all(client &c) {
    while (!list_empty(&c.objects)) object_remove(list_first_entry(&c.objects, object, of_owner));
}

int handle_add_object(request &req) {
    const char *path = req.has(UBUS_ATTR_OBJPATH) ? req.text(UBUS_ATTR_OBJPATH) : nullptr;
    if (path && (!access_publish(req.from, path) || object_find_path(req.bus, path)))
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (!may_have_another(req.from, req.from.n_objects)) return UBUS_STATUS_PERMISSION_DENIED;

    object_type *type = wanted_type(req);
    const std::size_t size = (path ? std::strlen(path) : 0) + (type ? blob_pad_len(type->signature) : 0);
    const bool permitted = req.from.type_bytes + type_cost(req.from, type) <= type_bytes_limit;
    const bool sendable = size + about_object <= UBUS_MSG_LIMIT;
    object *o = permitted && sendable ? object_add(req.from, path, type) : nullptr;
    if (!o) {
        type_drop_unused(req.bus, type);
        return permitted ? UBUS_STATUS_INVALID_ARGUMENT : UBUS_STATUS_PERMISSION_DENIED;
    }
    if (path) event_object_changed(req.bus, "ubus.object.add", *o);

    builder b(req.bus.out);
    b.u32(UBUS_ATTR_OBJID, o->number.id);
    if (type && req.has(UBUS_ATTR_SIGNATURE)) b.u32(UBUS_ATTR_OBJTYPE, type->number.id);
    reply(req, b.root());
    return UBUS_STATUS_OK;
}

int handle_remove_object(request &req) {
    if (!req.has(UBUS_ATTR_OBJID)) return UBUS_STATUS_INVALID_ARGUMENT;
    const std::uint32_t id = req.number(UBUS_ATTR_OBJID);
    object *o = object_find(req.bus, id);
    if (!o) return is_system_object(id) ? UBUS_STATUS_PERMISSION_DENIED : UBUS_STATUS_NOT_FOUND;
    if (o->owner != &req.from) return UBUS_STATUS_PERMISSION_DENIED;

    builder b(req.bus.out);
    b.u32(UBUS_ATTR_OBJID, id);
    if (o->type && o->type->users == 1) b.u32(UBUS_ATTR_OBJTYPE, o->type->number.id);
    reply(req, b.root());
    object_remove(o);
    return UBUS_STATUS_OK;
}

} // namespace ubusd
