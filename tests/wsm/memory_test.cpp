// Without memory the tool says so, makes no wrong call, and ends properly.
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/memory.h"
#include "tests/wsm/canned_bus.h"
#include "wsm/watch.h"

// What the library's functions return when they have no memory.
extern "C" {
int __real_blob_buf_init(struct blob_buf *buf, int id);
int __real_blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data,
                             unsigned len);
void *__real_blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array);
char *__real_blobmsg_format_json_with_cb(struct blob_attr *attr, bool list, blobmsg_json_format_t cb,
                                         void *priv, int indent);
int __wrap_blob_buf_init(struct blob_buf *buf, int id);
int __wrap_blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data,
                             unsigned len);
void *__wrap_blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array);
char *__wrap_blobmsg_format_json_with_cb(struct blob_attr *attr, bool list, blobmsg_json_format_t cb,
                                         void *priv, int indent);

int __wrap_blob_buf_init(struct blob_buf *buf, int id) {
    return next_allocation_fails() ? -ENOMEM : __real_blob_buf_init(buf, id);
}

int __wrap_blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data,
                             unsigned len) {
    return next_allocation_fails() ? -1 : __real_blobmsg_add_field(buf, type, name, data, len);
}

void *__wrap_blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array) {
    return next_allocation_fails() ? nullptr : __real_blobmsg_open_nested(buf, name, array);
}

char *__wrap_blobmsg_format_json_with_cb(struct blob_attr *attr, bool list, blobmsg_json_format_t cb,
                                         void *priv, int indent) {
    return next_allocation_fails() ? nullptr
                                   : __real_blobmsg_format_json_with_cb(attr, list, cb, priv, indent);
}
}

namespace {

constexpr const char *mac = "02:00:00:00:00:0a";
constexpr const char *answer =
    R"({"mac":"02:00:00:00:00:0a","radio":1,"total":1,"version":"1","stations":[{"mac":"02:00:00:00:00:0a"},{"mac":"b"}],
        "departed":[{"mac":"02:00:00:00:00:0a"},{"mac":"b"}],"addresses":[{"address":"10.0.0.1"}]})";

using command = std::function<exit_status(struct ubus_context *)>;

struct outcome {
    shown told;
    std::vector<std::string> asked;
    bool failed;
};

outcome run(const command &one, unsigned failing) {
    canned_bus bus;
    bus.answers.assign(60, content_of(answer));
    bus.notifications = {{"joined", content_of(answer)}, {"left", content_of(answer)}};
    fail_allocation(failing);
    const shown told = screen_of([&] { return one(bus.context()); });
    const bool failed = allocation_failed();
    fail_allocation(0);
    return {told, bus.asked(), failed};
}

// Fails each allocation of a command once.
void fail_each(const command &one, unsigned least) {
    const outcome whole = run(one, 0);
    unsigned nth = 1;
    for (;; ++nth) {
        ASSERT_LT(nth, 1000U);
        const outcome torn = run(one, nth);
        if (!torn.failed) break;
        EXPECT_THAT(torn.told.error, testing::HasSubstr("wsm: no memory\n")) << nth;
        EXPECT_THAT(torn.told.out, testing::AnyOf("", testing::EndsWith("\n"))) << nth;
        EXPECT_TRUE(torn.told.status == exit_failed || torn.told.status == whole.told.status) << nth;
        // Each call is one that is also made with memory.
        for (const std::string &question : torn.asked)
            EXPECT_THAT(whole.asked, testing::Contains(question)) << nth;
    }
    EXPECT_GT(nth, least);
}

TEST(wsm_memory, each_allocation_of_a_list_may_fail) {
    fail_each([](auto *bus) { return list_stations(bus, {false, 80}, true); }, 10);
    fail_each([](auto *bus) { return list_stations(bus, {true, 80}, false); }, 4);
}

TEST(wsm_memory, each_allocation_of_the_departed_may_fail) {
    fail_each([](auto *bus) { return list_departed(bus, {false, 80}, 64); }, 4);
    fail_each([](auto *bus) { return list_departed(bus, {true, 80}, 64); }, 3);
}

TEST(wsm_memory, each_allocation_of_a_station_and_of_the_health_may_fail) {
    fail_each([](auto *bus) { return show_station(bus, {true, 80}, mac); }, 3);
    fail_each([](auto *bus) { return show_health(bus, {true, 80}); }, 2);
}

TEST(wsm_memory, each_allocation_of_a_watch_may_fail) {
    fail_each([](auto *bus) { return watch_stations(bus, {true, 80}); }, 2);
}

TEST(wsm_memory, a_kick_without_memory_for_its_station_or_radio_asks_nothing) {
    fail_each([](auto *bus) { return kick_station(bus, {false, 80}, mac); }, 6);
}

} // namespace
