// The headers are for C programs too: what this file uses must compile as C99, in any order.
#include <libubus.h>
#include <ubus_common.h>
#include <ubusmsg.h>

#include <stddef.h>

static int handle(struct ubus_context *ctx, struct ubus_object *obj, struct ubus_request_data *req,
                  const char *method, struct blob_attr *msg) {
    (void)ctx;
    (void)obj;
    (void)req;
    (void)method;
    (void)msg;
    return UBUS_STATUS_OK;
}

static const struct blobmsg_policy policy[] = {{.name = "first", .type = BLOBMSG_TYPE_STRING},
                                               {.name = "second", .type = BLOBMSG_TYPE_INT32}};

static const struct ubus_method methods[] = {
    UBUS_METHOD("plain", handle, policy),
    UBUS_METHOD_TAG("tagged", handle, policy, UBUS_TAG_STATUS | UBUS_TAG_ADMIN),
    UBUS_METHOD_MASK("masked", handle, policy, 1 << 1),
    UBUS_METHOD_NOARG("bare", handle),
    UBUS_METHOD_TAG_NOARG("bare_tagged", handle, UBUS_TAG_PRIVATE),
    {__UBUS_METHOD("spelt_out", handle, 1 << 0, policy, 0)},
    {__UBUS_METHOD_NOARG("bare_spelt_out", handle, 0, 0)},
};

struct ubus_object_type c_type = UBUS_OBJECT_TYPE("c", methods);

// How many rules concern a caller: acl_for_each must work as any loop does, also before an else.
int count_rules(struct ubus_acl_key *key);
int count_rules(struct ubus_acl_key *key) {
    struct acl_object *rule;
    int count = 0;
    if (key->object)
        acl_for_each(rule, key)++ count;
    else
        count = -1;
    return count;
}

// The layout that programs compiled elsewhere rely on: every structure that they embed, fill or read, member by member. The
// numbers hold where pointers have 8 bytes.
#define AT(type, member, offset)                                                                             \
    _Static_assert(sizeof(void *) != 8 || offsetof(struct type, member) == (offset), #member " moved")
#define SIZE(type, size)                                                                                     \
    _Static_assert(sizeof(void *) != 8 || sizeof(struct type) == (size), #type " changed size")

// clang-format off
AT(ubus_method, name, 0); AT(ubus_method, handler, 8); AT(ubus_method, mask, 16); AT(ubus_method, tags, 24);
AT(ubus_method, policy, 32); AT(ubus_method, n_policy, 40); SIZE(ubus_method, 48);
AT(ubus_object_type, name, 0); AT(ubus_object_type, id, 8); AT(ubus_object_type, methods, 16);
AT(ubus_object_type, n_methods, 24); SIZE(ubus_object_type, 32);
AT(ubus_object, avl, 0); AT(ubus_object, name, 56); AT(ubus_object, id, 64); AT(ubus_object, path, 72);
AT(ubus_object, type, 80); AT(ubus_object, subscribe_cb, 88); AT(ubus_object, has_subscribers, 96);
AT(ubus_object, methods, 104); AT(ubus_object, n_methods, 112); SIZE(ubus_object, 120);
AT(ubus_subscriber, list, 0); AT(ubus_subscriber, obj, 16); AT(ubus_subscriber, cb, 136);
AT(ubus_subscriber, remove_cb, 144); AT(ubus_subscriber, new_obj_cb, 152); SIZE(ubus_subscriber, 160);
AT(ubus_event_handler, obj, 0); AT(ubus_event_handler, cb, 120); SIZE(ubus_event_handler, 128);
AT(ubus_object_data, id, 0); AT(ubus_object_data, type_id, 4); AT(ubus_object_data, path, 8);
AT(ubus_object_data, signature, 16); SIZE(ubus_object_data, 24);
AT(ubus_acl_key, user, 0); AT(ubus_acl_key, group, 8); AT(ubus_acl_key, object, 16); SIZE(ubus_acl_key, 24);
AT(ubus_request_data, object, 0); AT(ubus_request_data, peer, 4); AT(ubus_request_data, seq, 8);
AT(ubus_request_data, acl, 16); AT(ubus_request_data, deferred, 40); AT(ubus_request_data, fd, 44);
AT(ubus_request_data, req_fd, 48); SIZE(ubus_request_data, 56);
AT(ubus_request, list, 0); AT(ubus_request, pending, 16); AT(ubus_request, status_code, 32);
AT(ubus_request, status_msg, 36); AT(ubus_request, blocked, 37); AT(ubus_request, cancelled, 38);
AT(ubus_request, notify, 39); AT(ubus_request, peer, 40); AT(ubus_request, seq, 44);
AT(ubus_request, raw_data_cb, 48); AT(ubus_request, data_cb, 56); AT(ubus_request, fd_cb, 64);
AT(ubus_request, complete_cb, 72); AT(ubus_request, fd, 80); AT(ubus_request, ctx, 88); AT(ubus_request, priv, 96);
SIZE(ubus_request, 104);
AT(ubus_notify_request, req, 0); AT(ubus_notify_request, status_cb, 104); AT(ubus_notify_request, complete_cb, 112);
AT(ubus_notify_request, data_cb, 120); AT(ubus_notify_request, pending, 128); AT(ubus_notify_request, id, 132);
SIZE(ubus_notify_request, 200);
AT(ubus_msghdr, version, 0); AT(ubus_msghdr, type, 1); AT(ubus_msghdr, seq, 2); AT(ubus_msghdr, peer, 4);
_Static_assert(sizeof(struct ubus_msghdr) == 8, "a header on the wire");
AT(ubus_msghdr_buf, hdr, 0); AT(ubus_msghdr_buf, data, 8); SIZE(ubus_msghdr_buf, 16);
AT(ubus_context, requests, 0); AT(ubus_context, objects, 16); AT(ubus_context, pending, 64); AT(ubus_context, sock, 80);
AT(ubus_context, pending_timer, 96); AT(ubus_context, local_id, 144); AT(ubus_context, request_seq, 148);
AT(ubus_context, cancel_poll, 150); AT(ubus_context, stack_depth, 152); AT(ubus_context, connection_lost, 160);
AT(ubus_context, monitor_cb, 168); AT(ubus_context, msgbuf, 176); AT(ubus_context, msgbuf_data_len, 192);
AT(ubus_context, msgbuf_reduction_counter, 196); AT(ubus_context, auto_subscribers, 200);
AT(ubus_context, auto_subscribe_event_handler, 216); AT(ubus_context, request_handler, 200); SIZE(ubus_context, 344);
AT(ubus_auto_conn, ctx, 0); AT(ubus_auto_conn, timer, 344); AT(ubus_auto_conn, path, 392); AT(ubus_auto_conn, cb, 400);
SIZE(ubus_auto_conn, 408);
AT(acl_object, key, 0); AT(acl_object, avl, 24); AT(acl_object, acl, 80); SIZE(acl_object, 88);
// clang-format on
_Static_assert(UBUS_ATTR_MAX == 14 && UBUS_MONITOR_MAX == 6 && __UBUS_MSG_LAST == 12 &&
                   __UBUS_STATUS_LAST == 14,
               "numbers of the protocol");
