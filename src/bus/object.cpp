#include "bus/object.h"

#include "bus/events.h"
#include "bus/station_list.h"
#include "bus/wsmd_object.h"
#include "inputs/uci_shell.h"
#include "life/timers.h"
#include "model/departures.h"
#include "model/table.h"
#include "outputs/bus_link.h"
#include "tools/health.h"
#include "tools/log.h"
#include "wlan/removal.h"

#include <iterator>

namespace {

constexpr int reconnect_ms = 2000;

enum { GET_ALL, GET_ALL_TK, GET_MAC, GET_COUNT, GET_WLAN, GET_MAX };
constexpr struct blobmsg_policy get_policy[GET_MAX] = {
    {"get_all_sta_status", BLOBMSG_TYPE_STRING},
    {"get_all_tk_sta_status", BLOBMSG_TYPE_STRING}, // Deliberate: declared for callers, never read
    {"get_sta_mac", BLOBMSG_TYPE_STRING},
    {"get_sta_count", BLOBMSG_TYPE_STRING},
    {"get_wlan_sta_info", BLOBMSG_TYPE_STRING},
};

enum { SET_PERIOD, SET_MAX };
constexpr struct blobmsg_policy set_policy[SET_MAX] = {{"set_update_log_period", BLOBMSG_TYPE_INT32}};

enum { DELETE_MAC, DELETE_RADIO, DELETE_MAX };
constexpr struct blobmsg_policy delete_policy[DELETE_MAX] = {{"mac", BLOBMSG_TYPE_STRING},
                                                             {"radio", BLOBMSG_TYPE_INT32}};

constexpr struct ubus_method method(const char *name, ubus_handler_t handler,
                                    const struct blobmsg_policy *policy, int count) {
    return {name, handler, 0, 0, policy, count};
}

// Referenced by the library for as long as the connection lives.
constexpr struct ubus_method sta_methods[] = {
    method("get", sta_ubus_get_info_methods, get_policy, GET_MAX),
    method("set", sta_ubus_set_info_methods, set_policy, SET_MAX),
    method("delete", sta_ubus_delete_info_methods, delete_policy, DELETE_MAX),
};
struct ubus_object_type sta_object_type = {"sta", 0, sta_methods, std::size(sta_methods)};

struct uloop_timeout sta_ubus_reconnect_timer = {};
struct ubus_object *waiting_dbg_object = nullptr; // given to us before the connection was made

void reconnect(struct uloop_timeout *timer) { sta_ubus_object_connect(timer); }

template <std::size_t N>
void parse(const struct blobmsg_policy (&policy)[N], struct blob_attr *(&found)[N], struct blob_attr *msg) {
    blobmsg_parse(policy, N, found, msg ? blob_data(msg) : nullptr,
                  msg ? static_cast<unsigned>(blob_len(msg)) : 0);
}

// The argument's text; null when it is missing or empty.
const char *argument_text(struct blob_attr *attribute) {
    const char *text = attribute ? blobmsg_get_string(attribute) : nullptr;
    return text && *text != '\0' ? text : nullptr;
}

} // namespace

int sta_ubus_object_init() { return sta_ubus_object_connect(&sta_ubus_reconnect_timer); }

int sta_ubus_object_connect(struct uloop_timeout *timer) {
    STA_LOGFILE("Run in function sta_ubus_object_connect!\n");
    if (!timer) {
        STA_ERROR("sta_ubus", "The parameter error.\n");
        return -1;
    }
    static bool without_broker = false;
    sta_ubus_ctx = ubus_connect(nullptr);
    if (!sta_ubus_ctx) {
        if (sta_first(without_broker)) STA_NOTICE("no bus broker answers: trying again every two seconds\n");
        timer->cb = reconnect;
        return uloop_timeout_set(timer, reconnect_ms);
    }
    if (without_broker) STA_NOTICE("connected to the bus broker\n");
    ubus_add_uloop(
        sta_ubus_ctx); // before the first synchronous call: messages that arrive meanwhile wait for the loop

    sta_ubus_object.name = "sta";
    sta_ubus_object.type = &sta_object_type;
    sta_ubus_object.methods = sta_methods;
    sta_ubus_object.n_methods = std::size(sta_methods);
    if (ubus_add_object(sta_ubus_ctx, &sta_ubus_object) != UBUS_STATUS_OK) STA_LOG("add object fail!\n");
    STA_LOG("success!\n"); // Deliberate: a refused object does not stop the rest

    if (sta_sta_register_ip_change_event() != 0) STA_ERROR("sta_ubus", "Register ip change event failed.\n");
    if (sta_sta_register_dhcp_update_event() != 0) STA_LOGFILE("Register dhcp update event failed.\n");
    if (sta_get_dev_mode() == 1 && sta_ubus_dhcpdump_subscribe() != 0) sta_ubus_dhcpdump_resubscribe(nullptr);
    const int result = sta_sta_register_dev_mode_change_event();
    if (result != 0) STA_ERROR("sta_ubus", "Register dev_mode change event failed.\n");

    if (waiting_dbg_object) ubus_add_object(sta_ubus_ctx, waiting_dbg_object);
    waiting_dbg_object = nullptr;
    sta_wsmd_publish(); // last, so that the object `sta` keeps the number it always had
    return result;
}

