#include "outputs/station_message.h"

#include "outputs/member_writer.h"
#include "tools/log.h"
#include "tools/text.h"

#include <cstddef>
#include <iterator>

namespace {

// A field of the record as a member of the message.
#define FIELD(key, as, field)                                                                                \
    sta_member {                                                                                             \
        key, sta_bus_type::as, sta_kept_as<decltype(sta_info_t::field)>(), offsetof(sta_info_t, field),      \
            sizeof(sta_info_t::field)                                                                        \
    }
#define NUM(key, as, field) FIELD(key, as, field)
#define TEXT(key, field) FIELD(key, text, field)
#define SECONDS(key, clock)                                                                                  \
    sta_member {                                                                                             \
        key, sta_bus_type::i64, sta_kept_as<decltype(sta_clock::sec)>(),                                     \
            offsetof(sta_info_t, clock) + offsetof(sta_clock, sec), sizeof(sta_clock::sec)                   \
    }

// clang-format off
constexpr sta_member identity_members[] = { // both tables begin with these
    TEXT("ssid", ssid), TEXT("mac", mac), TEXT("ip", ip), TEXT("name", name), TEXT("power", power),
    NUM("status", i16, status), SECONDS("online_ts", online_ts), NUM("oltime", i32, oltime),
    SECONDS("offline_ts", offline_ts), NUM("wifi_up_cnt", i64, wifi_up), NUM("wifi_down_cnt", i64, wifi_down),
    NUM("uplink_up_cnt", i64, uplink_up), NUM("uplink_down_cnt", i64, uplink_down),
    NUM("flowup_rate_cnt", i32, flow_rateup), NUM("flowdown_rate_cnt", i32, flow_ratedown),
    NUM("log_type", i32, log_type), NUM("radio_id", i32, radio_id),
};
constexpr sta_member reason_members[] = {
    NUM("off_reason_code", i32, reason_code), TEXT("off_reason", reason),
};
constexpr sta_member quality_members[] = {
    NUM("time_delay_cnt", i32, time_delay), NUM("pkt_loserate_cnt", i32, pkt_loserate),
    NUM("floornoise_cnt", i32, floornoise), NUM("utilization_cnt", i32, utilization), TEXT("version", version),
};
constexpr sta_member rate_member[] = {NUM("maxRate", i32, maxRate)};
constexpr sta_member place_members[] = {
    NUM("channel", i32, channel), NUM("is_reassoc", i32, is_reassoc), TEXT("ap_mac", ap_mac),
    NUM("vlanid", i32, vlanid), NUM("roam_enable", i32, roam_enable),
};
constexpr sta_member before_ip_member[] = {TEXT("before_ip", before_ip)};
constexpr sta_member repeater_member[] = {NUM("repeater_type", i32, repeater_type)};
constexpr sta_member counter_members[] = {
    NUM("wlanid", i32, wlanid), NUM("txper", i32, txper), NUM("rxper", i32, rxper),
    NUM("txPkt", i64, txPkt), NUM("txBcast", i64, txBcast), NUM("txMcast", i64, txMcast),
    NUM("supportSTBC", i32, supportSTBC), NUM("supportSGI", i32, supportSGI), NUM("maxMCS", i32, maxMCS),
    NUM("maxBW", i32, maxBW), NUM("FCAP", i32, FCAP), NUM("fromDS", i32, fromDS), NUM("toDS", i32, toDS),
    NUM("cost_assoc_req", i64, cost_assoc_req), NUM("cost_auth_req", i64, cost_auth_req),
    NUM("cost_msg2", i64, cost_msg2), NUM("cost_msg4", i64, cost_msg4),
    NUM("onesecrxbyte", i64, onesecrxbyte), NUM("onesectxbyte", i64, onesectxbyte),
    TEXT("ap_auth_req", ap_auth_req), TEXT("ap_assoc_req", ap_assoc_req),
    TEXT("key_end", key_end), TEXT("key_start", key_start), TEXT("key_msg2", key_msg2),
};
constexpr sta_member short_rate_member[] = {NUM("maxRate", i16, maxRate)};
constexpr sta_member interface_member[] = {
    {"ssid_ifname", sta_bus_type::text, sta_kept::text_or_none, offsetof(sta_info_t, ifname), sizeof(sta_info_t::ifname)},
};
// clang-format on
#undef FIELD
#undef NUM
#undef TEXT
#undef SECONDS

static_assert(std::size(identity_members) + std::size(quality_members) + std::size(rate_member) +
                      std::size(place_members) + std::size(repeater_member) + std::size(counter_members) +
                      std::size(interface_member) ==
                  54,
              "a station of the list has 54 members");
static_assert(std::size(identity_members) + std::size(reason_members) + std::size(quality_members) +
                      std::size(place_members) + std::size(before_ip_member) + std::size(counter_members) +
                      std::size(short_rate_member) + std::size(interface_member) +
                      std::size(repeater_member) ==
                  57,
              "a station of the notification has 57 members");

const char *ifname_or_null(const sta_info_t *sta) { return sta->ifname[0] != '\0' ? sta->ifname : "NULL"; }

using ull = unsigned long long;
using sll = long long;

void log_steps(const char *function, const sta_info_t *sta) {
    STA_LOG_AS(function,
               "floornoise %d, utilization %d, maxRate %u, channel %d, is_reassoc %d, vlanid %d, txper %u, "
               "rxper %u, "
               "txPkt %u, txBcast %u, txMcast %u\n",
               sta->floornoise, sta->utilization, sta->maxRate, sta->channel, sta->is_reassoc, sta->vlanid,
               sta->txper, sta->rxper, sta->txPkt, sta->txBcast, sta->txMcast);
    STA_LOG_AS(
        function,
        "cost_assoc_req %u, cost_auth_req %u, cost_msg2 %u, cost_msg4 %u, ap_auth_req %s, ap_assoc_req %s, "
        "key_start %s, key_msg2 %s, key_end %s\n",
        sta->cost_assoc_req, sta->cost_auth_req, sta->cost_msg2, sta->cost_msg4, sta->ap_auth_req,
        sta->ap_assoc_req, sta->key_start, sta->key_msg2, sta->key_end);
}

} // namespace

