#include "fleet/access_point.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <set>

namespace {

__attribute__((format(printf, 1, 2))) std::string text(const char *format, ...) {
    char out[64];
    va_list values;
    va_start(values, format);
    (void)std::vsnprintf(out, sizeof(out), format, values);
    va_end(values);
    return out;
}

unsigned octet(int number, int shift) { return static_cast<unsigned>(number) >> shift & 255U; }

} // namespace

access_point::access_point(const access_point_plan &plan, handler send)
    : plan_(plan), send_(std::move(send)), mac_(text("06:a0:00:%02x:%02x:%02x", octet(plan.number, 16),
                                                     octet(plan.number, 8), octet(plan.number, 0))),
      boot_(text("%08" PRIx64 "%08x", plan.seed & 0xffffffff, static_cast<unsigned>(plan.number))),
      air_(0, plan.seed * 1'000'003 + static_cast<std::uint64_t>(plan.number), "/dev/null/nobody"),
      people_(air_) {
    people_.start(plan_.stations, plan_.seed * 1'000'033 + static_cast<std::uint64_t>(plan_.number));
}

void access_point::tell(const visit &of, report_kind kind, std::int64_t when) {
    const station &one = of.last;
    received out;
    out.at = when * second;
    out.from = {mac_, boot_, ++seq_};
    station_report &report = out.report.emplace();
    put_text(report.ssid, one.event.ssid);
    put_text(report.ifname, one.event.ifname);
    put_text(report.mac, of.mac);
    put_text(report.ip, of.ip);
    put_text(report.ap_mac, mac_ + "\n");
    put_text(report.version, one.event.version);
    report.status = 1;
    report.log_type = kind;
    report.online_clock = {static_cast<std::int32_t>(1 + of.began % 100'000), 0};
    report.online_ts = {static_cast<std::int32_t>(of.began), 0};
    report.oltime = static_cast<std::int32_t>(when - of.began);
    if (kind == report_offline) {
        report.offline_ts = {static_cast<std::int32_t>(when), 0};
        report.reason_code = reason_deauthenticated_by_station;
        put_text(report.reason, "OW_STA_DEAUTH_RECV");
    }
    report.wifi_up = one.basic.rx_bytes;
    report.wifi_down = one.basic.tx_bytes;
    report.flow_rateup = static_cast<std::int32_t>(1024 * one.basic.rx_rate);
    report.flow_ratedown = static_cast<std::int32_t>(1024 * one.basic.tx_rate);
    report.radio_id = one.radio;
    report.channel = one.basic.channel;
    report.rssi = one.basic.rssi;
    report.floornoise = one.basic.floornoise;
    report.utilization = one.basic.utilization;
    report.maxRate = one.basic.maxRate;
    report.txper = one.extended.txper;
    report.rxper = one.extended.rxper;
    report.txPkt = one.extended.txPkt;
    report.maxMCS = one.extended.maxMCS;
    report.onesecrxbyte = one.extended.onesecrxbyte;
    report.onesectxbyte = one.extended.onesectxbyte;
    put_text(report.ap_auth_req, one.extended.ap_auth_req);
    put_text(report.ap_assoc_req, one.extended.ap_assoc_req);
    put_text(report.key_end, one.extended.key_end);
    send_(std::move(out), kind == report_offline);
}

void access_point::arrive(const station &now_is, std::int64_t when) {
    ++visits_;
    const int number = static_cast<int>(visits_);
    visit one{text("02:%02x:%02x:%02x:%02x:%02x", octet(plan_.number, 8), octet(plan_.number, 0),
                   octet(number, 16), octet(number, 8), octet(number, 0)),
              text("10.%u.%u.%u", octet(plan_.number, 0), octet(number, 8), octet(number, 0)), when, now_is,
              now_is.basic.online_time};
    tell(here_.insert_or_assign(now_is.mac, std::move(one)).first->second, report_online, when);
}

void access_point::advance(std::int64_t when) {
    air_.stations.advance();
    people_.advance();
    std::map<std::string, const station *> present; // where each client is now: its newest association
    for (const station &one : air_.stations.all()) present[one.mac] = &one;
    std::set<std::pair<std::string, int>> left; // radios that still list a client after a roam
    for (const station &one : air_.stations.all())
        if (present[one.mac] != &one) left.emplace(one.mac, one.radio);
    for (auto at = here_.begin(); at != here_.end();) {
        const auto found = present.find(at->first);
        visit &of = at->second;
        const bool another = found != present.end() && found->second->basic.is_reassoc == 0 &&
                             found->second->basic.online_time < of.online;
        if (found != present.end() && !another) {
            ++at;
            continue;
        }
        tell(of, report_offline, when);
        at = here_.erase(at);
    }
    for (const auto &[mac, now_is] : present) {
        const auto known = here_.find(mac);
        if (known == here_.end()) {
            arrive(*now_is, when);
            continue;
        }
        visit &of = known->second;
        const bool roams = of.last.radio != now_is->radio;
        if (roams) tell(of, report_roamed, when);
        of.last = *now_is;
        of.online = now_is->basic.online_time;
        if (roams)
            tell(of, report_online, when);
        else if ((when - of.began) % plan_.period == 0)
            tell(of, report_update, when);
    }
    for (const auto &[mac, radio] : left)
        air_.stations.remove(mac, radio); // as a driver does when the daemon asks it to
}
