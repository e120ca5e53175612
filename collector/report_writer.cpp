#include "collector/report_writer.h"

#include "collector/json.h"
#include "protocol/escape.h"

#include <cinttypes>
#include <cstdio>
#include <ctime>

namespace {

std::string local_time(moment at) {
    if (at == 0) return "time of receipt ?  ";
    const std::time_t seconds = at / second;
    struct tm parts {};
    localtime_r(&seconds, &parts);
    char text[32];
    return {text, std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts)};
}

std::string seconds_of(const report_clock &clock) {
    char text[32];
    // An access point's clock can have any value.
    const bool sound = clock.sec >= 0 && clock.nsec >= 0 && clock.nsec < 1'000'000'000;
    const int length = sound ? std::snprintf(text, sizeof(text), "%d.%09d", clock.sec, clock.nsec)
                             : std::snprintf(text, sizeof(text), "%.9f", clock.sec + clock.nsec / 1e9);
    return {text, static_cast<std::size_t>(length)};
}

template <std::size_t N> void add(json_fields &to, const char *name, const char (&text)[N]) {
    to.text(name, escaped({text, strnlen(text, N)}));
}
void add(json_fields &to, const char *name, const report_clock &clock) {
    to.written(name, seconds_of(clock));
}
void add(json_fields &to, const char *name, std::uint64_t number) { to.natural(name, number); }
template <class Int> void add(json_fields &to, const char *name, const Int &number) {
    to.number(name, static_cast<std::int64_t>(number));
}

template <std::size_t N> std::string as_csv(const char (&text)[N]) {
    std::string quoted = "\"";
    for (const char c : escaped({text, strnlen(text, N)}))
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + '"';
}
std::string as_csv(const report_clock &clock) { return seconds_of(clock); }
template <class Int> std::string as_csv(const Int &number) { return std::to_string(number); }

} // namespace

std::string escaped(std::string_view text) {
    std::string out(4 * text.size(), '\0'); // an escape has four characters at most
    out.resize(escape::write(text, out));
    return out;
}

std::string log_type_name(unsigned log_type) {
    switch (log_type) {
    case report_online: return "online";
    case report_offline: return "offline";
    case report_update: return "update";
    case report_roamed: return "roamed";
    default: return std::to_string(log_type);
    }
}

std::string report_line(const station_report &sta, moment at) {
    const bool leaves = sta.log_type == report_offline;
    std::string line = local_time(at);
    char text[160];
    const auto add = [&line, &text](int length) { line.append(text, static_cast<std::size_t>(length)); };
    add(std::snprintf(text, sizeof(text), "  %-8s", log_type_name(sta.log_type).c_str()));
    line += escaped(sta.mac) + "  " + escaped(sta.ifname) + "/radio " + std::to_string(sta.radio_id) +
            "  \"" + escaped(sta.ssid) + '"';
    if (sta.ip[0] != '\0') line += "  " + escaped(sta.ip);
    add(std::snprintf(text, sizeof(text), "  %d dBm  channel %d  up %" PRIu64 " down %" PRIu64 " bytes  %d s",
                      sta.rssi, sta.channel, sta.wifi_up, sta.wifi_down, sta.oltime));
    if (leaves) line += "  " + escaped(sta.reason) + " (" + std::to_string(sta.reason_code) + ")";
    return line;
}

std::string report_json(const station_report &sta, moment at) {
    json_fields object;
#define ADD(type, field, off) add(object, #field, sta.field);
    STATION_REPORT_FIELDS(ADD)
#undef ADD
    at == 0 ? object.null("received") : object.time("received", at);
    return object.write();
}

std::string report_csv_heading() {
    std::string row;
#define ADD(type, field, off) row += row.empty() ? #field : "," #field;
    STATION_REPORT_FIELDS(ADD)
#undef ADD
    return row + ",received";
}

std::string report_csv(const station_report &sta, moment at) {
    std::string row;
#define ADD(type, field, off) row += (row.empty() ? "" : ",") + as_csv(sta.field);
    STATION_REPORT_FIELDS(ADD)
#undef ADD
    return row + "," + (at == 0 ? std::string() : seconds_text(at));
}
