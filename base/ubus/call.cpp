// call.cpp - single messages: method calls and events.
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include <libubox/blobmsg_json.h>

#include "commands.h"

namespace ubus_cli {
namespace {

struct message {
    blob_buf buf{};
    message() { blob_buf_init(&buf, 0); }
    ~message() { blob_buf_free(&buf); }
    message(message &&) = delete;

    // Takes the fields of a JSON object; without text there are none.
    bool read(arguments json) { return json.empty() || blobmsg_add_json_from_string(&buf, json[0]); }
};

void print_reply(ubus_request *req, int, blob_attr *msg) {
    const auto &opt = *static_cast<const options *>(req->priv);
    char *text = blobmsg_format_json_indent(msg, true, opt.simple ? -1 : 0);
    std::printf("%s\n", text ? text : "");
    std::free(text);
}

int invoke(ubus_context *ctx, const options &opt, std::uint32_t id, arguments args) {
    message msg;
    if (!msg.read(args.subspan(2))) return UBUS_STATUS_PARSE_ERROR;
    const int seconds = opt.timeout < 0 ? default_timeout : opt.timeout;
    return ubus_invoke(ctx, id, args[1], msg.buf.head, print_reply, const_cast<options *>(&opt),
                       seconds * 1000);
}

// In a log the message has the whole command line, and the exit status is negative; a person gets the reason only.
int report(int status, arguments args) {
    std::fputs("Command failed: ubus call", stderr);
    for (const char *arg : args) std::fprintf(stderr, " %s", arg);
    std::fprintf(stderr, " (%s)\n", ubus_strerror(status));
    return -status;
}

} // namespace

int call(ubus_context *ctx, const options &opt, arguments args) {
    if (args.size() < 2 || args.size() > 3) return bad_usage;
    std::uint32_t id = 0;
    if (const int status = ubus_lookup_id(ctx, args[0], &id)) return status;
    if (id == 0) return UBUS_STATUS_NOT_FOUND; // it exists, but this user may not see it

    const int status = invoke(ctx, opt, id, args);
    return status && !opt.simple && !isatty(STDERR_FILENO) ? report(status, args) : status;
}

int send(ubus_context *ctx, const options &, arguments args) {
    if (args.empty() || args.size() > 2) return bad_usage;
    message msg;
    if (!msg.read(args.subspan(1))) return UBUS_STATUS_PARSE_ERROR;
    return ubus_send_event(ctx, args[0], msg.buf.head);
}

} // namespace ubus_cli