int sta_ubus_add_dbg_object(struct ubus_object *obj) {
    if (!obj) {
        STA_LOG("dbg get ubus object fail!\n");
        return -1;
    }
    if (sta_ubus_ctx)
        ubus_add_object(sta_ubus_ctx, obj);
    else
        waiting_dbg_object = obj;
    return 0;
}

int sta_ubus_get_info_methods(struct ubus_context *ctx, struct ubus_object * /*obj*/,
                              struct ubus_request_data *req, const char * /*method*/, struct blob_attr *msg) {
    const sta_turn turn{"sta get"};
    STA_LOG("sta_ubus_get_info_methods\n");
    struct blob_attr *found[GET_MAX] = {};
    parse(get_policy, found, msg);
    if (!found[GET_ALL]) {
        STA_LOG("sta_ubus_get_info_methods param:NULL\n");
        return -1;
    }
    const char *param = blobmsg_get_string(found[GET_ALL]);
    STA_LOG("sta_ubus_get_info_methods param:\"%s\"\n", param);
    if (blob_buf_init(&sta_ubus_reply_buf, 0) != 0) return UBUS_STATUS_NO_MEMORY;
    if (found[GET_COUNT]) {
        sta_encode_json_sta_count_info(&sta_ubus_reply_buf, blobmsg_get_string(found[GET_COUNT]));
    } else {
        const char *mac = argument_text(found[GET_MAC]);
        if (mac) STA_LOG("sta_ubus_get_info_methods sta_mac_param:%s\n", mac);
        const char *wlan = argument_text(found[GET_WLAN]);
        if (wlan) STA_LOG("sta_ubus_get_info_methods sta_info_param:\"%s\"\n", wlan);
        sta_encode_json_sta_array_info(&sta_ubus_reply_buf, param, mac, wlan);
    }
    sta_bus_free_when_idle();
    // More stations than a bus message can carry: answer with an error, never with part of the list.
    if (!sta_bus_can_carry(&sta_ubus_reply_buf)) return UBUS_STATUS_NO_MEMORY;
    ubus_send_reply(ctx, req, sta_ubus_reply_buf.head);
    return 0;
}

int sta_ubus_set_info_methods(struct ubus_context * /*ctx*/, struct ubus_object * /*obj*/,
                              struct ubus_request_data * /*req*/, const char * /*method*/,
                              struct blob_attr *msg) {
    const sta_turn turn{"sta set"};
    STA_LOG("sta_ubus_set_info_methods\n");
    struct blob_attr *found[SET_MAX] = {};
    parse(set_policy, found, msg);
    if (!found[SET_PERIOD]) return 0;
    const auto period = static_cast<int>(blobmsg_get_u32(found[SET_PERIOD]));
    STA_LOG("update_time = %d\n", period);
    blobmsg_buf_init(&sta_ubus_reply_buf);
    sta_sta_log_set_uptate_time(period);
    return 0;
}

int sta_ubus_delete_info_methods(struct ubus_context * /*ctx*/, struct ubus_object * /*obj*/,
                                 struct ubus_request_data * /*req*/, const char * /*method*/,
                                 struct blob_attr *msg) {
    const sta_turn turn{"sta delete"};
    STA_LOG("sta_ubus_delete_info_methods\n");
    struct blob_attr *found[DELETE_MAX] = {};
    parse(delete_policy, found, msg);
    if (!found[DELETE_MAC] || !found[DELETE_RADIO]) return 0;
    const char *mac = blobmsg_get_string(found[DELETE_MAC]);
    const auto radio = static_cast<std::int32_t>(blobmsg_get_u32(found[DELETE_RADIO]));
    STA_LOG("sta_ubus_delete_info_methods mac:%s, radio_id:%d\n", mac, radio);
    const sta_info_t *sta = sta_sta_find_usr(mac);
    if (sta && sta->radio_id == radio) {
        STA_LOG("stamac = %s, sta_radio_id = %d, tempt_radio_id = %d\n", sta->mac, radio, sta->radio_id);
        sta_departures_kick(sta->mac);
        sta_sta_delete_sta_by_roam(sta); // the driver's event removes it from the table
    } else {
        STA_LOG("sta can't find or radio doesn't match\n");
    }
    return 0;
}
