// The headers as an interface: usable from C, and with the struct layouts that programs compiled against them
// rely on.
#include <gtest/gtest.h>
#include <libubox/avl.h>
#include <libubox/blobmsg.h>
#include <libubox/uloop.h>

#include <cstddef>
#include <cstring>

#include "headers_in_c.h"

namespace {

TEST(headers_in_c, macros_and_inline_functions_work) {
    EXPECT_EQ(c_list_sum(), 321);
    EXPECT_EQ(c_tree_sum(), 103);
    EXPECT_EQ(c_message_sum(), 2321);
    EXPECT_EQ(c_loop_fires(), 1);
    EXPECT_EQ(c_fallthrough(1), 3);
    EXPECT_EQ(c_fallthrough(2), 2);
    EXPECT_EQ(c_assert_is_active(), 1);
}

TEST(headers_in_c, byte_order_macros_are_constants) {
    EXPECT_EQ(std::memcmp(&c_constants.be16, "\1\2", 2), 0);
    EXPECT_EQ(std::memcmp(&c_constants.be32, "\1\2\3\4", 4), 0);
    EXPECT_EQ(std::memcmp(&c_constants.le32, "\4\3\2\1", 4), 0);
}

// Every struct that other libraries embed, member by member; sizes hold where pointers have 8 bytes.
#define AT(type, member, offset)                                                                             \
    static_assert(sizeof(void *) != 8 || offsetof(struct type, member) == (offset), #member " moved")
#define SIZE(type, size)                                                                                     \
    static_assert(sizeof(void *) != 8 || sizeof(struct type) == (size), #type " changed size")

// clang-format off
AT(list_head, next, 0); AT(list_head, prev, 8); SIZE(list_head, 16);
AT(avl_node, list, 0); AT(avl_node, parent, 16); AT(avl_node, left, 24); AT(avl_node, right, 32);
AT(avl_node, key, 40); AT(avl_node, balance, 48); AT(avl_node, leader, 49); SIZE(avl_node, 56);
AT(avl_tree, list_head, 0); AT(avl_tree, root, 16); AT(avl_tree, count, 24); AT(avl_tree, allow_dups, 28);
AT(avl_tree, comp, 32); AT(avl_tree, cmp_ptr, 40); SIZE(avl_tree, 48);
AT(uloop_fd, cb, 0); AT(uloop_fd, fd, 8); AT(uloop_fd, eof, 12); AT(uloop_fd, error, 13);
AT(uloop_fd, registered, 14); AT(uloop_fd, flags, 15); SIZE(uloop_fd, 16);
AT(uloop_timeout, list, 0); AT(uloop_timeout, pending, 16); AT(uloop_timeout, cb, 24); AT(uloop_timeout, time, 32);
SIZE(uloop_timeout, 48);
AT(uloop_process, list, 0); AT(uloop_process, pending, 16); AT(uloop_process, cb, 24); AT(uloop_process, pid, 32);
SIZE(uloop_process, 40);
AT(uloop_interval, cb, 0); AT(uloop_interval, expirations, 8); AT(uloop_interval, priv, 16); SIZE(uloop_interval, 32);
AT(uloop_signal, list, 0); AT(uloop_signal, orig, 16); SIZE(uloop_signal, 192);
AT(blob_buf, head, 0); AT(blob_buf, grow, 8); AT(blob_buf, buflen, 16); AT(blob_buf, buf, 24); SIZE(blob_buf, 32);
AT(blob_attr_info, type, 0); AT(blob_attr_info, minlen, 4); AT(blob_attr_info, maxlen, 8);
AT(blob_attr_info, validate, 16); SIZE(blob_attr_info, 24);
AT(blobmsg_policy, name, 0); AT(blobmsg_policy, type, 8); SIZE(blobmsg_policy, 16);
static_assert(sizeof(blob_attr) == 4 && alignof(blob_attr) == 1);
static_assert(sizeof(blobmsg_hdr) == 2 && offsetof(blobmsg_hdr, name) == 2);
static_assert(BLOBMSG_TYPE_BOOL == 7 && BLOBMSG_TYPE_DOUBLE == 8 && BLOBMSG_TYPE_LAST == 8 && BLOBMSG_CAST_INT64 == 9);
static_assert(BLOB_ATTR_DOUBLE == 8 && BLOB_ATTR_LAST == 9);
static_assert(ULOOP_READ == 1 && ULOOP_WRITE == 2 && ULOOP_EDGE_TRIGGER == 4 && ULOOP_BLOCKING == 8);
static_assert(ULOOP_EVENT_MASK == 3 && ULOOP_ERROR_CB == 64);
// clang-format on

} // namespace
