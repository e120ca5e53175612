#include "life/driver_events.h"

#include "inputs/ap_mac.h"
#include "inputs/leases.h"
#include "inputs/network.h"
#include "life/members.h"
#include "life/reports.h"
#include "model/table.h"
#include "protocol/station_event.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"
#include "wlan/channel.h"
#include "wlan/reason.h"

#include <algorithm>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <sys/socket.h>

namespace {

constexpr const char *function = "g_sta_recv_msg"; // speaks in the log for its helpers
#define EVENT_LOG(...) STA_LOG_AS(function, __VA_ARGS__)

constexpr std::uint8_t roaming_to_other_ap = 2; // is_reassoc of a disassociation

// Text of the event's MAC: "aa:bb:cc:dd:ee:ff".
struct mac_text {
    char text[18] = "";
    explicit mac_text(const station_event &event) {
        char digits[13];
        std::snprintf(digits, sizeof(digits), "%02x%02x%02x%02x%02x%02x", event.mac[0], event.mac[1],
                      event.mac[2], event.mac[3], event.mac[4], event.mac[5]);
        sta_mac_col_sep(digits, text);
    }
};

// Signal and power as the record keeps them: readings below -94 count as -65; the power is of the reading
// itself.
void take_signal(sta_info_t *sta, std::int8_t rssi) {
    constexpr std::int8_t weakest = -94;
    constexpr std::int8_t instead = -65;
    sta->rssi = rssi < weakest ? instead : rssi;
    const int power = rssi + 95;
    sta_put_number(sta->power, power < 1 ? 65 : power);
}

// Event value of 0 to 255 as per cent, cut toward zero.
std::int32_t percent(std::int32_t utilization) {
    return static_cast<std::int32_t>(std::int64_t{utilization} * 100 / 255);
}

// The first one or two digits behind at least one other character.
void take_wlanid(sta_info_t *sta, const char *ifname) {
    const std::size_t start = std::strcspn(ifname, "0123456789");
    if (start == 0 || ifname[start] == '\0') return;
    sta->wlanid = ifname[start] - '0';
    const char second = ifname[start + 1];
    if (second >= '0' && second <= '9') sta->wlanid = sta->wlanid * 10 + (second - '0');
}

void take_capabilities(sta_info_t *sta, const station_event &event) {
    sta->supportSTBC = event.supportSTBC;
    sta->supportSGI = event.supportSGI;
    sta->maxMCS = event.maxMCS;
    sta->maxBW = event.maxBW;
    sta->FCAP = event.FCAP;
    sta->fromDS = event.fromDS;
    sta->toDS = event.toDS;
}

void take_vlanid(sta_info_t *sta) {
    const std::int32_t vlanid = sta_sta_get_vlanid(sta);
    sta->vlanid = vlanid < 1 ? 1 : vlanid;
}

void take_repeater(sta_info_t *sta, const station_event &event) {
    const bool repeater = std::string_view{sta->ssid} == "@Talvik-Repeater" || event.repeater == 1;
    sta->repeater_type = repeater ? 1 : 0;
    if (!repeater) return;
    if (!sta->name) sta->name = sta_get_default_name(); // 32 bytes, as the one that may be there
    if (!sta->name) return;
    std::memset(sta->name, 0, sta_name_size);
    std::snprintf(sta->name, sta_name_size, "wireless_repeater_%02x%02x", event.mac[4], event.mac[5]);
}

void associate(const station_event &event) {
    const mac_text mac{event};
    sta_info_t *sta = sta_sta_new(mac.text, event.ssid);
    if (!sta) return;
    if (!sta->name) sta->name = sta_get_default_name();
    take_signal(sta, event.rssi);
    sta->online_ts.sec = static_cast<std::int32_t>(event.time_stamp);
    sta->radio_id = event.radio_id;
    sta->restored = 0;
    sta->no_backup = 0;
    sta->third_flag = 0;
    sta->floornoise = event.floornoise;
    sta->utilization = percent(event.utilization);
    sta->maxRate = event.maxRate;
    sta->channel = event.channel;
    sta->time_delay = event.time_delay;
    sta->is_reassoc = event.is_reassoc;
    sta->roam_enable = event.roam_enable;
    take_wlanid(sta, event.ifname);
    take_capabilities(sta, event);
    sta_put_expanded(sta->ap_auth_req, event.ap_auth_req);
    sta_put_expanded(sta->ap_assoc_req, event.ap_assoc_req);
    EVENT_LOG("ap_auth_req=%s  ap_assoc_req=%s\n", sta->ap_auth_req, sta->ap_assoc_req);
    sta_get_ap_mac(sta->ap_mac);
    EVENT_LOG("up success sta->ap_mac = %s\n", sta->ap_mac);
    EVENT_LOG("maxRate1=%u\n", sta->maxRate);
    sta_put_text(sta->version, event.version, 5);
    sta_put_expanded(sta->ifname, event.ifname);
    take_vlanid(sta);
    sta->load_uptime = sta_uptime_seconds();
    take_repeater(sta, event);
    EVENT_LOG("up: is_reassoc %d vlanid %d rssi %s repeater_type=%d\n", sta->is_reassoc, sta->vlanid,
              sta->power, sta->repeater_type);
    sta_sta_roam_send_msg(sta);
    sta_sta_log_on(sta);
    // It may have been merged into another record: the early report starts over on the one that is in the table.
    if (sta_info_t *known = sta_members_admit(sta)) known->single_log_up_cnt = 0;
}

void take_final_figures(sta_info_t *sta, const station_event &event) {
    sta->offline_ts.sec = static_cast<std::int32_t>(event.time_stamp);
    sta->radio_id = event.radio_id;
    sta->reason_code = event.off_reason_code;
    sta_put_text(sta->reason, sta_off_reason_name(event.off_reason_code));
    sta->flow_rateup = event.sta_rxrate;
    sta->flow_ratedown = event.sta_txrate;
    sta->wifi_up = event.sta_rxbyte;
    sta->wifi_down = event.sta_txbyte;
    sta->maxRate = event.maxRate;
    sta->channel = event.channel;
    sta->is_reassoc = event.is_reassoc;
    take_wlanid(sta, event.ifname);
    take_capabilities(sta, event);
    sta->txper = event.txper;
    sta->rxper = event.rxper;
    sta->txPkt = event.txPkt;
    sta->txBcast = event.txBcast;
    sta->txMcast = event.txMcast;
    sta->cost_assoc_req = event.cost_assoc_req;
    sta->cost_auth_req = event.cost_auth_req;
    sta->cost_msg2 = event.cost_msg2;
    sta->cost_msg4 = event.cost_msg4;
    sta->onesecrxbyte = event.onesecrxbyte;
    sta->onesectxbyte = event.onesectxbyte;
    sta_put_expanded(sta->ap_auth_req, event.ap_auth_req);
    sta_put_expanded(sta->ap_assoc_req, event.ap_assoc_req);
    sta_put_expanded(sta->key_start, event.key_start);
    sta_put_expanded(sta->key_msg2, event.key_msg2);
    sta_put_expanded(sta->key_end, event.key_end);
    take_vlanid(sta);
    take_signal(sta, event.rssi);
    EVENT_LOG("maxRate2=%u\n", sta->maxRate);
    EVENT_LOG("sta->reason=%s wifi_up=%llu wifi_down=%llu flow_rateup=%d flow_ratedown=%d vlanid=%d power=%s "
              "rssi=%d\n",
              sta->reason, static_cast<unsigned long long>(sta->wifi_up),
              static_cast<unsigned long long>(sta->wifi_down), sta->flow_rateup, sta->flow_ratedown,
              sta->vlanid, sta->power, sta->rssi);
}

void disassociate(const station_event &event) {
    const mac_text mac{event};
    sta_info_t *sta = sta_sta_find_usr(mac.text);
    if (sta && std::strcmp(sta->ifname, event.ifname) == 0) {
        take_final_figures(sta, event);
        if (event.is_reassoc == roaming_to_other_ap) {
            EVENT_LOG("sta mac:%s is ap roam status\n", mac.text);
            return;
        }
        sta_sta_log_off(sta);
    }
    // Also for an unknown station or another interface: the table decides.
    sta_sta_del_usr_by_mac(mac.text, event.ifname);
}

void handle_event(std::span<const std::uint8_t, station_event_size> record) {
    station_event event;
    station_event_decode(record, event);
    EVENT_LOG("assoc %d mac %s\n", static_cast<int>(event.assoc), mac_text{event}.text);
    EVENT_LOG("ssid %s ifname %s radio_id %d off_reason_code %d sta_rxbyte=%llu sta_txbyte=%llu "
              "sta_rxrate=%d sta_txrate=%d "
              "rssi=%d\n",
              event.ssid, event.ifname, event.radio_id, event.off_reason_code,
              static_cast<unsigned long long>(event.sta_rxbyte),
              static_cast<unsigned long long>(event.sta_txbyte), event.sta_rxrate, event.sta_txrate,
              event.rssi);
    EVENT_LOG("floornoise=%d utilization=%d version=%s channel %d is_reassoc %d\n", event.floornoise,
              event.utilization, event.version, event.channel, event.is_reassoc);
    if (event.assoc == 1)
        associate(event);
    else if (event.assoc == 0)
        disassociate(event);
}

void watch(struct uloop_fd *watcher) { uloop_fd_add(watcher, ULOOP_READ | ULOOP_BLOCKING); }

} // namespace

