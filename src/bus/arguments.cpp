#include "bus/arguments.h"

#include "tools/text.h"

#include <string_view>

namespace {

// What the web interface's server adds to every call.
constexpr std::string_view session = "ubus_rpc_session";

const struct blobmsg_policy *find(const struct blobmsg_policy *policy, std::size_t count,
                                  std::string_view name) {
    for (std::size_t i = 0; i < count; ++i)
        if (name == policy[i].name) return policy + i;
    return nullptr;
}

} // namespace

const char *sta_arguments_read(const struct blobmsg_policy *policy, std::size_t count,
                               struct blob_attr **found, struct blob_attr *msg) noexcept {
    for (std::size_t i = 0; i < count; ++i) found[i] = nullptr;
    if (!msg) return nullptr;
    struct blob_attr *argument = nullptr;
    std::size_t rest = blob_len(msg);
    __blob_for_each_attr (argument, blob_data(msg), rest) {
        if (!blobmsg_check_attr(argument, true)) return "";
        const char *name = blobmsg_name(argument);
        if (name == session) continue;
        const struct blobmsg_policy *known = find(policy, count, name);
        if (!known || blobmsg_type(argument) != static_cast<int>(known->type) || found[known - policy])
            return name;
        found[known - policy] = argument;
    }
    return rest == 0 ? nullptr : "";
}

int sta_arguments_refuse(struct ubus_context *ctx, struct ubus_request_data *req, const char *why,
                         const char *what) noexcept {
    char name[65]; // `what` comes from the caller and can have any length
    sta_put_text(name, what);
    struct blob_buf answer = {};
    if (blob_buf_init(&answer, 0) == 0 && blobmsg_add_string(&answer, "error", why) == 0 &&
        blobmsg_add_string(&answer, "name", name) == 0)
        ubus_send_reply(ctx, req, answer.head);
    blob_buf_free(&answer);
    return UBUS_STATUS_INVALID_ARGUMENT;
}
