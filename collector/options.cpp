#include "collector/options.h"

#include "collector/store/open_store.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>

namespace {

using verdict = std::string; // empty: fine
constexpr long most_seconds = 10 * 366 * 86400L;

template <class Int> bool number(const std::string &text, Int least, Int most, Int &out) {
    Int value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || value < least || value > most)
        return false;
    out = value;
    return true;
}

verdict set_seconds(const std::string &text, long least, moment &out) {
    long seconds = 0;
    if (!number(text, least, most_seconds, seconds)) return "whole seconds from " + std::to_string(least);
    out = seconds * second;
    return {};
}

verdict set_form(options &chosen, form wanted, const std::string &value) {
    if (value == "no") return {};
    if (chosen.shaped && chosen.shape != wanted) return "one of --json, --csv, --raw, --quiet";
    chosen.shaped = true;
    chosen.shape = wanted;
    return {};
}

struct setting {
    const char *name;
    const char *argument; // null: a flag
    const char *help;
    verdict (*apply)(options &, const std::string &);
};

constexpr setting settings[] = {
    {"json", nullptr, "one JSON object per line, with every field",
     [](options &o, const std::string &v) { return set_form(o, form::json, v); }},
    {"csv", nullptr, "comma-separated values, with every field, under a heading",
     [](options &o, const std::string &v) { return set_form(o, form::csv, v); }},
    {"raw", nullptr, "the images as they came, for a file to decode later",
     [](options &o, const std::string &v) { return set_form(o, form::raw, v); }},
    {"quiet", nullptr, "print no reports",
     [](options &o, const std::string &v) { return set_form(o, form::none, v); }},
    {"follow", nullptr, "keep reading the last file as it grows",
     [](options &o, const std::string &v) { return o.follow = v != "no", verdict(); }},
    {"summary", nullptr, "at the end, what the reports say about each station",
     [](options &o, const std::string &v) { return o.summarise = v != "no", verdict(); }},
    {"count", "N", "end after N reports",
     [](options &o, const std::string &v) -> verdict {
         return number(v, 1ULL, ~0ULL, o.count) ? "" : "a whole number above 0";
     }},
    {"socket", "PATH", "where to listen (/tmp/sta_server_domain)",
     [](options &o, const std::string &v) { return o.socket = v, verdict(); }},
    {"subscribe", "URL",
     "take reports from a broker instead: mqtt[s]://host/prefix, amqp[s]://host,host/vhost?queue=NAME",
     [](options &o, const std::string &v) { return parse_subscribe_url(v, o.subscribe); }},
    {"subscribe-ca", "FILE", "certificates to check that broker's against",
     [](options &o, const std::string &v) { return o.subscribe.ca = v, verdict(); }},
    {"subscribe-cert", "FILE", "our own certificate",
     [](options &o, const std::string &v) { return o.subscribe.certificate = v, verdict(); }},
    {"subscribe-key", "FILE", "and its key",
     [](options &o, const std::string &v) { return o.subscribe.key = v, verdict(); }},
    {"group", "NAME", "MQTT: the collectors that share the reports among them (wsm-collector)",
     [](options &o, const std::string &v) -> verdict {
         if (v.empty() || v.size() > 128 || v.find_first_of("+#/") != std::string::npos)
             return "a name without + # /";
         o.subscribe.group = v;
         return {};
     }},
    {"client-id", "NAME", "MQTT: this collector in the group, always the same (wsm-collector-HOSTNAME)",
     [](options &o, const std::string &v) { return o.subscribe.client_id = v, verdict(); }},
    {"prefetch", "N", "reports that the broker hands over before they must be stored (2000)",
     [](options &o, const std::string &v) -> verdict {
         return number(v, 1, 65535, o.subscribe.prefetch) ? "" : "a whole number from 1 to 65535";
     }},
    {"queue", "N", "messages that wait for each output before the oldest is dropped (10000)",
     [](options &o, const std::string &v) -> verdict {
         return number<std::size_t>(v, 1, 10'000'000, o.queue) ? "" : "a whole number above 0";
     }},
    {"grace", "SECONDS", "a station that comes back within this time has not left (30)",
     [](options &o, const std::string &v) { return set_seconds(v, 0, o.rules.grace); }},
    {"silence", "SECONDS", "a station without a report for this time has left (900)",
     [](options &o, const std::string &v) { return set_seconds(v, 1, o.rules.silence); }},
    {"store", "STORE", "keep stays, events and time series: sqlite:FILE or postgresql://...",
     [](options &o, const std::string &v) { return parse_store(v, o.store.url, o.store.path); }},
    {"commit", "SECONDS", "time between two writes of the store; a power cut loses up to that (1)",
     [](options &o, const std::string &v) -> verdict {
         return number(v, 0, 86400, o.store.commit) ? "" : "whole seconds";
     }},
    {"sample", "SECONDS", "time between two points of a time series in the store (60)",
     [](options &o, const std::string &v) -> verdict {
         return number(v, 0, 86400, o.store.sample) ? "" : "whole seconds";
     }},
    {"keep", "DAYS", "how long the store keeps data, 0 for ever (30)",
     [](options &o, const std::string &v) -> verdict {
         return number(v, 0, 36500, o.store.keep_days) ? "" : "whole days";
     }},
    {"size", "MEGABYTES", "how large the store may become, 0 for no limit (1024)",
     [](options &o, const std::string &v) -> verdict {
         return number<std::int64_t>(v, 0, 1 << 30, o.store.most_mb) ? "" : "whole megabytes";
     }},
    {"names", "FILE", "names of stations: a MAC and a name in each line",
     [](options &o, const std::string &v) { return o.names = v, verdict(); }},
    {"http", "ADDRESS:PORT", "serve the JSON interface, the stream of events and the page",
     [](options &o, const std::string &v) { return o.http = v, verdict(); }},
    {"token-file", "FILE", "requests must have the token in it; required for other addresses than loopback",
     [](options &o, const std::string &v) { return o.token_file = v, verdict(); }},
    {"web", "FOLDER", "the page's files (../share/wsmd/web, seen from the program's folder)",
     [](options &o, const std::string &v) { return o.web = v, verdict(); }},
    {"metrics", "ADDRESS:PORT", "serve /metrics in Prometheus' text format",
     [](options &o, const std::string &v) { return o.metrics = v, verdict(); }},
    {"metrics-stations", "N", "name the N stations with the most bytes in the metrics (0)",
     [](options &o, const std::string &v) -> verdict {
         return number<std::size_t>(v, 0, 10000, o.metrics_stations) ? "" : "a number up to 10000";
     }},
    {"publish", "URL", "send to an MQTT broker: mqtt[s]://[user[:password]@]host[:port][/prefix]",
     [](options &o, const std::string &v) { return parse_mqtt_url(v, o.mqtt); }},
    {"publish-ca", "FILE", "certificates to check the broker's against",
     [](options &o, const std::string &v) { return o.mqtt.ca = v, verdict(); }},
    {"publish-cert", "FILE", "our own certificate",
     [](options &o, const std::string &v) { return o.mqtt.certificate = v, verdict(); }},
    {"publish-key", "FILE", "and its key",
     [](options &o, const std::string &v) { return o.mqtt.key = v, verdict(); }},
    {"spool", "N", "messages that wait in memory while the broker is away (100000)",
     [](options &o, const std::string &v) -> verdict {
         return number<std::size_t>(v, 1, 100'000'000, o.mqtt.spool.most_in_memory)
                    ? ""
                    : "a whole number above 0";
     }},
    {"spool-dir", "FOLDER", "they wait there instead, and survive a restart",
     [](options &o, const std::string &v) { return o.mqtt.spool.folder = v, verdict(); }},
    {"spool-size", "MEGABYTES", "how large it may become before the oldest is dropped (64)",
     [](options &o, const std::string &v) -> verdict {
         std::uint64_t megabytes = 0;
         if (!number<std::uint64_t>(v, 1, 1 << 20, megabytes)) return "whole megabytes above 0";
         o.mqtt.spool.most_bytes = megabytes << 20;
         return {};
     }},
    {"home-assistant", "PREFIX", "announce stations as device trackers below this topic",
     [](options &o, const std::string &v) -> verdict {
         if (v.empty() || v.find_first_of("+#") != std::string::npos) return "a topic without + and #";
         o.mqtt.home_assistant = v;
         return {};
     }},
    {"join-private", nullptr, "private MACs with the same name are one tracker",
     [](options &o, const std::string &v) { return o.mqtt.join_private = v != "no", verdict(); }},
    {"exec", "PROGRAM", "run it for each station that joined, roamed or left",
     [](options &o, const std::string &v) { return o.exec = v, verdict(); }},
    {"hash-mac", "KEYFILE", "replace the MACs of stations by a keyed hash everywhere",
     [](options &o, const std::string &v) { return o.hash_mac = v, verdict(); }},
    {"drop-names", nullptr, "use no names, also when there is a file",
     [](options &o, const std::string &v) { return o.drop_names = v != "no", verdict(); }},
    {"config", "FILE", "read settings from a file, one `name = value` per line",
     [](options &o, const std::string &v) { return o.config = v, verdict(); }},
};

