#include "peer_objects.h"

#include <cstdint>
#include <list>

#include <time.h>
#include <unistd.h>

namespace {

enum { N, PATH, METHOD, TIMEOUT, ARGUMENTS };
const blobmsg_policy tool_policy[ARGUMENTS] = {
    {"n", BLOBMSG_TYPE_INT32},
    {"path", BLOBMSG_TYPE_STRING},
    {"method", BLOBMSG_TYPE_STRING},
    {"timeout", BLOBMSG_TYPE_INT32},
};

struct tool_arguments {
    blob_attr *found[ARGUMENTS];
    explicit tool_arguments(blob_attr *msg) {
        blobmsg_parse(tool_policy, ARGUMENTS, found, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
    }
    int number(int which) const { return found[which] ? static_cast<int>(blobmsg_get_u32(found[which])) : 0; }
    const char *text(int which) const { return found[which] ? blobmsg_get_string(found[which]) : ""; }
};

int echo(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *msg) {
    ubus_send_reply(ctx, req, msg);
    return 0;
}

int fail(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *msg) {
    return tool_arguments(msg).number(N);
}

int datafail(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *msg) {
    ubus_send_reply(ctx, req, msg);
    return tool_arguments(msg).number(N);
}

// A call that is answered later.
struct slow_call {
    uloop_timeout timer{};
    ubus_context *ctx{};
    ubus_request_data req{};
    int n{};
};
std::list<slow_call> g_slow_calls;

void answer_slow(uloop_timeout *timer) {
    auto *call = container_of(timer, slow_call, timer);
    fields reply;
    blobmsg_add_u32(&reply, "slow", static_cast<std::uint32_t>(call->n));
    ubus_send_reply(call->ctx, &call->req, reply);
    ubus_complete_deferred_request(call->ctx, &call->req, 0);
    g_slow_calls.remove_if([call](const slow_call &c) { return &c == call; });
}

int slow(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *msg) {
    slow_call &call = g_slow_calls.emplace_back();
    call.ctx = ctx;
    call.n = tool_arguments(msg).number(N);
    call.timer.cb = answer_slow;
    ubus_defer_request(ctx, req, &call.req);
    uloop_timeout_set(&call.timer, call.n);
    return 0;
}

int block(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *msg) {
    const int ms = tool_arguments(msg).number(N);
    const timespec time{ms / 1000, ms % 1000 * 1000000L};
    nanosleep(&time, nullptr);
    return 0;
}

int multi(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *msg) {
    for (int i = 0; i < tool_arguments(msg).number(N); ++i) {
        fields reply;
        blobmsg_add_u32(&reply, "i", static_cast<std::uint32_t>(i));
        ubus_send_reply(ctx, req, reply);
    }
    return 0;
}

int nodata(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *) { return 0; }

int big(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *msg) {
    fields reply;
    blobmsg_add_string(&reply, "p",
                       std::string(static_cast<std::size_t>(tool_arguments(msg).number(N)), 'x').c_str());
    return ubus_send_reply(ctx, req, reply);
}

// Sends back the caller's descriptor.
int fd(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *) {
    ubus_request_set_fd(ctx, req, ubus_request_get_caller_fd(req));
    return 0;
}

int relay(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *msg) {
    const tool_arguments to(msg);
    fields reply, nothing;
    const int inner = call_path(ctx, to.text(PATH), to.text(METHOD), nothing, to.number(TIMEOUT));
    blobmsg_add_u32(&reply, "inner", static_cast<std::uint32_t>(inner));
    ubus_send_reply(ctx, req, reply);
    return 0;
}

int rmself(ubus_context *ctx, ubus_object *obj, ubus_request_data *, const char *, blob_attr *) {
    return ubus_remove_object(ctx, obj);
}

const blobmsg_policy n_policy[] = {{"n", BLOBMSG_TYPE_INT32}};
const ubus_method toolbox_methods[] = {
    UBUS_METHOD_NOARG("echo", echo),
    UBUS_METHOD("fail", fail, n_policy),
    UBUS_METHOD("datafail", datafail, n_policy),
    UBUS_METHOD("slow", slow, n_policy),
    UBUS_METHOD("block", block, n_policy),
    UBUS_METHOD("multi", multi, n_policy),
    UBUS_METHOD_NOARG("nodata", nodata),
    UBUS_METHOD("big", big, n_policy),
    UBUS_METHOD_NOARG("fd", fd),
    UBUS_METHOD_NOARG("relay", relay),
    UBUS_METHOD_NOARG("rmself", rmself),
};

enum { ALL, ALL_OTHER, MAC, STA_COUNT, WLAN, GET_ARGUMENTS };
const blobmsg_policy get_policy[GET_ARGUMENTS] = {
    {"get_all_sta_status", BLOBMSG_TYPE_STRING}, {"get_all_tk_sta_status", BLOBMSG_TYPE_STRING},
    {"get_sta_mac", BLOBMSG_TYPE_STRING},        {"get_sta_count", BLOBMSG_TYPE_STRING},
    {"get_wlan_sta_info", BLOBMSG_TYPE_STRING},
};

void add_stations(blob_buf *reply) {
    void *stations = blobmsg_open_array(reply, "stas");
    void *station = blobmsg_open_table(reply, nullptr);
    blobmsg_add_string(reply, "mac", "02:00:00:00:00:01");
    blobmsg_add_u32(reply, "radio", 0);
    blobmsg_add_u8(reply, "online", 1);
    blobmsg_add_u64(reply, "rx_bytes", 5000000000);
    blobmsg_add_u16(reply, "vlan", 7);
    blobmsg_close_table(reply, station);
    station = blobmsg_open_table(reply, nullptr);
    blobmsg_add_string(reply, "mac", "02:00:00:00:00:02");
    blobmsg_add_u32(reply, "radio", static_cast<std::uint32_t>(-1));
    blobmsg_add_double(reply, "snr", 1.5);
    blobmsg_close_table(reply, station);
    blobmsg_close_array(reply, stations);
}

int get(ubus_context *ctx, ubus_object *, ubus_request_data *req, const char *, blob_attr *msg) {
    blob_attr *found[GET_ARGUMENTS];
    blobmsg_parse(get_policy, GET_ARGUMENTS, found, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
    if (!found[ALL]) return -1;
    fields reply;
    if (!found[STA_COUNT]) add_stations(&reply);
    blobmsg_add_string(&reply, "count", "2");
    ubus_send_reply(ctx, req, reply);
    return 0;
}

// Wants the first argument of the policy, and its second for "delete".
template <const blobmsg_policy *Policy>
int needs(ubus_context *, ubus_object *, ubus_request_data *, const char *method, blob_attr *msg) {
    const int n = method == std::string("delete") ? 2 : 1;
    blob_attr *found[2] = {};
    blobmsg_parse(Policy, n, found, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
    if (!found[0]) return UBUS_STATUS_INVALID_ARGUMENT;
    return n == 2 && !found[1] ? UBUS_STATUS_NOT_FOUND : UBUS_STATUS_OK;
}

constexpr blobmsg_policy set_policy[] = {{"set_update_log_period", BLOBMSG_TYPE_INT32}};
constexpr blobmsg_policy delete_policy[] = {{"mac", BLOBMSG_TYPE_STRING}, {"radio", BLOBMSG_TYPE_INT32}};
const ubus_method sta_methods[] = {
    UBUS_METHOD("get", get, get_policy),
    UBUS_METHOD("set", needs<set_policy>, set_policy),
    UBUS_METHOD("delete", needs<delete_policy>, delete_policy),
};

const ubus_method ping_methods[] = {UBUS_METHOD_NOARG("ping", nodata)};

ubus_object_type types[] = {
    UBUS_OBJECT_TYPE("sta", sta_methods),
    UBUS_OBJECT_TYPE("toolbox", toolbox_methods),
    UBUS_OBJECT_TYPE("ping", ping_methods),
};

} // namespace

void make_object(ubus_object &obj, const char *name, const std::string &kind) {
    for (ubus_object_type &type : types) {
        if (type.name != kind) continue;
        obj.name = name;
        obj.type = &type;
        obj.methods = type.methods;
        obj.n_methods = type.n_methods;
    }
}

int call_path(ubus_context *ctx, const char *path, const char *method, blob_attr *msg, int timeout,
              ubus_data_handler_t on_data, void *priv) {
    std::uint32_t id = 0;
    const int status = ubus_lookup_id(ctx, path, &id);
    return status ? status : ubus_invoke(ctx, id, method, msg, on_data, priv, timeout);
}