void sta_nl_handle(std::span<const std::uint8_t> message, long received) {
    if (sta_nl_is_broken(message.data(), received)) {
        EVENT_LOG("The message contains an error.\n");
        return;
    }
    nlmsghdr header;
    std::memcpy(&header, message.data(), sizeof(header));
    const std::uint8_t cmd = message[NLMSG_HDRLEN];
    if (sta_nl.family > 0 && header.nlmsg_type == sta_nl.family && cmd == station_event_cmd) {
        handle_event(message.subspan<station_event_offset, station_event_size>());
        return;
    }
    if (header.nlmsg_type == GENL_ID_CTRL && cmd == CTRL_CMD_NEWFAMILY) {
        const int family =
            sta_nl_family_in(message.data(), static_cast<std::size_t>(received), station_event_family);
        if (family != 0) {
            if (sta_nl.family != family)
                STA_NOTICE("the driver has announced the family %s\n", station_event_family);
            sta_nl.family = family;
            sta_nl_register(0); // Deliberate: without the station limit, unlike at start
        }
    }
    EVENT_LOG("Creat a new g_sta.\n");
}

void g_sta_recv_msg(struct uloop_fd *watcher, unsigned int /*events*/) {
    STA_LOG("Run in function g_sta_recv_msg\n");
    std::uint8_t message[sta_nl_message_max] = {};
    const ssize_t got = recv(sta_nl.socket, message, sizeof(message), 0);
    if (got < 0) {
        const int reason = errno;
        STA_LOG("Recv msg error. %d [%d] [%s]\n", static_cast<int>(got), reason, std::strerror(reason));
        if (reason == ENOBUFS) STA_NOTICE("events of the driver were lost: its socket was full\n");
        watch(watcher); // the loop has let go of a socket in error
        return;
    }
    if (!watcher->registered) watch(watcher);
    sta_nl_handle(message, got);
}
