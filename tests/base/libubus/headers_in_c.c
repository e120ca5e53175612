// The headers are for C programs too: what this file uses must compile as C99, in any order.
#include <libubus.h>
#include <ubus_common.h>
#include <ubusmsg.h>

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

// The layout that programs compiled elsewhere rely on.
_Static_assert(sizeof(struct ubus_msghdr) == 8, "a header on the wire");
_Static_assert(sizeof(void *) != 8 || sizeof(struct ubus_object) == 120, "ubus_object");
_Static_assert(UBUS_ATTR_MAX == 14 && UBUS_MONITOR_MAX == 6 && __UBUS_MSG_LAST == 12 &&
                   __UBUS_STATUS_LAST == 14,
               "numbers of the protocol");
