#include "bus/events.h"

#include "inputs/dhcpmon_json.h"
#include "inputs/dhcpmon_list.h"
#include "life/address.h"
#include "outputs/bus_link.h"
#include "tools/check.h"
#include "tools/health.h"
#include "tools/log.h"
#include "tools/text.h"

#include <iterator>

namespace {

constexpr int resubscribe_ms = 3000;

struct ubus_event_handler ip_change_handler = {};
struct ubus_event_handler dhcp_update_handler = {};
struct ubus_event_handler dev_mode_handler = {};

struct ubus_subscriber sta_ubus_dhcpdump_subscriber = {};
struct uloop_timeout sta_ubus_dhcpdump_timer = {};
std::uint32_t dhcpdump_id = 0; // "dhcpmon.client.notify" at the last look-up

int register_handler(struct ubus_event_handler &handler, ubus_event_handler_t callback, const char *pattern) {
    handler = {};
    handler.cb = callback;
    return ubus_register_event_handler(sta_ubus_ctx, &handler, pattern);
}

constexpr struct blobmsg_policy text_policy(const char *name) { return {name, BLOBMSG_TYPE_STRING}; }

// The texts of `msg` under the names of `policy`; null where one is missing or no text.
template <std::size_t N> struct message_texts {
    const char *text[N] = {};
    message_texts(const struct blobmsg_policy (&policy)[N], struct blob_attr *msg) {
        if (!msg) return;
        struct blob_attr *found[N] = {};
        blobmsg_parse(policy, N, found, blob_data(msg), static_cast<unsigned>(blob_len(msg)));
        for (std::size_t i = 0; i < N; ++i)
            if (found[i]) text[i] = blobmsg_get_string(found[i]);
    }
    const char *operator[](std::size_t i) const { return text[i]; }
};

void remove_subscriber() {
    if (sta_ubus_dhcpdump_subscriber.obj.id != 0)
        ubus_unregister_subscriber(sta_ubus_ctx, &sta_ubus_dhcpdump_subscriber);
}

} // namespace

int sta_sta_register_ip_change_event() {
    STA_LOGFILE("Run in function sta_sta_register_ip_change_event!\n");
    return register_handler(ip_change_handler, sta_sta_ip_change_event_cb, "ip_change");
}

int sta_sta_register_dhcp_update_event() {
    STA_LOGFILE("Run in function sta_sta_register_dhcp_update_event!\n");
    return register_handler(dhcp_update_handler, sta_sta_dhcp_update_event_cb, "dhcp_client_update");
}

int sta_sta_register_dev_mode_change_event() {
    STA_LOGFILE("Run in function sta_sta_register_dev_mode_change_event!\n");
    return register_handler(dev_mode_handler, sta_sta_dev_mode_change_event_cb, "dev_mode");
}

void sta_sta_ip_change_event_cb(struct ubus_context * /*ctx*/, struct ubus_event_handler * /*ev*/,
                                const char * /*type*/, struct blob_attr *msg) {
    STA_LOG("Receive ip change event.\n");
    static constexpr struct blobmsg_policy policy[] = {
        text_policy("mac"), text_policy("before_ip"), text_policy("changed_ip"), text_policy("changed_time")};
    const message_texts texts{policy, msg};
    const char *mac = texts[0];
    const char *before_ip = texts[1];
    const char *changed_ip = texts[2];
    if (!STA_WAS_PARSED("sta_ubus", mac, "sta_mac") ||
        !STA_WAS_PARSED("sta_ubus", before_ip, "sta_before_ip") ||
        !STA_WAS_PARSED("sta_ubus", changed_ip, "sta_changed_ip") ||
        !STA_HAS_LENGTH("sta_ubus", mac, sta_mac_text_min) ||
        !STA_HAS_LENGTH("sta_ubus", before_ip, sta_ip_text_min) ||
        !STA_HAS_LENGTH("sta_ubus", changed_ip, sta_ip_text_min))
        return;
    if (std::strcmp(changed_ip, sta_no_address) == 0)
        STA_LOG("changed_ip is 0.0.0.0.\n");
    else if (std::strcmp(before_ip, sta_no_address) == 0)
        STA_LOG("before_ip is 0.0.0.0.\n"); // our own events end here
    else
        sta_sta_update_ip_by_ip_change_event(mac, before_ip, changed_ip);
}

void sta_sta_dhcp_update_event_cb(struct ubus_context * /*ctx*/, struct ubus_event_handler * /*ev*/,
                                  const char * /*type*/, struct blob_attr *msg) {
    STA_LOG("dhcp update event is send\n");
    static constexpr struct blobmsg_policy policy[] = {text_policy("mac"), text_policy("ip"),
                                                       text_policy("hostName")};
    const message_texts texts{policy, msg};
    const char *mac = texts[0];
    const char *ip = texts[1];
    const char *host_name = texts[2];
    // Deliberate: a missing address or name is reported in the words of a missing MAC.
    if (!STA_WAS_PARSED("sta_ubus", mac, "sta_mac") || !STA_HAS_LENGTH("sta_ubus", mac, sta_mac_text_min) ||
        !STA_WAS_PARSED("sta_ubus", ip, "sta_mac") || !STA_HAS_LENGTH("sta_ubus", ip, sta_ip_text_min))
        return;
    if (std::strcmp(ip, sta_no_address) == 0)
        STA_LOG("sta_sta_dhcp_update_event_cb:ip is 0.0.0.0.\n");
    else if (STA_WAS_PARSED("sta_ubus", host_name, "sta_mac"))
        sta_sta_update_ip_by_dhcp_update_event(mac, ip, host_name);
}

