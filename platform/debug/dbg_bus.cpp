// The log library's bus object: thresholds read and set at run time.
#include "base/cxx/ubox.h"
#include "debug/dbg.h"
#include "debug/dbg_modules.h"

#include <cstring>

extern "C" {
#include <libubus.h>
}

namespace {

enum { set_module, set_level };
constexpr blobmsg_policy set_policy[] = {
    {"module", BLOBMSG_TYPE_STRING},
    {"level", BLOBMSG_TYPE_INT32},
};

int handle_get(ubus_context *bus, ubus_object *, ubus_request_data *request, const char *, blob_attr *) {
    const dbg_state &state = dbg_get_state();
    blob_buf reply{};
    blob_buf_init(&reply, 0);
    blobmsg_add_string(&reply, "file", state.file.path);
    blobmsg_add_u64(&reply, "limit", static_cast<std::uint64_t>(state.file.limit));
    blobmsg_add_u32(&reply, "lost", state.lost);
    void *modules = blobmsg_open_table(&reply, "modules");
    for (int i = 0; i < state.module_count; ++i)
        blobmsg_add_u32(&reply, state.modules[i].name,
                        static_cast<std::uint32_t>(state.modules[i].threshold));
    blobmsg_close_table(&reply, modules);
    const int status = ubus_send_reply(bus, request, reply.head);
    blob_buf_free(&reply);
    return status;
}

// Also true for a member that is broken. The parser treats a module that is not a text as missing, and without a module all thresholds would be set.
bool has_module_of_another_type(blob_attr *message, const blob_attr *parsed) {
    blob_attr *member = nullptr;
    std::size_t rest = 0;
    blobmsg_for_each_attr (member, message, rest) {
        if (!blobmsg_check_attr(member, true)) return true; // the parser has looked no further
        if (std::strcmp(blobmsg_name(member), "module") == 0) return parsed == nullptr;
    }
    return false;
}

int handle_set(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *message) {
    blob_attr *given[std::size(set_policy)];
    blobmsg_parse(set_policy, std::size(set_policy), given, blob_data(message),
                  static_cast<unsigned>(blob_len(message)));
    if (!given[set_level] || has_module_of_another_type(message, given[set_module]))
        return UBUS_STATUS_INVALID_ARGUMENT;
    const char *module = given[set_module] ? blobmsg_get_string(given[set_module]) : nullptr;
    const auto level = static_cast<int>(blobmsg_get_u32(given[set_level]));
    return dbg_set_threshold(module, level) ? UBUS_STATUS_OK : UBUS_STATUS_INVALID_ARGUMENT;
}

ubus_method g_methods[] = {
    UBUS_METHOD_NOARG("get", handle_get),
    UBUS_METHOD("set", handle_set, set_policy),
};
ubus_object_type g_type = UBUS_OBJECT_TYPE("debug", g_methods);
char g_name[sizeof(dbg_state::program) + sizeof(".debug")];
constinit ubus_object g_object = [] {
    ubus_object object{};
    object.name = g_name;
    object.type = &g_type;
    object.methods = g_methods;
    object.n_methods = std::size(g_methods);
    return object;
}();

} // namespace

ubus_object *dbg_get_ubus_object(void) {
    const char *program = dbg_get_state().program;
    if (!*program) return nullptr;
    (void)std::snprintf(g_name, sizeof(g_name), "%s.debug", program);
    return &g_object;
}
