// The bus object of the log library, called as libubus calls it.
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

#include "base/cxx/ubox.h" // its C headers have macros that the C++ library's headers do not survive
#include "debug/dbg.h"
#include "debug/dbg_modules.h"
#include "tests/temporary_folder.h"

extern "C" {
#include <libubus.h>
}

int dbg_configured_threshold(const char * /*module*/, int otherwise) noexcept { return otherwise; }

namespace {

struct dbg_bus : testing::Test {
    dbg_bus() { EXPECT_EQ(dbg_init("tester", folder.file("log").c_str(), 0), 0); }
    // The status of `set` for a message whose last byte is the last of its block.
    static int set(const blob_buf &message) {
        const std::size_t size = blob_raw_len(message.head);
        auto *exact = static_cast<blob_attr *>(std::malloc(size));
        std::memcpy(exact, message.head, size);
        ubus_object *object = dbg_get_ubus_object();
        const int status = object->methods[1].handler(nullptr, object, nullptr, "set", exact);
        std::free(exact);
        return status;
    }
    temporary_folder folder;
    int module = dbg_module_reg("module");
};

TEST_F(dbg_bus, a_member_without_a_name_is_refused_and_sets_nothing) {
    blob_buf message{};
    blob_buf_init(&message, 0);
    blobmsg_add_u32(&message, "level", 7);
    blob_new(&message, BLOBMSG_TYPE_STRING, 0);
    EXPECT_EQ(set(message), UBUS_STATUS_INVALID_ARGUMENT);
    blob_buf_free(&message);
    EXPECT_EQ(dbg_get_state().modules[module].threshold, dbg_level_default);
}

TEST_F(dbg_bus, a_level_is_set) {
    blob_buf message{};
    blob_buf_init(&message, 0);
    blobmsg_add_u32(&message, "level", 6);
    EXPECT_EQ(set(message), UBUS_STATUS_OK);
    blob_buf_free(&message);
    EXPECT_EQ(dbg_get_state().modules[module].threshold, 6);
    EXPECT_TRUE(dbg_set_threshold("module", dbg_level_default));
}

} // namespace
