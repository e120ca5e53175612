#include "subscription.h"

#include <cstdlib>

#include "access.h"
#include "invoke.h"
#include "send.h"

namespace ubusd {
namespace {

struct subscription {
    object *subscriber, *target;
    list_head of_subscriber, of_target;
};

void tell_owner(object &target, bool active) {
    builder b(target.owner->bus->out);
    b.u32(UBUS_ATTR_OBJID, target.number.id).u8(UBUS_ATTR_ACTIVE, active);
    client_send(*target.owner, UBUS_MSG_NOTIFY, ++target.seq, 0, b.root());
}

void tell_subscriber(object &subscriber, std::uint32_t target) {
    builder b(subscriber.owner->bus->out);
    b.u32(UBUS_ATTR_OBJID, subscriber.number.id).u32(UBUS_ATTR_TARGET, target);
    client_send(*subscriber.owner, UBUS_MSG_UNSUBSCRIBE, ++subscriber.seq, 0, b.root());
}

bool add(object &subscriber, object &target) {
    auto *s = static_cast<subscription *>(std::malloc(sizeof(subscription)));
    if (!s) return false;
    const bool first = list_empty(&target.subscribers);
    s->subscriber = &subscriber;
    s->target = &target;
    list_add(&s->of_subscriber, &subscriber.subscriptions);
    list_add(&s->of_target, &target.subscribers);
    ++subscriber.owner->n_subscriptions;
    if (first) tell_owner(target, true);
    return true;
}

void remove(subscription *s) {
    object &target = *s->target;
    list_del(&s->of_subscriber);
    list_del(&s->of_target);
    --s->subscriber->owner->n_subscriptions;
    std::free(s);
    if (list_empty(&target.subscribers)) tell_owner(target, false);
}

subscription *find_newest(object &subscriber, const object &target) {
    subscription *s;
    list_for_each_entry (s, &subscriber.subscriptions, of_subscriber) {
        if (s->target == &target) return s;
    }
    return nullptr;
}

// The parties of a SUBSCRIBE or UNSUBSCRIBE.
struct parties {
    object *subscriber, *target;
};

int find_parties(const request &req, parties &found) {
    if (!req.has(UBUS_ATTR_OBJID) || !req.has(UBUS_ATTR_TARGET)) return UBUS_STATUS_INVALID_ARGUMENT;
    found.subscriber = object_find(req.bus, req.number(UBUS_ATTR_OBJID));
    if (!found.subscriber) return UBUS_STATUS_NOT_FOUND;
    if (found.subscriber->owner != &req.from) return UBUS_STATUS_INVALID_ARGUMENT;
    found.target = object_find(req.bus, req.number(UBUS_ATTR_TARGET));
    return found.target ? UBUS_STATUS_OK : UBUS_STATUS_NOT_FOUND;
}

} // namespace

int handle_subscribe(request &req) {
    parties p;
    if (const int status = find_parties(req, p)) return status;
    if (p.target->owner == &req.from) return UBUS_STATUS_INVALID_ARGUMENT;
    if (!access_subscribe(req.from, *p.target)) return UBUS_STATUS_NOT_FOUND;
    if (!may_have_another(req.from, req.from.n_subscriptions)) return UBUS_STATUS_PERMISSION_DENIED;
    return add(*p.subscriber, *p.target) ? UBUS_STATUS_OK : UBUS_STATUS_NO_MEMORY;
}

int handle_unsubscribe(request &req) {
    parties p;
    if (const int status = find_parties(req, p)) return status;
    subscription *s = find_newest(*p.subscriber, *p.target);
    if (!s) return UBUS_STATUS_NOT_FOUND;
    remove(s);
    return UBUS_STATUS_OK;
}

int handle_notify(request &req) {
    if (!req.has(UBUS_ATTR_METHOD) || !req.has(UBUS_ATTR_OBJID)) return UBUS_STATUS_INVALID_ARGUMENT;
    const object *target = object_find(req.bus, req.number(UBUS_ATTR_OBJID));
    if (!target) return UBUS_STATUS_NOT_FOUND;
    if (target->owner != &req.from) return UBUS_STATUS_PERMISSION_DENIED;
    if (!can_forward(req)) return UBUS_STATUS_INVALID_ARGUMENT;

    subscription *s;
    if (!wants_no_reply(req)) {
        builder b(req.bus.out);
        b.u32(UBUS_ATTR_OBJID, target->number.id);
        void *list = blob_nest_start(b.raw(), UBUS_ATTR_SUBSCRIBERS);
        if (!list) return UBUS_STATUS_NO_MEMORY;
        list_for_each_entry (s, &target->subscribers, of_target) {
            if (!blob_put_u32(b.raw(), 0, s->subscriber->number.id)) b.fail();
        }
        blob_nest_end(b.raw(), list);
        b.u32(UBUS_ATTR_STATUS, UBUS_STATUS_OK);
        if (!b.root()) return UBUS_STATUS_NO_MEMORY;
        client_send(req.from, UBUS_MSG_STATUS, req.seq, req.peer, b.root());
    }
    list_for_each_entry (s, &target->subscribers, of_target) forward_notification(req, *s->subscriber);
    return no_status;
}

void subscription_remove_all(object &o) {
    while (!list_empty(&o.subscriptions))
        remove(list_first_entry(&o.subscriptions, subscription, of_subscriber));
    while (!list_empty(&o.subscribers)) {
        auto *s = list_first_entry(&o.subscribers, subscription, of_target);
        tell_subscriber(*s->subscriber, o.number.id);
        remove(s);
    }
}

} // namespace ubusd
