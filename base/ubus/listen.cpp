// listen.cpp - printing events and notifications until the end.
#include <cstdio>
#include <cstdlib>

#include <libubox/blobmsg_json.h>

#include "commands.h"

namespace ubus_cli {
namespace {

void on_event(ubus_context *, ubus_event_handler *, const char *type, blob_attr *msg) {
    print_event(type, msg);
}

int on_notification(ubus_context *, ubus_object *, ubus_request_data *, const char *method, blob_attr *msg) {
    print_event(method, msg);
    return 0;
}

int cannot_register(const options &opt, const char *what, int status) {
    if (!opt.simple)
        std::fprintf(stderr, "Error while registering for event '%s': %s\n", what, ubus_strerror(status));
    return failed;
}

void on_timeout(uloop_timeout *) { uloop_end(); }

int subscribe_to(ubus_context *ctx, ubus_subscriber &s, const char *path) {
    std::uint32_t id = 0;
    const int status = ubus_lookup_id(ctx, path, &id);
    return status ? status : ubus_subscribe(ctx, &s, id);
}

} // namespace

void print_event(const char *name, blob_attr *fields) {
    char *text = blobmsg_format_json(fields, true);
    std::printf("{ \"%s\": %s }\n", name, text ? text : "");
    std::fflush(stdout);
    std::free(text);
}

void run_loop(ubus_context *ctx, const options &opt) {
    uloop_timeout timeout{};
    timeout.cb = on_timeout;
    ubus_add_uloop(ctx);
    if (opt.timeout > 0) uloop_timeout_set(&timeout, opt.timeout * 1000);
    uloop_run();
    uloop_timeout_cancel(&timeout);
}

int listen(ubus_context *ctx, const options &opt, arguments args) {
    static ubus_event_handler handler;
    static char everything[] = "*";
    static char *const patterns[] = {everything};
    handler.cb = on_event;
    for (const char *pattern : args.empty() ? arguments(patterns) : args)
        if (const int status = ubus_register_event_handler(ctx, &handler, pattern))
            return cannot_register(opt, pattern, status);
    run_loop(ctx, opt);
    return 0;
}

int subscribe(ubus_context *ctx, const options &opt, arguments args) {
    static ubus_subscriber subscriber;
    if (args.empty()) {
        if (!opt.simple) std::fputs("You need to specify an object to subscribe to\n", stderr);
        return failed;
    }
    subscriber.cb = on_notification;
    int status = ubus_register_subscriber(ctx, &subscriber);
    for (std::size_t i = 0; i < args.size() && !status; ++i) status = subscribe_to(ctx, subscriber, args[i]);
    if (status) return cannot_register(opt, args[0], status);
    run_loop(ctx, opt);
    return 0;
}

} // namespace ubus_cli
