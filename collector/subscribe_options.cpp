#include "collector/subscribe_options.h"

#include "collector/url.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace {

bool parse_host(std::string_view text, int port, subscribe_options::address &out) {
    out.port = port;
    const auto bracket = text.starts_with('[') ? text.find(']') : std::string_view::npos;
    const auto colon = text.find(':', bracket == std::string_view::npos ? 0 : bracket);
    if (colon != std::string_view::npos) {
        const std::string_view digits = text.substr(colon + 1);
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), out.port);
        if (error != std::errc() || end != digits.data() + digits.size() || out.port < 1 || out.port > 65535)
            return false;
        text = text.substr(0, colon);
    }
    out.host = bracket == std::string_view::npos ? text : text.substr(1, bracket - 1);
    return !out.host.empty();
}

// Levels separated by slashes; "+" means any one level.
bool good_prefix(std::string_view prefix) {
    if (prefix.empty() || prefix.size() > 128 || prefix.starts_with('$')) return false;
    for (std::size_t at = 0; at <= prefix.size();) {
        const auto end = std::min(prefix.find('/', at), prefix.size());
        const std::string_view level = prefix.substr(at, end - at);
        if (level.empty() || (level != "+" && level.find_first_of("+#*. ") != std::string_view::npos))
            return false;
        at = end + 1;
    }
    return true;
}

} // namespace

std::string parse_subscribe_url(const std::string &url, subscribe_options &out) {
    const std::string what = "mqtt[s]://[user[:password]@]host[:port][/prefix] or "
                             "amqp[s]://[user[:password]@]host[:port][,host...][/vhost][?queue=NAME]";
    std::string_view rest = url;
    const auto scheme = rest.find("://");
    if (scheme == std::string_view::npos) return what;
    const std::string_view name = rest.substr(0, scheme);
    rest.remove_prefix(scheme + 3);
    using kind = subscribe_options::kind;
    out.from = name == "mqtt" || name == "mqtts"   ? kind::mqtt
               : name == "amqp" || name == "amqps" ? kind::amqp
                                                   : kind::none;
    if (out.from == kind::none) return what;
    out.tls = name.ends_with('s');
    const bool mqtt = out.from == kind::mqtt;
    std::string_view arguments;
    if (const auto mark = rest.find('?'); mark != std::string_view::npos && !mqtt) {
        arguments = rest.substr(mark + 1);
        rest = rest.substr(0, mark);
    }
    if (const auto slash = rest.find('/'); slash != std::string_view::npos) {
        std::string_view path = rest.substr(slash + 1);
        rest = rest.substr(0, slash);
        while (mqtt && path.ends_with('/')) path.remove_suffix(1);
        if (!path.empty() && !url_decode(path, mqtt ? out.prefix : out.vhost)) return what;
    }
    for (; !arguments.empty();
         arguments.remove_prefix(std::min(arguments.find('&'), arguments.size() - 1) + 1)) {
        const std::string_view one = arguments.substr(0, arguments.find('&'));
        const auto equals = one.find('=');
        const std::string_view key = one.substr(0, equals);
        std::string *to = key == "queue" ? &out.queue : key == "prefix" ? &out.prefix : nullptr;
        if (!to || equals == std::string_view::npos || !url_decode(one.substr(equals + 1), *to)) return what;
    }
    if (out.queue.empty() || out.queue.size() > 200) return "a queue with a name of 1 to 200 bytes";
    if (!good_prefix(out.prefix)) return "a prefix of levels between slashes, without # and blanks";
    if (const auto at = rest.rfind('@'); at != std::string_view::npos) {
        const std::string_view who = rest.substr(0, at);
        const auto colon = who.find(':');
        if (!url_decode(who.substr(0, colon), out.user)) return what;
        if (colon != std::string_view::npos && !url_decode(who.substr(colon + 1), out.password)) return what;
        rest.remove_prefix(at + 1);
    }
    const int port = mqtt ? (out.tls ? 8883 : 1883) : out.tls ? 5671 : 5672;
    out.hosts.clear();
    for (;;) {
        const auto comma = rest.find(',');
        if (!parse_host(rest.substr(0, comma), port, out.hosts.emplace_back())) return what;
        if (comma == std::string_view::npos) break;
        rest.remove_prefix(comma + 1);
    }
    return mqtt && out.hosts.size() > 1 ? "one host" : std::string();
}