void sta_sta_dev_mode_change_event_cb(struct ubus_context * /*ctx*/, struct ubus_event_handler * /*ev*/,
                                      const char * /*type*/, struct blob_attr *msg) {
    STA_LOGFILE("call back dev_mode change!!\n");
    STA_LOG("Receive ip change event.\n"); // Deliberate: the same words as for an address
    static constexpr struct blobmsg_policy policy[] = {text_policy("forwardMode")};
    const message_texts texts{policy, msg};
    const char *mode = texts[0];
    if (!mode) {
        STA_ERROR("sta_ubus", "Parse forwardMode failed!\n");
        return;
    }
    if (std::strcmp(mode, "ROUTER") == 0) return;
    STA_LOGFILE("Change Mode To %s!\n", mode);
    sta_ubus_dhcpdump_resubscribe(nullptr);
}

int sta_ubus_dhcpdump_subscribe() {
    remove_subscriber(); // registering it twice would break the library's list of objects
    sta_ubus_dhcpdump_subscriber.cb = sta_ubus_dhcpdump_notify_cb;
    sta_ubus_dhcpdump_subscriber.remove_cb = sta_ubus_dhcpdump_server_remove_cb;
    // Where there is no monitor at all, each try costs one look-up. Any other failure is reported by the registration.
    ++sta_health.bus_lookups;
    const int found = ubus_lookup_id(sta_ubus_ctx, "dhcpmon.client.notify", &dhcpdump_id);
    int result = UBUS_STATUS_OK;
    if (found != UBUS_STATUS_NOT_FOUND)
        result = ubus_register_subscriber(sta_ubus_ctx, &sta_ubus_dhcpdump_subscriber);
    if (result != UBUS_STATUS_OK) {
        STA_ERROR("sta_ubus", "Failed to add watch handler: %s\n", ubus_strerror(result));
        return result;
    }
    if (found != UBUS_STATUS_OK) {
        remove_subscriber();
        STA_ERROR("sta_ubus", "Failed to lookup object: %s\n", ubus_strerror(found));
        return found;
    }
    result = ubus_subscribe(sta_ubus_ctx, &sta_ubus_dhcpdump_subscriber, dhcpdump_id);
    if (result != UBUS_STATUS_OK) {
        remove_subscriber();
        STA_ERROR("sta_ubus", "Failed to subscribe: %s\n", ubus_strerror(result));
    }
    return result;
}

void sta_ubus_dhcpdump_resubscribe(struct uloop_timeout * /*timer*/) {
    if (sta_ubus_dhcpdump_subscribe() == UBUS_STATUS_OK) {
        uloop_timeout_cancel(&sta_ubus_dhcpdump_timer); // set by an earlier failure
        return;
    }
    sta_ubus_dhcpdump_timer.cb = sta_ubus_dhcpdump_resubscribe;
    uloop_timeout_set(&sta_ubus_dhcpdump_timer, resubscribe_ms);
}

int sta_ubus_dhcpdump_notify_cb(struct ubus_context * /*ctx*/, struct ubus_object * /*obj*/,
                                struct ubus_request_data * /*req*/, const char * /*method*/,
                                struct blob_attr *msg) {
    static constexpr struct blobmsg_policy policy[] = {text_policy("data")};
    const message_texts texts{policy, msg};
    sta_ubus_json_parse(texts[0]);
    return 0;
}

void sta_ubus_dhcpdump_server_remove_cb(struct ubus_context * /*ctx*/,
                                        struct ubus_subscriber * /*subscriber*/, std::uint32_t /*id*/) {
    STA_LOG("Server remove dhcpdump ubus.\n");
    ubus_unsubscribe(sta_ubus_ctx, &sta_ubus_dhcpdump_subscriber, dhcpdump_id);
    remove_subscriber();
    sta_ubus_dhcpdump_resubscribe(nullptr);
}

int sta_ubus_json_parse(const char *text) {
    if (!text) return -1;
    const sta_json data{json_tokener_parse(text)};
    if (!data) return -1;
    json_object *number = nullptr;
    if (json_object_is_type(data.get(), json_type_object))
        json_object_object_get_ex(data.get(), "count", &number);
    if (!number) {
        STA_ERROR("sta_ubus", "get jsondata 'count' error ...\n");
        return -1;
    }
    const int count =
        std::atoi(json_object_to_json_string(number)); // NOLINT(cert-err34-c): a quoted number reads as 0
    json_object *list = sta_json_member(data.get(), "list", json_type_array);
    if (!list) {
        STA_ERROR("sta_ubus", "get jsondata 'list' error ...\n");
        return -1;
    }
    sta_sta_empty_dhcpmon_list();
    STA_LOG("data=%s\n", text);
    const std::size_t length = json_object_array_length(list);
    for (int i = 0; i < count; ++i) {
        const auto index = static_cast<std::size_t>(i);
        dhcpmon_client client{};
        if (!dhcpmon_client_read(index < length ? json_object_array_get_idx(list, index) : nullptr, client))
            return -1;
        char mac[20], ip[17], host_name[sta_name_size];
        sta_put_text(mac, client.mac);
        sta_put_text(ip, client.ip);
        sta_put_text(host_name, client.hostName);
        STA_LOG("ip=%s, mac=%s, hostName=%s\n", ip, mac, host_name);
        sta_sta_get_dhcpmon_list_by_ubus(ip, host_name, mac);
    }
    return 0;
}