void ubus_server_get_all_online_sta_info(struct blob_buf *buf, const sta_info_t *sta) {
    if (!buf || !sta) return;
    sta_member_writer::write<identity_members, quality_members, rate_member, place_members, repeater_member,
                             counter_members, interface_member>(buf, *sta);
    STA_LOG("mac %s, ip %s, name %s, ssid %s, power %s, stauts %d, online_ts %d, oltime %d, offline_ts %d, "
            "radio_id %d, "
            "ifname %s\n",
            sta->mac, sta->ip, sta_or_null(sta->name), sta->ssid, sta->power, sta->status, sta->online_ts.sec,
            sta->oltime, sta->offline_ts.sec, sta->radio_id, ifname_or_null(sta));
    STA_LOG("wifi_up %llu, wifi_down %llu, flow_rateup %d, flow_ratedown %d, log_type %d, repeater_type %d\n",
            static_cast<ull>(sta->wifi_up), static_cast<ull>(sta->wifi_down), sta->flow_rateup,
            sta->flow_ratedown, sta->log_type, sta->repeater_type);
    log_steps(__func__, sta);
}

void sta_encode_json_sta_log_table_info(struct blob_buf *buf, sta_info_t *sta) {
    if (!buf || !sta) return;
    constexpr std::uint32_t rate_max = 2000;
    if (sta->maxRate > rate_max) sta->maxRate = 0;
    sta_member_writer::write<identity_members, reason_members, quality_members, place_members,
                             before_ip_member, counter_members, short_rate_member, interface_member,
                             repeater_member>(buf, *sta);
    STA_LOG("mac %s, ip %s, before_ip %s, name %s, ssid %s, power %s, status %d, radio_id %d, ifname %s\n",
            sta->mac, sta->ip, sta->before_ip, sta_or_null(sta->name), sta->ssid, sta->power, sta->status,
            sta->radio_id, ifname_or_null(sta));
    STA_LOG("wifi_up %llu, wifi_down %llu, flow_rateup %d, flow_ratedown %d, uplink_up %lld, uplink_down "
            "%lld, time_delay %d, "
            "pkt_loserate %d, log_type %d reason_code %d\n",
            static_cast<ull>(sta->wifi_up), static_cast<ull>(sta->wifi_down), sta->flow_rateup,
            sta->flow_ratedown, static_cast<sll>(sta->uplink_up), static_cast<sll>(sta->uplink_down),
            sta->time_delay, sta->pkt_loserate, sta->log_type, sta->reason_code);
    log_steps(__func__, sta);
}