const setting *find(std::string_view name) {
    const auto *at = std::find_if(std::begin(settings), std::end(settings),
                                  [name](const setting &one) { return name == one.name; });
    return at == std::end(settings) ? nullptr : at;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view blank = " \t\r";
    const auto first = text.find_first_not_of(blank);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(blank) - first + 1);
}

[[noreturn]] void wrong_usage(const std::string &what) {
    std::fprintf(stderr, "wsm-collector: %s\n%s", what.c_str(), usage().c_str());
    std::exit(2);
}

} // namespace

std::string usage() {
    std::string text = "usage: wsm-collector [options]\n"
                       "       wsm-collector [options] FILE...\n"
                       "       wsm-collector query --help\n"
                       "Takes station reports and passes them on, until SIGINT or SIGTERM.\n"
                       "With files: decodes images saved one behind the other, - for the standard input.\n\n";
    for (const setting &one : settings) {
        std::string left =
            std::string("  --") + one.name + (one.argument ? std::string(" ") + one.argument : "");
        left.resize(std::max<std::size_t>(left.size() + 1, 22), ' ');
        text += left + one.help + "\n";
    }
    return text +
           "  --version\n"
           "  --help\n\n"
           "Exit status: 0 all reports were sound, 1 it could not listen, read or write, 2 wrong usage,\n"
           "3 a message of another size than a report came.\n";
}

