#include "collector/http/api.h"

#include "collector/http/stations.h"
#include "collector/sessions.h"
#include "collector/stay_json.h"
#include "collector/store/open_store.h"
#include "collector/times.h"

#include <charconv>
#include <set>

namespace {

constexpr std::int64_t most_rows = 10000;

api_answer refusal(int status, const std::string &why) {
    return {status, "application/json", json_fields().text("error", why).write()};
}

template <class Json> api_answer answer(const Json &value) {
    return {200, "application/json", value.write()};
}

bool whole(const std::string &text, std::int64_t least, std::int64_t most, std::int64_t &out) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
    return error == std::errc() && end == text.data() + text.size() && out >= least && out <= most;
}

api_answer stations(const api_sources &from, const api_arguments &arguments) {
    stations_question asked;
    if (const std::string why = read_question(arguments, asked); !why.empty()) return refusal(400, why);
    return {200, "application/json", stations_json(from.view->all().stations, *from.names, asked)};
}

api_answer status(const api_sources &from) {
    const input_counters in = from.view->counters();
    json_array outputs;
    for (const output_figures &one : from.outputs()) {
        json_fields of;
        of.text("name", one.name)
            .number("taken", static_cast<std::int64_t>(one.taken))
            .number("dropped", static_cast<std::int64_t>(one.dropped))
            .number("waiting", static_cast<std::int64_t>(one.waiting));
        if (one.kept)
            of.written("spool", json_fields()
                                    .natural("waiting", one.kept->waiting)
                                    .natural("bytes", one.kept->bytes)
                                    .natural("unwritten", one.kept->unwritten)
                                    .natural("dropped", one.kept->dropped)
                                    .write());
        outputs.add(of);
    }
    json_fields fields;
    fields.time("now", now()).time("started", from.started).flag("history", !from.store.empty());
    fields.number("stations", static_cast<std::int64_t>(in.stations))
        .number("reports", static_cast<std::int64_t>(in.reports));
    fields.number("wrong_size", static_cast<std::int64_t>(in.wrong_size));
    fields.number("impossible", static_cast<std::int64_t>(in.impossible))
        .number("late", static_cast<std::int64_t>(in.late));
    return answer(fields.written("outputs", outputs.write()));
}

api_answer access_points(const api_sources &from) {
    std::map<std::string, std::map<int, std::pair<std::int64_t, const stay *>>> radios;
    const auto [in, here, counts] = from.view->all();
    for (const stay &one : here) {
        auto &radio = radios[one.ap][one.radio];
        ++radio.first;
        if (!radio.second || one.seen > radio.second->seen) radio.second = &one;
    }
    for (const auto &[ap, of] : counts) radios[ap];
    json_array all;
    for (const auto &[ap, of] : radios) {
        json_array list;
        std::int64_t stations = 0;
        for (const auto &[number, radio] : of) {
            json_fields one;
            one.number("radio", number)
                .number("stations", radio.first)
                .number("channel", radio.second->channel);
            radio.second->noise != 0 ? one.number("noise", radio.second->noise) : one.null("noise");
            list.add(one.number("utilization", radio.second->utilization));
            stations += radio.first;
        }
        json_fields one;
        one.text("ap", ap).number("stations", stations).written("radios", list.write());
        if (const auto at = counts.find(ap); at != counts.end()) {
            const live_view::totals &sum = at->second;
            one.number("joined", static_cast<std::int64_t>(sum.joined))
                .number("roamed", static_cast<std::int64_t>(sum.roamed));
            one.number("returned", static_cast<std::int64_t>(sum.returned))
                .number("left", static_cast<std::int64_t>(sum.left));
        }
        all.add(one);
    }
    return answer(all);
}

// Returns an empty text, or what is wrong with the arguments.
std::string read_range(const api_arguments &arguments, store_range &range) {
    for (const auto &[name, value] : arguments) {
        if (name == "since" || name == "until") {
            const auto when = parse_time(value, now());
            if (!when) return name + " is not a time";
            (name == "since" ? range.since : range.until) = *when;
        } else if (name == "mac" || name == "ap") {
            const std::string mac = normal_mac(value);
            if (mac.empty()) return name + " is not a MAC";
            (name == "mac" ? range.mac : range.ap) = mac;
        } else if (name == "limit") {
            if (!whole(value, 1, most_rows, range.limit)) return "limit is not a number from 1 to 10000";
        } else if (name == "step") {
            if (!whole(value, 1, 366 * 86400, range.step)) return "step is not a number of seconds";
        } else {
            return "unknown argument " + name;
        }
    }
    return {};
}

api_answer history(const api_sources &from, const std::string &path, const api_arguments &arguments) {
    static const std::map<std::string, store_question> questions{
        {"sessions", store_question::sessions}, {"departures", store_question::departures},
        {"top", store_question::top},           {"flapping", store_question::flapping},
        {"changes", store_question::events},    {"radios", store_question::radios},
    };
    static const std::map<std::string, store_question> of_station{
        {"sessions", store_question::sessions},
        {"changes", store_question::events},
        {"addresses", store_question::addresses},
        {"series", store_question::series},
    };
    store_range range;
    if (path == "radios" || path.ends_with("/series")) range.limit = most_rows;
    std::optional<store_question> asked;
    if (const auto at = questions.find(path); at != questions.end()) asked = at->second;
    std::string mac;
    if (constexpr std::string_view stations = "stations/"; path.starts_with(stations)) {
        const std::string rest = path.substr(stations.size());
        const auto slash = rest.find('/');
        if (const auto at = of_station.find(slash == std::string::npos ? "" : rest.substr(slash + 1));
            at != of_station.end())
            asked = at->second;
        mac = normal_mac(rest.substr(0, slash));
        if (mac.empty()) return refusal(404, "not a MAC");
    }
    if (!asked) return refusal(404, "nothing is there");
    if (const std::string why = read_range(arguments, range); !why.empty()) return refusal(400, why);
    if (!mac.empty()) range.mac = mac;
    if (from.store.empty()) return refusal(404, "there is no store");
    try {
        const auto reader = open_store(from.store, *from.names);
        return {200, "application/json", as_json(reader->ask(*asked, range))};
    } catch (const store_error &error) {
        return refusal(503, std::string("the store does not answer: ") + error.what());
    }
}

} // namespace

api_answer answer_api(const api_sources &from, const std::string &path, const api_arguments &arguments) {
    constexpr std::string_view root = "/api/v1/";
    if (!path.starts_with(root)) return refusal(404, "nothing is there");
    const std::string what = path.substr(root.size());
    if (what == "stations") return stations(from, arguments);
    if (what == "status" || what == "access-points") {
        if (!arguments.empty()) return refusal(400, "unknown argument " + arguments.begin()->first);
        return what == "status" ? status(from) : access_points(from);
    }
    if (const std::string mac = what.starts_with("stations/") ? normal_mac(what.substr(9)) : "";
        !mac.empty()) {
        stay one;
        if (!from.view->find(mac, one)) return refusal(404, "this station is not here");
        return answer(stay_json(one, *from.names));
    }
    return history(from, what, arguments);
}

std::string event_text(const change &what, const station_names &names) {
    return std::string("event: ") + change_name(what.kind) + "\ndata: " + change_json(what, names).write() +
           "\n\n";
}
