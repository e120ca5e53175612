#include "commands.h"

namespace ubus_cli {
namespace {

ubus_event_handler g_handler;
arguments g_wanted;

// Only the result of the look-up counts. Some libraries call the callback without checking that there is one.
void ignore(ubus_context *, ubus_object_data *, void *) {}

// An object that shows nothing to this user exists all the same.
bool all_there(ubus_context *ctx) {
    for (const char *path : g_wanted)
        if (ubus_lookup(ctx, path, ignore, nullptr)) return false;
    return true;
}

void on_added(ubus_context *ctx, ubus_event_handler *, const char *, blob_attr *) {
    if (all_there(ctx)) uloop_end();
}

} // namespace

int wait_for(ubus_context *ctx, const options &opt, arguments args) {
    if (args.empty()) return bad_usage;
    g_wanted = args;
    g_handler.cb = on_added;
    // Listens first: what appears between the look and the wait is not missed.
    const int status = ubus_register_event_handler(ctx, &g_handler, "ubus.object.add");
    if (all_there(ctx)) return 0;
    if (status) return status;

    options limited = opt;
    if (limited.timeout < 0) limited.timeout = default_timeout;
    run_loop(ctx, limited);
    return all_there(ctx) ? 0 : UBUS_STATUS_TIMEOUT;
}

} // namespace ubus_cli
