// Formatting while memory runs out: the first allocation fails, then the second, until a run completes.
#include <gtest/gtest.h>
#include <libubox/blobmsg_json.h>

#include <cstdlib>

#include "message.h"

namespace {
int allocations_left = -1; // negative: no limit
} // namespace

// The sources under test are linked into this program with their realloc() led here; they allocate by nothing
// else.
extern "C" void *__real_realloc(void *ptr, std::size_t size);
extern "C" void *__wrap_realloc(void *ptr, std::size_t size) {
    if (allocations_left == 0) return nullptr;
    if (allocations_left > 0) --allocations_left;
    return __real_realloc(ptr, size);
}

namespace {

TEST(json_text_without_memory, is_null_at_whichever_allocation_fails_and_nothing_leaks) {
    message m;
    blobmsg_buf_init(m);
    const std::string value(600, 'x');
    blobmsg_add_string(m, "s", value.c_str());
    void *arrays[20];
    for (void *&array : arrays) array = blobmsg_open_array(m, nullptr);
    for (std::size_t i = std::size(arrays); i-- > 0;) blobmsg_close_array(m, arrays[i]);
    const std::string nested =
        "{\"s\":\"" + value + "\"," + std::string(20, '[') + std::string(20, ']') + "}";

    int needed = 0;
    for (;; ++needed) {
        allocations_left = needed;
        char *text = blobmsg_format_json(m.buf.head, true);
        allocations_left = -1;
        if (!text) continue;
        EXPECT_EQ(take_text(text), nested);
        break;
    }
    EXPECT_GE(needed, 4) << "two for the text, two for the open containers";
}

TEST(message_without_memory, stays_as_it_was) {
    message m;
    allocations_left = 0;
    const int ret = blobmsg_buf_init(m);
    allocations_left = -1;
    EXPECT_EQ(ret, -ENOMEM);

    blobmsg_buf_init(m);
    blobmsg_add_u32(m, "a", 1);
    const std::string before = m.bytes();
    allocations_left = 0;
    const int added = blobmsg_add_string(m, "s", std::string(300, 'x').c_str());
    allocations_left = -1;
    EXPECT_EQ(added, -1);
    EXPECT_EQ(m.bytes(), before);
}

} // namespace
