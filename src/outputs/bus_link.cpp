#include "outputs/bus_link.h"

struct ubus_context *sta_ubus_ctx = nullptr;
struct blob_buf sta_ubus_reply_buf = {};
struct ubus_object sta_ubus_object = {};
struct ubus_object sta_wsmd_object = {};
struct uloop_timeout sta_bus_idle_timer = {};

bool sta_bus_make_room(struct blob_buf *buf) noexcept {
    constexpr int station_size_max = 4096; // every text full, the name at its longest: 2.4 KiB
    constexpr int step = 65536;
    if (sta_bus_can_carry(buf)) {
        const auto used =
            reinterpret_cast<const char *>(blob_next(buf->head)) - static_cast<const char *>(buf->buf);
        if (buf->buflen - used >= station_size_max || blob_buf_grow(buf, step)) return true;
    }
    blob_buf_free(buf);
    return false;
}

void sta_bus_free_when_idle() noexcept {
    constexpr int idle_ms = 10000; // twice the period of a page that shows the stations
    sta_bus_idle_timer.cb = [](struct uloop_timeout * /*timer*/) { blob_buf_free(&sta_ubus_reply_buf); };
    uloop_timeout_set(&sta_bus_idle_timer, idle_ms);
}
