// metrics.cpp - the counters in Prometheus' text format.
#include "collector/http/api.h"

#include <algorithm>
#include <tuple>

namespace {

std::string quoted(const std::string &text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') out += '\\';
        out += c; // there are no line feeds: texts of stays are escaped
    }
    return out + '"';
}

class family {
public:
    family(std::string &out, const char *name, const char *type, const char *help) : out_(out), name_(name) {
        out_ += std::string("# HELP ") + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
    }
    void add(const std::string &labels, std::uint64_t value) { line(labels, std::to_string(value)); }
    void add(const std::string &labels, std::int64_t value) { line(labels, std::to_string(value)); }

private:
    void line(const std::string &labels, const std::string &value) {
        out_ += name_ + (labels.empty() ? "" : "{" + labels + "}") + " " + value + "\n";
    }
    std::string &out_;
    std::string name_;
};

std::string place(const std::string &ap, int radio) {
    return "ap=" + quoted(ap) + ",radio=\"" + std::to_string(radio) + "\"";
}

} // namespace

std::string write_metrics(const api_sources &from) {
    std::string out;
    const auto [in, here, counts] = from.view->all();
    family(out, "wsm_collector_reports_total", "counter", "Reports received.").add("", in.reports);
    family refused(out, "wsm_collector_refused_total", "counter", "Messages that did not count, by cause.");
    refused.add("cause=\"size\"", in.wrong_size);
    refused.add("cause=\"impossible\"", in.impossible);
    refused.add("cause=\"late\"", in.late);
    const auto outputs = from.outputs();
    family taken(out, "wsm_collector_output_messages_total", "counter", "Messages that an output has taken.");
    for (const output_figures &one : outputs) taken.add("output=" + quoted(one.name), one.taken);
    family dropped(out, "wsm_collector_output_dropped_total", "counter", "Messages that an output has lost.");
    for (const output_figures &one : outputs) dropped.add("output=" + quoted(one.name), one.dropped);
    family waiting(out, "wsm_collector_output_queue", "gauge", "Messages that wait for an output.");
    for (const output_figures &one : outputs)
        waiting.add("output=" + quoted(one.name), std::uint64_t{one.waiting});
    const auto spools = [&out, &outputs](const char *name, const char *type, const char *help,
                                         std::uint64_t backlog::*figure) {
        family all(out, name, type, help);
        for (const output_figures &one : outputs)
            if (one.kept) all.add("output=" + quoted(one.name), (*one.kept).*figure);
    };
    spools("wsm_collector_spool_messages", "gauge", "Messages that wait for a broker.", &backlog::waiting);
    spools("wsm_collector_spool_bytes", "gauge", "Size of the files they wait in.", &backlog::bytes);
    spools("wsm_collector_spool_unwritten", "gauge",
           "Messages that wait in memory, since their file cannot be written.", &backlog::unwritten);
    spools("wsm_collector_spool_dropped_total", "counter", "Messages that the spool has lost.",
           &backlog::dropped);

    std::map<std::tuple<std::string, int, std::string>, std::int64_t> people;
    std::map<std::pair<std::string, int>, const stay *> radios;
    for (const stay &one : here) {
        ++people[{one.ap, one.radio, one.ssid}];
        const stay *&newest = radios[{one.ap, one.radio}];
        if (!newest || one.seen > newest->seen) newest = &one;
    }
    family stations(out, "wsm_stations", "gauge", "Stations that are here.");
    for (const auto &[where, count] : people)
        stations.add(place(std::get<0>(where), std::get<1>(where)) + ",ssid=" + quoted(std::get<2>(where)),
                     count);
    family noise(out, "wsm_radio_noise_dbm", "gauge", "Noise of a radio, as last reported.");
    for (const auto &[where, one] : radios)
        if (one->noise != 0) noise.add(place(where.first, where.second), std::int64_t{one->noise});
    family busy(out, "wsm_radio_utilization", "gauge",
                "Utilization of a radio's channel, as last reported by the driver.");
    for (const auto &[where, one] : radios)
        busy.add(place(where.first, where.second), std::int64_t{one->utilization});

    family happened(out, "wsm_changes_total", "counter", "What stations did.");
    for (const auto &[ap, of] : counts) {
        const std::pair<const char *, std::uint64_t> kinds[] = {
            {"joined", of.joined}, {"roamed", of.roamed}, {"returned", of.returned}, {"left", of.left}};
        for (const auto &[kind, count] : kinds)
            happened.add("ap=" + quoted(ap) + ",kind=" + quoted(kind), count);
    }
    family departures(out, "wsm_departures_total", "counter", "Stays that have ended, by reason.");
    for (const auto &[ap, of] : counts)
        for (const auto &[code, reason] : of.departures)
            departures.add("ap=" + quoted(ap) + ",reason=" + quoted(reason.reason) + ",code=\"" +
                               std::to_string(code) + "\",ended_by=" + quoted(reason.ended_by),
                           reason.count);
    family bytes(out, "wsm_bytes_total", "counter", "Bytes of stations' traffic.");
    for (const auto &[ap, of] : counts) {
        bytes.add("ap=" + quoted(ap) + ",direction=\"up\"", of.up);
        bytes.add("ap=" + quoted(ap) + ",direction=\"down\"", of.down);
    }
    if (from.metrics_stations == 0) return out;
    // The stations with the most bytes, so that the number of series is bounded.
    std::vector<const stay *> busiest;
    for (const stay &one : here) busiest.push_back(&one);
    const std::size_t shown = std::min(from.metrics_stations, busiest.size());
    std::partial_sort(busiest.begin(), busiest.begin() + static_cast<std::ptrdiff_t>(shown), busiest.end(),
                      [](const stay *a, const stay *b) {
                          return std::pair(b->up.total + b->down.total, a->mac) <
                                 std::pair(a->up.total + a->down.total, b->mac);
                      });
    busiest.resize(shown);
    const auto who = [&from](const stay &one) {
        return "mac=" + quoted(one.mac) + ",name=" + quoted(from.names->of(one.mac)) + "," +
               place(one.ap, one.radio);
    };
    family signal(out, "wsm_station_signal_dbm", "gauge", "A station's signal.");
    for (const stay *one : busiest)
        if (one->signal.count > 0) signal.add(who(*one), std::int64_t{one->signal.last});
    family traffic(out, "wsm_station_bytes", "gauge", "Bytes of a station's stay so far.");
    for (const stay *one : busiest) {
        traffic.add(who(*one) + ",direction=\"up\"", one->up.total);
        traffic.add(who(*one) + ",direction=\"down\"", one->down.total);
    }
    return out;
}
