// The headers from C: every macro and inline function is used here, with the project's warnings on.
#undef NDEBUG // a build with optimization defines it on its own
#define NDEBUG
#include <libubox/assert.h>
#include <libubox/avl-cmp.h>
#include <libubox/avl.h>
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>

#include "headers_in_c.h"

struct element {
    struct avl_node avl;
    struct list_head list;
    int value;
};

int c_list_sum(void) {
    LIST_HEAD(head);
    struct element elements[3] = {{.value = 1}, {.value = 20}, {.value = 300}};
    struct element *e, *next;
    int sum = 0;

    for (size_t i = 0; i < ARRAY_SIZE(elements); i++) list_add(&elements[i].list, &head);
    list_for_each_entry (e, &head, list) sum += e->value;
    list_for_each_entry_safe (e, next, &head, list) list_del(&e->list);
    return list_empty(&head) && !container_of_safe((struct list_head *)NULL, struct element, list) ? sum : -1;
}

int c_tree_sum(void) {
    AVL_TREE(tree, avl_strcmp, false, NULL);
    struct element a = {.avl.key = "a", .value = 1}, b = {.avl.key = "b", .value = 20}, *e, *next;
    int sum = 0;

    avl_insert(&tree, &a.avl);
    avl_insert(&tree, &b.avl);
    e = avl_find_element(&tree, "b", e, avl);
    sum += e->value;
    e = avl_find_ge_element(&tree, "aa", e, avl);
    sum += e->value;
    avl_for_each_element (&tree, e, avl) sum += e->value;
    avl_for_element_range_safe(&a, &b, e, avl, next) sum += e->value;
    avl_remove_all_elements (&tree, e, avl, next) sum += e->value;
    return sum;
}

int c_message_sum(void) {
    static const struct blobmsg_policy policy[] = {{.name = "n", .type = BLOBMSG_TYPE_INT32},
                                                   {.name = "list", .type = BLOBMSG_TYPE_ARRAY}};
    struct blob_attr *tb[ARRAY_SIZE(policy)], *pos;
    struct blob_buf b = {0};
    int sum = 0, rem;
    size_t bytes;
    void *cookie;

    blobmsg_buf_init(&b);
    blobmsg_add_u32(&b, "n", 1);
    cookie = blobmsg_open_array(&b, "list");
    blobmsg_add_u16(&b, NULL, 20);
    blobmsg_add_u64(&b, NULL, 300);
    blobmsg_close_array(&b, cookie);

    if (blobmsg_parse_attr(policy, ARRAY_SIZE(policy), tb, b.head) == 0 && tb[0] && tb[1]) {
        sum += (int)blobmsg_get_u32(tb[0]);
        blobmsg_for_each_attr (pos, tb[1], rem) sum += (int)blobmsg_cast_s64(pos);
        blob_for_each_attr (pos, b.head, bytes) sum += 1000;
    }
    blob_buf_free(&b);
    return sum;
}

static int fired;
static void on_timer(struct uloop_timeout *t) {
    (void)t;
    fired++;
    uloop_end();
}

int c_loop_fires(void) {
    struct uloop_timeout t = {.cb = on_timer};
    fired = 0;
    if (uloop_init() < 0) return -1;
    uloop_timeout_set(&t, 1);
    uloop_run();
    uloop_done();
    return fired;
}

int c_fallthrough(int n) {
    int sum = 0;
    switch (n) {
    case 1: sum += 1; fallthrough;
    case 2: sum += 2; break;
    default: break;
    }
    return sum;
}

int c_assert_is_active(void) {
    int evaluated = 0;
    assert(++evaluated);
    return evaluated;
}

#ifndef NDEBUG
#error "NDEBUG was not put back"
#endif

// Usable where the language requires constants.
struct c_constants c_constants = {
    .be16 = cpu_to_be16(0x0102), .be32 = cpu_to_be32(0x01020304), .le32 = cpu_to_le32(0x01020304)};
