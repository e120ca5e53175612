// figures.h - the fields that a record, an event and an entry of the driver's table have under the same names, and copying them.
#pragma once

#include "model/record.h"
#include "tools/text.h"

// clang-format off
#define STATION_PLACE(F)        F(maxRate) F(channel) F(is_reassoc)
#define STATION_CAPABILITIES(F) F(supportSTBC) F(supportSGI) F(maxMCS) F(maxBW) F(FCAP) F(fromDS) F(toDS)
#define STATION_COUNTERS(F)                                                                                 \
    F(txper) F(rxper) F(txPkt) F(txBcast) F(txMcast) F(cost_assoc_req) F(cost_auth_req) F(cost_msg2)        \
    F(cost_msg4) F(onesecrxbyte) F(onesectxbyte)
#define STATION_REQUEST_TEXTS(F) F(ap_auth_req) F(ap_assoc_req)
#define STATION_KEY_TEXTS(F)     F(key_start) F(key_msg2) F(key_end)
// clang-format on

#define STATION_TAKE(field) sta->field = from.field;
template <class From> void sta_take_place(sta_info_t *sta, const From &from) noexcept {
    STATION_PLACE(STATION_TAKE)
    sta->driver_rate = from.maxRate;
}
template <class From> void sta_take_capabilities(sta_info_t *sta, const From &from) noexcept {
    STATION_CAPABILITIES(STATION_TAKE)
}
template <class From> void sta_take_counters(sta_info_t *sta, const From &from) noexcept {
    STATION_COUNTERS(STATION_TAKE)
}
#undef STATION_TAKE

// Texts, expanded, at most `limit` characters of each.
#define STATION_TAKE(field) sta_put_expanded(sta->field, from.field, limit);
template <class From>
void sta_take_request_texts(sta_info_t *sta, const From &from, std::size_t limit) noexcept {
    STATION_REQUEST_TEXTS(STATION_TAKE)
}
template <class From> void sta_take_key_texts(sta_info_t *sta, const From &from, std::size_t limit) noexcept {
    STATION_KEY_TEXTS(STATION_TAKE)
}
#undef STATION_TAKE

// Sets the power that belongs to `rssi` dBm: rssi + 95, or 65 if that is below 1.
inline void sta_take_power(sta_info_t *sta, int rssi) noexcept {
    const int power = rssi + 95;
    sta_put_number(sta->power, power < 1 ? 65 : power);
}
