#include "compat/dhcp_check.h"

#include "inputs/dhcpmon_json.h"
#include "model/table.h"
#include "outputs/bus_link.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"

namespace {

constexpr int answer_ms = 20000;
struct blob_buf selfchk_buf = {};

struct text_freer {
    void operator()(char *text) const noexcept { std::free(text); } // libubox's, not a counted block
};

// Logs a member of the answer and returns it; null when it is missing or null.
json_object *logged_member(json_object *answer, const char *key) {
    json_object *member = nullptr;
    if (!json_object_is_type(answer, json_type_object) || !json_object_object_get_ex(answer, key, &member)) {
        STA_ERROR("sta_ubus", "get jsondata '%s' error ...\n", key);
        return nullptr;
    }
    if (member)
        STA_LOG_AS(STA_NAME_OF(selfchk_dhcpmon_data_get_cb), "%s:%s\n", key,
                   json_object_to_json_string(member));
    else
        STA_LOG_AS(STA_NAME_OF(selfchk_dhcpmon_data_get_cb), "%s node is null \n", key);
    return member;
}

} // namespace

int selfchk_ubus_get_del_dhcpip(sta_info_t *sta, int op) {
    if (!sta) return -1;
    if (!sta_ubus_ctx) {
        STA_LOG("ubus_connect() failed\n");
        return -1;
    }
    if (blob_buf_init(&selfchk_buf, 0) != 0) return -1;
    blobmsg_add_string(&selfchk_buf, "mac", sta->mac);
    std::uint32_t id = 0;
    if (ubus_lookup_id(sta_ubus_ctx, "dhcpmon", &id) != UBUS_STATUS_OK) {
        STA_LOG("get ubus_lookup_id() failed\n");
        return -1;
    }
    if (op == 1)
        ubus_invoke(sta_ubus_ctx, id, "client", selfchk_buf.head, selfchk_dhcpmon_data_get_cb, sta,
                    answer_ms);
    else if (op == 0)
        ubus_invoke(sta_ubus_ctx, id, "del_client", selfchk_buf.head, selfchk_dhcpmon_data_del_cb, nullptr,
                    answer_ms);
    return 0;
}

void selfchk_dhcpmon_data_get_cb(struct ubus_request *req, int /*type*/, struct blob_attr *msg) {
    auto *sta = static_cast<sta_info_t *>(req->priv);
    if (!msg || !sta) return;
    const std::unique_ptr<char, text_freer> text{blobmsg_format_json(msg, true)};
    if (!text) {
        STA_LOG("Received Dhcpmon Null\n");
        return;
    }
    const sta_json answer{json_tokener_parse(text.get())};
    logged_member(answer.get(), "count"); // only logged: the loop uses the length of the list
    json_object *list = logged_member(answer.get(), "list");
    if (!json_object_is_type(list, json_type_array)) return;

    dhcpmon_client client{};
    const std::size_t length = json_object_array_length(list);
    for (std::size_t i = 0; i < length; ++i)
        if (!dhcpmon_client_read(json_object_array_get_idx(list, i), client)) return;
    if (length == 0 || std::string_view{client.mac} != sta->mac) return;
    sta_put_text(sta->ip, client.ip);
    sta_take_name(sta, client.hostName);
    STA_LOG("ip=%s, mac=%s, hostName=%s\n", sta->ip, sta->mac, sta_or_null(sta->name));
}

void selfchk_dhcpmon_data_del_cb(struct ubus_request * /*req*/, int /*type*/, struct blob_attr *msg) {
    if (!msg) return;
    static const struct blobmsg_policy policy = {.name = "result", .type = BLOBMSG_TYPE_STRING};
    struct blob_attr *result = nullptr;
    blobmsg_parse(&policy, 1, &result, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
    if (result)
        STA_LOG("del sta %s\n", blobmsg_get_string(result));
    else
        STA_LOG("Parse json failed!\n");
}
