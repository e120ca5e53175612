#include "outputs/notify.h"

#include "outputs/bus_link.h"
#include "outputs/station_message.h"
#include "tools/log.h"

#include <ctime>

namespace {

constexpr int no_wait = -1;

int notify_subscribers() {
    return ubus_notify(sta_ubus_ctx, &sta_ubus_object, "notify", sta_ubus_reply_buf.head, no_wait);
}

} // namespace

int dhcp_ubus_send_ip_change_event(const char *mac, const char *changed_ip, const char *before_ip) {
    if (!sta_ubus_ctx) {
        STA_ERROR("sta_ubus", "sta_ubus_ctx is NULL!\n");
        return -1;
    }
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    tzset(); // localtime_r may not do this itself
    localtime_r(&now, &local);
    char changed_time[32];
    (void)std::strftime(changed_time, sizeof(changed_time), "%Y-%m-%d %H:%M:%S", &local);

    struct blob_buf event = {}; // its own: the shared buffer may be in use
    const bool whole = blob_buf_init(&event, 0) == 0 && blobmsg_add_string(&event, "mac", mac) == 0 &&
                       blobmsg_add_string(&event, "before_ip", before_ip) == 0 &&
                       blobmsg_add_string(&event, "changed_ip", changed_ip) == 0 &&
                       blobmsg_add_string(&event, "changed_time", changed_time) == 0;
    if (whole) ubus_send_event(sta_ubus_ctx, "ip_change", event.head);
    STA_LOG("Send [%s] notify.\n", "ip_change");
    blob_buf_free(&event);
    return 0;
}

void sta_ubus_log_info_notify(sta_info_t *sta) {
    STA_LOG("sta_ubus_log_info_notify\n");
    if (!sta || !sta_ubus_ctx || blob_buf_init(&sta_ubus_reply_buf, 0) != 0) return;
    blobmsg_add_string(&sta_ubus_reply_buf, "notify_sta_status", "1");
    if (!sta_bus_make_room(&sta_ubus_reply_buf)) return;
    sta_encode_json_sta_log_table_info(&sta_ubus_reply_buf, sta);
    notify_subscribers();
}

int sta_ubus_update_log_time_request() {
    STA_LOG("sta_ubus_update_log_time_request\n");
    if (!sta_ubus_ctx || blob_buf_init(&sta_ubus_reply_buf, 0) != 0) return 0;
    blobmsg_add_string(&sta_ubus_reply_buf, "request_update_log_period", "1");
    return notify_subscribers();
}