std::string apply_setting(options &chosen, const std::string &name, const std::string &value) {
    const setting *known = find(name);
    if (!known) return "unknown setting";
    if (!known->argument && value != "yes" && value != "no") return "yes or no";
    return known->apply(chosen, value);
}

std::string apply_text(options &chosen, const std::string &text) {
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        const std::string_view whole = trimmed(line);
        if (whole.empty() || whole.front() == '#') continue;
        const auto equals = whole.find('=');
        const std::string name(trimmed(whole.substr(0, equals)));
        std::string value = "yes";
        if (equals != std::string_view::npos) value = trimmed(whole.substr(equals + 1));
        if (const std::string why = name == "config" ? "not in a file" : apply_setting(chosen, name, value);
            !why.empty())
            return "line " + std::to_string(number) + ": " + name + ": " + why;
    }
    return {};
}

std::string read_options_again(const options &before, options &chosen) {
    chosen = {};
    chosen.config = before.config;
    chosen.files = before.files;
    chosen.given = before.given;
    if (!chosen.config.empty()) {
        std::ifstream file(chosen.config);
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        if (!file) return "cannot read " + chosen.config;
        if (std::string why = apply_text(chosen, text); !why.empty()) return chosen.config + ", " + why;
    }
    for (const auto &[name, value] : chosen.given)
        if (const std::string why = find(name)->apply(chosen, value); !why.empty())
            return "--" + name + ": " + why;
    return {};
}

options parse_options(int argc, char **argv) {
    options words;
    bool only_files = false;
    for (int i = 1; i < argc; ++i) {
        std::string_view word = argv[i];
        if (only_files || !word.starts_with("--")) {
            if (!only_files && word.size() > 1 && word[0] == '-')
                wrong_usage("unknown option " + std::string(word));
            words.files.emplace_back(word);
            continue;
        }
        if (word == "--") {
            only_files = true;
            continue;
        }
        word.remove_prefix(2);
        const auto equals = word.find('=');
        const std::string name(word.substr(0, equals));
        if (name == "help") {
            std::fputs(usage().c_str(), stdout);
            std::exit(0);
        }
        if (name == "version") {
            std::puts("wsm-collector " WSMD_VERSION);
            std::exit(0);
        }
        const setting *known = find(name);
        if (!known) wrong_usage("unknown option --" + name);
        std::string value = "yes";
        if (equals != std::string_view::npos)
            value = word.substr(equals + 1);
        else if (known->argument && ++i < argc)
            value = argv[i];
        else if (known->argument)
            wrong_usage("--" + name + ": " + known->argument + " is missing");
        if (!known->argument && value != "yes") wrong_usage("--" + name + ": takes no value");
        if (name == "config") words.config = value;
        words.given.emplace_back(name, value);
    }
    options chosen;
    if (const std::string why = read_options_again(words, chosen); !why.empty()) wrong_usage(why);
    if (chosen.follow && chosen.files.empty()) wrong_usage("--follow: which file?");
    if (chosen.subscribe.from != subscribe_options::kind::none && !chosen.files.empty())
        wrong_usage("--subscribe: not with files");
    return chosen;
}
