// monitor.cpp - the traffic of the bus, a line per message.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <libubox/blobmsg_json.h>

#include "commands.h"

namespace ubus_cli {
namespace {

constexpr const char *type_names[] = {
    "hello",      "status",        "data",      "ping",        "lookup", "invoke",
    "add_object", "remove_object", "subscribe", "unsubscribe", "notify",
};
static_assert(sizeof type_names / sizeof type_names[0] == UBUS_MSG_MONITOR,
              "the monitor sees all other types");

const options *g_options;
blob_buf g_line;

struct shown_attribute {
    const char *name;
    ubus_msg_attr id;
    int type; // of enum blobmsg_type
};

// In the order of printing.
constexpr shown_attribute shown[] = {
    {"status", UBUS_ATTR_STATUS, BLOBMSG_TYPE_INT32},
    {"objpath", UBUS_ATTR_OBJPATH, BLOBMSG_TYPE_STRING},
    {"objid", UBUS_ATTR_OBJID, BLOBMSG_TYPE_INT32},
    {"method", UBUS_ATTR_METHOD, BLOBMSG_TYPE_STRING},
    {"objtype", UBUS_ATTR_OBJTYPE, BLOBMSG_TYPE_INT32},
    {"signature", UBUS_ATTR_SIGNATURE, BLOBMSG_TYPE_TABLE},
    {"data", UBUS_ATTR_DATA, BLOBMSG_TYPE_TABLE},
    {"active", UBUS_ATTR_ACTIVE, BLOBMSG_TYPE_INT8},
    {"no_reply", UBUS_ATTR_NO_REPLY, BLOBMSG_TYPE_INT8},
    {"user", UBUS_ATTR_USER, BLOBMSG_TYPE_STRING},
    {"group", UBUS_ATTR_GROUP, BLOBMSG_TYPE_STRING},
};

// The type that an attribute must have on the bus to be shown as `type`.
unsigned wire_type(int type) {
    switch (type) {
    case BLOBMSG_TYPE_STRING: return BLOB_ATTR_STRING;
    case BLOBMSG_TYPE_INT32: return BLOB_ATTR_INT32;
    case BLOBMSG_TYPE_INT8: return BLOB_ATTR_INT8;
    default: return BLOB_ATTR_NESTED;
    }
}

char *format(blob_attr *data) {
    blob_attr_info policy[UBUS_ATTR_MAX] = {};
    for (const shown_attribute &s : shown) policy[s.id].type = wire_type(s.type);
    blob_attr *found[UBUS_ATTR_MAX] = {};
    if (data) blob_parse_untrusted(data, blob_raw_len(data), found, policy, UBUS_ATTR_MAX);

    blob_buf_init(&g_line, 0);
    for (const shown_attribute &s : shown)
        if (const blob_attr *a = found[s.id])
            blobmsg_add_field(&g_line, s.type, s.name, blob_data(a), static_cast<unsigned>(blob_len(a)));
    return blobmsg_format_json(g_line.head, true);
}

void on_copy(ubus_context *, std::uint32_t, blob_attr *msg) {
    blob_attr_info policy[UBUS_MONITOR_MAX] = {};
    for (const int id : {UBUS_MONITOR_CLIENT, UBUS_MONITOR_PEER, UBUS_MONITOR_SEQ, UBUS_MONITOR_TYPE})
        policy[id].type = BLOB_ATTR_INT32;
    policy[UBUS_MONITOR_SEND].type = BLOB_ATTR_INT8;
    policy[UBUS_MONITOR_DATA].type = BLOB_ATTR_NESTED;
    blob_attr *found[UBUS_MONITOR_MAX] = {};
    blob_parse_untrusted(msg, blob_raw_len(msg), found, policy, UBUS_MONITOR_MAX);
    if (!found[UBUS_MONITOR_CLIENT] || !found[UBUS_MONITOR_PEER] || !found[UBUS_MONITOR_SEND] ||
        !found[UBUS_MONITOR_TYPE])
        return;

    const bool sent = blob_get_u8(found[UBUS_MONITOR_SEND]);
    const std::uint32_t type = blob_get_u32(found[UBUS_MONITOR_TYPE]);
    if (g_options->direction && g_options->direction != (sent ? 't' : 'r')) return;
    if (g_options->types && !(type < UBUS_MSG_MONITOR && (g_options->types & 1u << type))) return;

    char number[16];
    std::snprintf(number, sizeof number, "%u", type);
    char *text = format(found[UBUS_MONITOR_DATA]);
    std::printf("%s %08x #%08x %14s: %s\n", sent ? "->" : "<-", blob_get_u32(found[UBUS_MONITOR_CLIENT]),
                blob_get_u32(found[UBUS_MONITOR_PEER]), type < UBUS_MSG_MONITOR ? type_names[type] : number,
                text ? text : "");
    std::fflush(stdout);
    std::free(text);
}

} // namespace

unsigned message_type(const char *name) {
    for (unsigned i = 0; i < UBUS_MSG_MONITOR; ++i)
        if (!std::strcmp(type_names[i], name)) return 1u << i;
    return 0;
}

int monitor(ubus_context *ctx, const options &opt, arguments args) {
    if (!args.empty()) return bad_usage;
    g_options = &opt;
    ctx->monitor_cb = on_copy;
    if (const int status = ubus_monitor_start(ctx)) return status;
    run_loop(ctx, opt);
    ubus_monitor_stop(ctx);
    blob_buf_free(&g_line);
    return 0;
}

} // namespace ubus_cli
