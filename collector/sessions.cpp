#include "collector/sessions.h"

#include "collector/departures.h"
#include "collector/report_writer.h"

#include <algorithm>
#include <limits>

const char *change_name(change_kind kind) {
    switch (kind) {
    case change_kind::joined: return "joined";
    case change_kind::updated: return "updated";
    case change_kind::roamed: return "roamed";
    case change_kind::returned: return "returned";
    case change_kind::leaving: return "leaving";
    case change_kind::left: return "left";
    }
    return "";
}

const char *presence_name(presence state) {
    switch (state) {
    case presence::here: return "here";
    case presence::leaving: return "leaving";
    case presence::moving: return "moving";
    case presence::gone: return "gone";
    }
    return "";
}

namespace {

constexpr moment clock_ahead = 300 * second;          // how far an access point's clock may be ahead of ours
constexpr moment longest_stay = 366 * 86400 * second; // and how long ago an association may have been
constexpr std::size_t most_addresses = 16;            // of one stay; the oldest go first

} // namespace

std::string normal_mac(std::string_view text) {
    std::string mac;
    if (text.size() != 17) return mac;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i] >= 'A' && text[i] <= 'F' ? static_cast<char>(text[i] - 'A' + 'a') : text[i];
        const bool good = i % 3 == 2 ? c == ':' : (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
        if (!good) return {};
        mac += c;
    }
    return mac;
}

namespace {

std::string ap_of(const station_report &report) {
    std::string_view text = report.ap_mac; // with the line feed of its source
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' '))
        text.remove_suffix(1);
    return normal_mac(text);
}

bool is_here(const stay &known, const station_report &report) {
    return known.radio == report.radio_id && known.ap == ap_of(report);
}

void count(byte_counter &counter, std::uint64_t value, bool final) {
    // The driver's final report may lack the figures; otherwise a lower figure means that the counter began again.
    if (value < counter.raw && final) return;
    const std::uint64_t more = value >= counter.raw ? value - counter.raw : value;
    constexpr auto most = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    counter.total = more > most - counter.total ? most : counter.total + more;
    counter.raw = value;
}

void count_bytes(stay &known, const station_report &report, bool final) {
    count(known.up, report.wifi_up, final);
    count(known.down, report.wifi_down, final);
}

void add_address(stay &known, const std::string &ip, moment when) {
    if (ip.empty() || ip == "0.0.0.0") return;
    auto &all = known.addresses;
    const auto same =
        std::find_if(all.begin(), all.end(), [&ip](const stay_address &one) { return one.ip == ip; });
    stay_address address{ip, when, when};
    if (same != all.end()) {
        address.first = same->first;
        all.erase(same);
    } else if (all.size() == most_addresses) {
        all.erase(all.begin());
    }
    all.push_back(std::move(address));
}

void note(stay &known, const station_report &report, moment when) {
    known.seen = when;
    ++known.reports;
    known.channel = report.channel;
    if (report.ssid[0] != '\0') known.ssid = escaped(report.ssid);
    if (report.ifname[0] != '\0') known.ifname = escaped(report.ifname);
    if (report.rssi < 0 && report.rssi > -128) {
        signal_range &signal = known.signal;
        signal.last = report.rssi;
        signal.least = signal.count == 0 ? report.rssi : std::min<int>(signal.least, report.rssi);
        signal.most = signal.count == 0 ? report.rssi : std::max<int>(signal.most, report.rssi);
        signal.sum += report.rssi;
        ++signal.count;
    }
    known.rate_up = report.flow_rateup / 1024;
    known.rate_down = report.flow_ratedown / 1024;
    if (report.maxRate != 0) known.max_rate = report.maxRate;
    if (report.floornoise < 0) known.noise = report.floornoise;
    known.utilization = report.utilization;
    if (report.version[0] != '\0') known.version = escaped(report.version);
    known.repeater = report.repeater_type == 1;
    add_address(known, escaped(report.ip), when);
}

// The departure's time by the access point's clock, if it is plausible.
moment left_at(const stay &known, const station_report &report, moment when) {
    const moment told = report.offline_ts.sec * second;
    return told >= known.began && told <= when + clock_ahead ? told : std::max(when, known.began);
}

void set_departure(stay &known, const station_report &report, moment when) {
    const bool roamed = report.log_type == report_roamed;
    known.ended = left_at(known, report, when);
    known.state = roamed ? presence::moving : presence::leaving;
    known.reason_code = roamed ? 0 : report.reason_code;
    known.reason = roamed ? "roamed away" : escaped(report.reason);
    known.ended_by = roamed ? "station" : ended_by(report.reason_code);
}

bool departs(const station_report &report) {
    return report.log_type == report_offline || report.log_type == report_roamed;
}

void forget_departure(stay &known) {
    known.state = presence::here;
    known.ended = 0;
    known.reason_code = 0;
    known.reason.clear();
    known.ended_by.clear();
}

// The station has associated again, there or elsewhere: counters begin again.
void associate(stay &known, const station_report &report) {
    forget_departure(known);
    known.ap = ap_of(report);
    known.radio = report.radio_id;
    known.association = report.online_ts.sec;
    known.up.raw = known.down.raw = 0;
}

} // namespace

const char *impossible(const station_report &report, std::string &mac) {
    mac = normal_mac(report.mac);
    if (mac.empty()) return "no MAC";
    if (std::string_view("13579bdf").find(mac[1]) != std::string_view::npos) return "a MAC of a group";
    if (mac == "00:00:00:00:00:00") return "a MAC of zeros";
    if (report.log_type < report_online || report.log_type > report_roamed) return "an unknown kind";
    if (report.online_ts.sec < 0 || report.oltime < 0) return "a negative time";
    return nullptr;
}

