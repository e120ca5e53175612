#include "life/driver_events.h"

#include "inputs/ap_mac.h"
#include "inputs/leases.h"
#include "inputs/network.h"
#include "life/members.h"
#include "life/reports.h"
#include "model/figures.h"
#include "model/members.h"
#include "model/table.h"
#include "protocol/station_event.h"
#include "tools/log.h"
#include "tools/text.h"
#include "wlan/channel.h"
#include "wlan/reason.h"
#include "wlan/station_change.h"

#include <sys/socket.h>

namespace {

constexpr const char *function = STA_NAME_OF(g_sta_recv_msg); // speaks in the log for its helpers
#define EVENT_LOG(...) STA_LOG_AS(function, __VA_ARGS__)

constexpr std::size_t text_limit = 31; // of the event's texts

// The signal as the record keeps it; the power is that of the reading itself.
void take_signal(sta_info_t *sta, const station_change &change) {
    sta->rssi = change.rssi;
    sta_take_power(sta, change.reading);
}

void take_wlanid(sta_info_t *sta, const station_change &change) {
    if (change.wlanid >= 0) sta->wlanid = change.wlanid;
}

void take_repeater(sta_info_t *sta, const station_change &change) {
    sta->repeater_type = change.repeater ? 1 : 0;
    if (!change.repeater) return;
    if (!sta->name) sta->name = sta_get_default_name(); // 32 bytes, as the one that may be there
    if (!sta->name) return;
    std::memset(sta->name, 0, sta_name_size);
    std::snprintf(sta->name, sta_name_size, "wireless_repeater_%02x%02x", change.figures.mac[4],
                  change.figures.mac[5]);
}

void associate(const station_change &change) {
    const station_event &figures = change.figures;
    sta_info_t *sta = sta_sta_new(change.mac, figures.ssid);
    if (!sta) return;
    if (!sta->name) sta->name = sta_get_default_name();
    take_signal(sta, change);
    sta->online_ts.sec = change.time;
    sta->radio_id = figures.radio_id;
    sta->floornoise = figures.floornoise;
    sta->utilization = change.utilization;
    sta->time_delay = figures.time_delay;
    sta->roam_enable = figures.roam_enable;
    sta_take_place(sta, figures);
    take_wlanid(sta, change);
    sta_take_capabilities(sta, figures);
    sta_take_request_texts(sta, figures, text_limit);
    EVENT_LOG("ap_auth_req=%s  ap_assoc_req=%s\n", sta->ap_auth_req, sta->ap_assoc_req);
    sta_get_ap_mac(sta->ap_mac);
    EVENT_LOG("up success sta->ap_mac = %s\n", sta->ap_mac);
    EVENT_LOG("maxRate1=%u\n", sta->maxRate);
    sta_put_text(sta->version, figures.version, 5);
    sta_put_expanded(sta->ifname, figures.ifname);
    sta_take_vlanid(sta);
    sta->load_uptime = sta_uptime_seconds();
    take_repeater(sta, change);
    EVENT_LOG("up: is_reassoc %d vlanid %d rssi %s repeater_type=%d\n", sta->is_reassoc, sta->vlanid,
              sta->power, sta->repeater_type);
    sta_sta_roam_send_msg(sta);
    sta_sta_log_on(sta);
    // It may have been merged into another record: the early report starts over on the one that is in the table.
    if (sta_info_t *known = sta_members_admit(sta)) known->single_log_up_cnt = 0;
}

void take_final_figures(sta_info_t *sta, const station_change &change) {
    const station_event &figures = change.figures;
    sta->offline_ts.sec = change.time;
    sta->radio_id = figures.radio_id;
    sta->reason_code = figures.off_reason_code;
    sta_put_text(sta->reason, sta_off_reason_name(figures.off_reason_code));
    sta->flow_rateup = figures.sta_rxrate;
    sta->flow_ratedown = figures.sta_txrate;
    sta->wifi_up = figures.sta_rxbyte;
    sta->wifi_down = figures.sta_txbyte;
    sta_take_place(sta, figures);
    take_wlanid(sta, change);
    sta_take_capabilities(sta, figures);
    sta_take_counters(sta, figures);
    sta_take_request_texts(sta, figures, text_limit);
    sta_take_key_texts(sta, figures, text_limit);
    sta_take_vlanid(sta);
    take_signal(sta, change);
    EVENT_LOG("maxRate2=%u\n", sta->maxRate);
    EVENT_LOG("sta->reason=%s wifi_up=%llu wifi_down=%llu flow_rateup=%d flow_ratedown=%d vlanid=%d power=%s "
              "rssi=%d\n",
              sta->reason, static_cast<unsigned long long>(sta->wifi_up),
              static_cast<unsigned long long>(sta->wifi_down), sta->flow_rateup, sta->flow_ratedown,
              sta->vlanid, sta->power, sta->rssi);
}

void disassociate(const station_change &change) {
    sta_info_t *sta = sta_sta_find_usr(change.mac);
    if (sta && std::strcmp(sta->ifname, change.figures.ifname) == 0) {
        take_final_figures(sta, change);
        if (change.kind == station_change_kind::moves) {
            EVENT_LOG("sta mac:%s is ap roam status\n", change.mac);
            return;
        }
        sta_sta_log_off(sta);
    }
    // Also for an unknown station or another interface: the table decides.
    sta_sta_del_usr_by_mac(change.mac, change.figures.ifname);
}

void handle_event(std::span<const std::uint8_t, station_event_size> bytes) {
    station_change change;
    station_change_decode(function, bytes, change);
    switch (change.kind) {
    case station_change_kind::comes: associate(change); break;
    case station_change_kind::goes:
    case station_change_kind::moves: disassociate(change); break;
    case station_change_kind::none: break;
    }
}

void watch(struct uloop_fd *watcher) { uloop_fd_add(watcher, ULOOP_READ | ULOOP_BLOCKING); }

} // namespace

void sta_nl_handle(std::span<const std::uint8_t> message, long received) {
    if (sta_nl_is_broken(message.data(), received)) {
        EVENT_LOG("The message contains an error.\n");
        return;
    }
    if (sta_nl_is_event(message.data())) {
        handle_event(message.subspan<station_event_offset, station_event_size>());
        return;
    }
    sta_nl_take_announcement(message.data(), static_cast<std::size_t>(received));
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
