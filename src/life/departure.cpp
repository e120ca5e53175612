#include "life/departure.h"

#include "model/departures.h"
#include "model/table.h"
#include "outputs/happenings.h"
#include "tools/text.h"
#include "wlan/reason.h"

namespace {

void remember(const sta_info_t *sta, departure_cause cause, bool inferred) {
    station_departure departure = {};
    sta_put_text(departure.mac, sta->mac);
    if (sta->name && std::strcmp(sta->name, "-") != 0) sta_put_text(departure.name, sta->name);
    if (std::strcmp(sta->ip, sta_no_address) != 0) sta_put_text(departure.ip, sta->ip);
    sta_put_text(departure.ssid, sta->ssid);
    sta_put_text(departure.ifname, sta->ifname);
    departure.radio_id = sta->radio_id;
    departure.channel = sta->channel;
    departure.came = sta->online_ts.sec;
    departure.left = !inferred && sta->offline_ts.sec > 0 ? sta->offline_ts.sec : std::time(nullptr);
    departure.lasted = sta->online_clock.sec != 0 ? sta_monotonic_seconds() - sta->online_clock.sec : -1;
    departure.reason_code = sta->reason_code;
    departure.reason = sta_off_reason_name(sta->reason_code);
    departure.rx_bytes = sta->wifi_up;
    departure.tx_bytes = sta->wifi_down;
    departure.signal = sta->rssi;
    departure.ended_by = cause;
    departure.inferred = inferred;
    sta_departures_add(departure);
    sta_tell_left(departure);
}

} // namespace

departure_cause sta_cause_of_reason(std::int32_t reason_code) noexcept {
    switch (reason_code) {
    case 300: return departure_cause::idle;
    case 307:
    case 308: return departure_cause::station;
    case 301: // its signal became too weak
    case 302: // data of a station that the driver does not know
    case 303: // the interface changed or went down
    case 304:
    case 305: // after a check of protected frames
    case 306:
    case 309:
    case 310:
    case 311: // countermeasures
    case 312:
    case 313: return departure_cause::access_point;
    default: return departure_cause::unknown;
    }
}

void sta_departed_by_event(const sta_info_t *sta) noexcept {
    const departure_cause cause = sta_cause_of_reason(sta->reason_code);
    const bool kicked = sta_departures_take_kick(sta->mac);
    const bool by_us = cause == departure_cause::access_point || cause == departure_cause::unknown;
    remember(sta, kicked && by_us ? departure_cause::kick : cause, false);
}

void sta_departed_by_absence(const sta_info_t *sta, departure_cause cause) noexcept {
    sta_departures_take_kick(sta->mac);
    remember(sta, cause, true);
}