void sessions::take(const station_report &report, moment when, std::vector<change> &done) {
    std::string mac;
    if (impossible(report, mac)) {
        ++refused;
        return;
    }
    auto at = stays_.find(mac);
    // An association after a long silence is another stay: the end of the last one was never reported.
    if (at != stays_.end() && report.online_ts.sec > at->second.is.association &&
        report.online_ts.sec * second > at->second.is.seen + rules_.silence) {
        deadlines_.erase({deadline(at->second), mac});
        done.push_back(end(at, when));
        at = stays_.end();
    }
    if (at == stays_.end()) {
        if (stays_.size() < rules_.most_stays)
            done.push_back(open(report, mac, when));
        else
            ++refused;
        return;
    }
    stay &known = at->second.is;
    const std::string from_ap = known.ap;
    const int from_radio = known.radio;
    const moment before = deadline(at->second);
    const auto kind = departs(report) ? depart(at->second, report, when) : proceed(at->second, report, when);
    if (!kind) {
        ++late;
        return;
    }
    at->second.heard = when;
    if (const moment after = deadline(at->second); after != before) {
        deadlines_.erase({before, mac});
        deadlines_.insert({after, mac});
    }
    change &made = done.emplace_back(change{*kind, when, known, {}, 0});
    if (*kind != change_kind::roamed) return;
    made.from_ap = from_ap;
    made.from_radio = from_radio;
}

change sessions::open(const station_report &report, const std::string &mac, moment when) {
    stay begun;
    begun.id = next_id_++;
    begun.mac = mac;
    associate(begun, report);
    const moment told = report.online_ts.sec * second;
    begun.began = told > 0 && told > when - longest_stay && told <= when + clock_ahead ? told : when;
    note(begun, report, when);
    count_bytes(begun, report, false);
    if (departs(report)) set_departure(begun, report, when); // its departure is the only report
    const entry &known =
        stays_.emplace(mac, entry{std::move(begun), when, report.online_ts.sec}).first->second;
    deadlines_.insert({deadline(known), mac});
    return {change_kind::joined, when, known.is, {}, 0};
}

// Both return nothing for a report that is older than one already received.
std::optional<change_kind> sessions::depart(entry &of, const station_report &report, moment when) const {
    stay &known = of.is;
    const bool elsewhere = !is_here(known, report) || report.online_ts.sec < of.earliest;
    const bool of_the_one_before = report.log_type == report_offline &&
                                   report.online_ts.sec < known.association &&
                                   report.offline_ts.sec < known.association;
    if (elsewhere || of_the_one_before || known.state == presence::leaving) return {};
    note(known, report, when);
    count_bytes(known, report, true);
    set_departure(known, report, when);
    return change_kind::leaving;
}

std::optional<change_kind> sessions::proceed(entry &of, const station_report &report, moment when) const {
    stay &known = of.is;
    change_kind kind = change_kind::updated;
    const bool again = report.online_ts.sec > known.association;
    // Clocks of two access points may differ: for an arrival at another access point the order of receipt counts.
    const bool news = report.log_type == report_online && ap_of(report) != known.ap;
    if (report.online_ts.sec < of.earliest && !news) return {};
    if (!is_here(known, report)) {
        kind = change_kind::roamed;
        ++known.roams;
    } else if (again || (known.state != presence::here && report.log_type == report_online)) {
        kind = change_kind::returned;
        ++known.returns;
    } else if (known.state != presence::here) {
        return {};
    }
    // Without a departure in between, the daemon keeps the first association's time.
    const bool had_left = kind == change_kind::returned && known.state != presence::here;
    if (had_left || ap_of(report) != known.ap) of.earliest = report.online_ts.sec;
    if (kind != change_kind::updated) associate(known, report);
    note(known, report, when);
    count_bytes(known, report, false);
    return kind;
}

void sessions::tick(moment when, std::vector<change> &done) {
    while (!deadlines_.empty() && deadlines_.begin()->first <= when) {
        const auto at = stays_.find(deadlines_.begin()->second);
        deadlines_.erase(deadlines_.begin());
        done.push_back(end(at, when));
    }
}

change sessions::end(table::iterator at, moment when) {
    stay over = std::move(at->second.is);
    stays_.erase(at);
    if (over.state == presence::here) {
        over.ended = std::max(over.seen, over.began);
        over.reason = "no more reports";
        over.ended_by = "silence";
    }
    over.state = presence::gone;
    return {change_kind::left, when, std::move(over), {}, 0};
}

std::optional<moment> sessions::next_deadline() const {
    if (deadlines_.empty()) return {};
    return deadlines_.begin()->first;
}

void sessions::restore(stay known, moment when) {
    // After a roam or a return, the first association was at the stay's beginning or before.
    const auto earliest =
        known.roams + known.returns == 0
            ? known.association
            : static_cast<std::int32_t>(std::min<moment>(known.association, known.began / second));
    resume({std::move(known), when, earliest});
}

void sessions::resume(entry known) {
    next_id_ = std::max(next_id_, known.is.id + 1);
    const std::string mac = known.is.mac;
    const auto [at, added] = stays_.emplace(mac, std::move(known));
    if (added) deadlines_.insert({deadline(at->second), mac});
}

std::optional<sessions::entry> sessions::known(const std::string &mac) const {
    const auto at = stays_.find(mac);
    return at == stays_.end() ? std::nullopt : std::optional(at->second);
}

void sessions::set_rules(session_rules rules) {
    rules_ = rules;
    deadlines_.clear();
    for (const auto &[mac, known] : stays_) deadlines_.insert({deadline(known), mac});
}

moment sessions::deadline(const entry &known) const {
    return known.heard + (known.is.state == presence::here ? rules_.silence : rules_.grace);
}
