#include "life/association.h"

#include "inputs/ap_mac.h"
#include "inputs/leases.h"
#include "inputs/network.h"
#include "life/departure.h"
#include "life/members.h"
#include "life/neighbours.h"
#include "life/reports.h"
#include "model/figures.h"
#include "model/members.h"
#include "model/table.h"
#include "outputs/happenings.h"
#include "tools/log.h"
#include "tools/text.h"
#include "wlan/reason.h"
#include "wlan/station_change.h"

namespace {

constexpr const char *function = "g_sta_recv_msg"; // log lines carry this name
#define EVENT_LOG(...) STA_LOG_AS(function, __VA_ARGS__)

constexpr std::size_t text_limit = 31; // of the event's texts

// The record keeps the corrected signal; its power comes from the raw reading.
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
    if (!sta->name) sta->name = sta_get_default_name(); // 32 bytes, as large as an existing one
    if (!sta->name) return;
    std::memset(sta->name, 0, sta_name_size);
    std::snprintf(sta->name, sta_name_size, "wireless_repeater_%02x%02x", change.figures.mac[4],
                  change.figures.mac[5]);
}

void take_final_figures(sta_info_t *sta, const station_change &change, sta_configuration &configuration) {
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
    sta_take_vlanid(sta, configuration);
    take_signal(sta, change);
    EVENT_LOG("maxRate2=%u\n", sta->maxRate);
    EVENT_LOG("sta->reason=%s wifi_up=%llu wifi_down=%llu flow_rateup=%d flow_ratedown=%d vlanid=%d power=%s "
              "rssi=%d\n",
              sta->reason, static_cast<unsigned long long>(sta->wifi_up),
              static_cast<unsigned long long>(sta->wifi_down), sta->flow_rateup, sta->flow_ratedown,
              sta->vlanid, sta->power, sta->rssi);
}

// Where a station was before it associated again.
struct place {
    bool known;
    std::int32_t radio_id = 0;
    char ifname[sizeof(sta_info_t::ifname)] = "";

    explicit place(const sta_info_t *sta) : known(sta != nullptr) {
        if (!sta) return;
        radio_id = sta->radio_id;
        sta_put_text(ifname, sta->ifname);
    }
    bool is_another_than(const sta_info_t *now) const {
        return known && (radio_id != now->radio_id || std::strcmp(ifname, now->ifname) != 0);
    }
};

} // namespace

void sta_associate(const station_change &change, sta_configuration &configuration) noexcept {
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
    sta_put_text(sta->protocol, figures.version, 5);
    sta_put_expanded(sta->ifname, figures.ifname);
    sta_take_vlanid(sta, configuration);
    sta->load_uptime = sta_uptime_seconds();
    take_repeater(sta, change);
    EVENT_LOG("up: is_reassoc %d vlanid %d rssi %s repeater_type=%d\n", sta->is_reassoc, sta->vlanid,
              sta->power, sta->repeater_type);
    sta_sta_roam_send_msg(sta);
    sta_sta_log_on(sta);
    const place before{sta_sta_peek(sta->mac)};
    // `sta` may have been merged into a known record: the early report starts again for the record in the table.
    sta_info_t *known = sta_members_admit(sta);
    if (!known) return;
    sta_members_await_report(known);
    sta_neighbours_ask();
    if (before.is_another_than(known))
        sta_tell_roamed(known, before.ifname, before.radio_id);
    else
        sta_tell_joined(known, before.known);
}

void sta_disassociate(const station_change &change, sta_configuration &configuration) noexcept {
    sta_info_t *sta = sta_sta_find_usr(change.mac);
    if (sta && std::strcmp(sta->ifname, change.figures.ifname) == 0) {
        take_final_figures(sta, change, configuration);
        if (change.kind == station_change_kind::moves) {
            EVENT_LOG("sta mac:%s is ap roam status\n", change.mac);
            return;
        }
        sta_sta_log_off(sta);
        sta_departed_by_event(sta);
    }
    // Also for an unknown station or another interface: the table decides.
    sta_sta_del_usr_by_mac(change.mac, change.figures.ifname);
}
