#include "event.h"

#include <cstdlib>
#include <cstring>

#include <libubox/avl-cmp.h>

#include "access.h"
#include "pattern.h"
#include "send.h"

namespace ubusd {
namespace {

struct registration {
    avl_node by_pattern;
    list_head of_object;
    object *receiver;
    char pattern[];
};

// Sends an event to all who are registered for it, except objects of `sender` (null = the broker).
void broadcast(broker &bus, const client *sender, const char *id, const void *data, std::size_t len) {
    ++bus.event_round;
    registration *r;
    avl_for_each_element (&bus.patterns, r, by_pattern) {
        object &receiver = *r->receiver;
        if (receiver.owner == sender || receiver.event_round == bus.event_round) continue;
        if (!pattern_matches(r->pattern, id)) continue;
        receiver.event_round = bus.event_round;
        builder b(bus.out);
        b.u32(UBUS_ATTR_OBJID, receiver.number.id)
            .text(UBUS_ATTR_METHOD, id)
            .bytes(UBUS_ATTR_DATA, data, len);
        client_send(*receiver.owner, UBUS_MSG_INVOKE, ++bus.event_seq, 0, b.root());
    }
}

// True if the event, with the headers that are added, is not too large for a message.
bool is_sendable(broker &bus, const char *id, const void *data, std::size_t len) {
    builder b(bus.out);
    return b.u32(UBUS_ATTR_OBJID, 0).text(UBUS_ATTR_METHOD, id).bytes(UBUS_ATTR_DATA, data, len).root() !=
           nullptr;
}

void parse_data(const request &req, const blobmsg_policy *policy, int n, blob_attr **found) {
    const blob_attr *data = req.attrs[UBUS_ATTR_DATA];
    blobmsg_parse(policy, n, found, data ? blob_data(data) : nullptr,
                  data ? static_cast<unsigned>(blob_len(data)) : 0);
}

} // namespace

void event_init(broker &bus) { avl_init(&bus.patterns, avl_strcmp, true, nullptr); }

int event_register(request &req) {
    enum { OBJECT, PATTERN, COUNT };
    static const blobmsg_policy policy[COUNT] = {{"object", BLOBMSG_TYPE_INT32},
                                                 {"pattern", BLOBMSG_TYPE_STRING}};
    blob_attr *found[COUNT];
    parse_data(req, policy, COUNT, found);
    if (!found[OBJECT] || !found[PATTERN]) return UBUS_STATUS_INVALID_ARGUMENT;

    const std::uint32_t id = blobmsg_get_u32(found[OBJECT]);
    if (id < UBUS_SYSTEM_OBJECT_MAX) return UBUS_STATUS_PERMISSION_DENIED;
    object *receiver = object_find(req.bus, id);
    if (!receiver) return UBUS_STATUS_NOT_FOUND;
    const char *pattern = blobmsg_get_string(found[PATTERN]);
    if (receiver->owner != &req.from || *pattern == '\0' || !access_listen(req.from, pattern) ||
        !may_have_another(req.from, req.from.n_patterns))
        return UBUS_STATUS_PERMISSION_DENIED;

    auto *r = static_cast<registration *>(std::calloc(1, sizeof(registration) + std::strlen(pattern) + 1));
    if (!r) return UBUS_STATUS_NO_MEMORY;
    std::strcpy(r->pattern, pattern);
    r->receiver = receiver;
    r->by_pattern.key = r->pattern;
    avl_insert(&req.bus.patterns, &r->by_pattern);
    list_add(&r->of_object, &receiver->patterns);
    ++req.from.n_patterns;
    return UBUS_STATUS_OK;
}

int event_send(request &req) {
    enum { ID, DATA, COUNT };
    static const blobmsg_policy policy[COUNT] = {{"id", BLOBMSG_TYPE_STRING}, {"data", BLOBMSG_TYPE_TABLE}};
    blob_attr *found[COUNT];
    parse_data(req, policy, COUNT, found);
    if (!found[ID] || !found[DATA]) return UBUS_STATUS_INVALID_ARGUMENT;

    const char *id = blobmsg_get_string(found[ID]);
    if (!std::strncmp(id, "ubus.", 5) || !access_send(req.from, id)) return UBUS_STATUS_PERMISSION_DENIED;

    const void *data = blobmsg_data(found[DATA]);
    const std::size_t len = blobmsg_data_len(found[DATA]);
    if (!is_sendable(req.bus, id, data, len)) return UBUS_STATUS_INVALID_ARGUMENT;
    broadcast(req.bus, &req.from, id, data, len);
    return UBUS_STATUS_OK;
}

void event_object_changed(broker &bus, const char *id, const object &o) {
    blob_buf data{};
    if (blob_buf_init(&data, 0) == 0 && blobmsg_add_u32(&data, "id", o.number.id) == 0 &&
        blobmsg_add_string(&data, "path", o.path) == 0)
        broadcast(bus, nullptr, id, blob_data(data.head), blob_len(data.head));
    blob_buf_free(&data);
}

void event_rules_loaded(broker &bus) {
    blob_buf data{};
    if (blob_buf_init(&data, 0) == 0 && blobmsg_add_u32(&data, "sequence", bus.rule_sequence) == 0)
        broadcast(bus, nullptr, "ubus.acl.sequence", blob_data(data.head), blob_len(data.head));
    blob_buf_free(&data);
}

void event_forget_patterns(object &o) {
    while (!list_empty(&o.patterns)) {
        auto *r = list_first_entry(&o.patterns, registration, of_object);
        list_del(&r->of_object);
        avl_delete(&o.owner->bus->patterns, &r->by_pattern);
        --o.owner->n_patterns;
        std::free(r);
    }
}

} // namespace ubusd
