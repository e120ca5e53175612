// acl.cpp - a copy of the access rules that concern our objects.
#include <cstdlib>
#include <cstring>

#include <libubox/avl-cmp.h>

#include "internal.h"

namespace {

// A rule names a user or a group; a part that is missing in one of the two keys matches anything. Programs look rules up in
// the tree by a caller's key, so this is part of the interface.
int compare_keys(const void *a, const void *b, void *) {
    const auto *x = static_cast<const ubus_acl_key *>(a), *y = static_cast<const ubus_acl_key *>(b);
    const char *const left[] = {x->object, x->user, x->group}, *const right[] = {y->object, y->user,
                                                                                 y->group};
    for (int i = 0; i < 3; ++i) {
        const int order = left[i] && right[i] ? std::strcmp(left[i], right[i]) : 0;
        if (order) return order;
    }
    return 0;
}

void forget_rules() {
    acl_object *rule, *next;
    avl_remove_all_elements (&acl_objects, rule, avl, next) std::free(rule);
}

enum { RULE_OBJECT, RULE_USER, RULE_GROUP, RULE_ACL, RULE_COUNT };

void add_rule(blob_attr *table) {
    static const blobmsg_policy policy[RULE_COUNT] = {{"obj", BLOBMSG_TYPE_STRING},
                                                      {"user", BLOBMSG_TYPE_STRING},
                                                      {"group", BLOBMSG_TYPE_STRING},
                                                      {"acl", BLOBMSG_TYPE_TABLE}};
    blob_attr *found[RULE_COUNT];
    blobmsg_parse_attr(policy, RULE_COUNT, found, table);
    if (!found[RULE_OBJECT] || !found[RULE_ACL] || (!found[RULE_USER] && !found[RULE_GROUP])) return;

    const std::size_t size = blob_pad_len(table);
    auto *rule = static_cast<acl_object *>(std::calloc(1, sizeof(acl_object) + size));
    if (!rule) return;
    auto *copy = reinterpret_cast<blob_attr *>(rule + 1);
    std::memcpy(copy, table, size);
    blobmsg_parse_attr(policy, RULE_COUNT, found, copy);
    rule->key.object = blobmsg_get_string(found[RULE_OBJECT]);
    rule->key.user = blobmsg_get_string(found[RULE_USER]);
    rule->key.group = blobmsg_get_string(found[RULE_GROUP]);
    rule->acl = found[RULE_ACL];
    rule->avl.key = &rule->key;
    avl_insert(&acl_objects, &rule->avl);
}

void on_rules(ubus_request *, int, blob_attr *msg) {
    static const blobmsg_policy policy = {"acl", BLOBMSG_TYPE_ARRAY};
    blob_attr *rules, *rule;
    std::size_t rem;
    forget_rules();
    blobmsg_parse(&policy, 1, &rules, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
    blobmsg_for_each_attr (rule, rules, rem) {
        if (blobmsg_check_attr_len(rule, false, rem) && blobmsg_type(rule) == BLOBMSG_TYPE_TABLE)
            add_rule(rule);
    }
}

int query(ubus_context *ctx) {
    return ubus_invoke(ctx, UBUS_SYSTEM_OBJECT_ACL, "query", nullptr, on_rules, nullptr, 0);
}

void on_sequence(ubus_context *ctx, ubus_event_handler *, const char *, blob_attr *) { query(ctx); }

} // namespace

avl_tree acl_objects = AVL_TREE_INIT(acl_objects, compare_keys, true, nullptr);

// For programs that were compiled when this was not yet an inline function.
extern "C" __attribute__((visibility("default"))) bool
exported_acl_matches(const acl_object *rule, const ubus_acl_key *key) __asm__("__ubus_acl_matches");
bool exported_acl_matches(const acl_object *rule, const ubus_acl_key *key) {
    return __ubus_acl_matches(rule, key);
}

int ubus_register_acl(ubus_context *ctx) {
    static ubus_event_handler follow;
    follow.cb = on_sequence;
    const int status = ubus_register_event_handler(ctx, &follow, "ubus.acl.sequence");
    return status ? status : query(ctx);
}
