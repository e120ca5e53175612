// bus_asks.cpp - the daemon's connection to the bus without the rest of it: sends the request for another period to the
// first subscriber of its object, and ends.
#include "bus/object.h"
#include "outputs/bus_link.h"
#include "outputs/notify.h"

#include "base/cxx/ubox.h"

namespace {

constexpr int look_ms = 20;

void ask(struct uloop_timeout *timer) {
    if (!sta_ubus_object.has_subscribers) {
        uloop_timeout_set(timer, look_ms);
        return;
    }
    sta_ubus_update_log_time_request();
    // A broker may drop the messages of a client that leaves. When it answers a later request it has passed ours on.
    std::uint32_t id = 0;
    (void)ubus_lookup_id(sta_ubus_ctx, "sta", &id);
    uloop_end();
}

} // namespace

int main() {
    uloop_init();
    if (sta_ubus_object_init() != 0) return 1;
    struct uloop_timeout timer = {};
    timer.cb = ask;
    uloop_timeout_set(&timer, look_ms);
    uloop_run();
    uloop_done();
    return 0;
}
