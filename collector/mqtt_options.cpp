#include "collector/mqtt_options.h"

#include "collector/url.h"

#include <charconv>
#include <string_view>

std::string parse_mqtt_url(const std::string &url, mqtt_options &out) {
    const std::string what = "mqtt[s]://[user[:password]@]host[:port][/prefix]";
    std::string_view rest = url;
    if (rest.starts_with("mqtts://"))
        out.tls = true;
    else if (!rest.starts_with("mqtt://"))
        return what;
    rest.remove_prefix(out.tls ? 8 : 7);
    out.port = out.tls ? 8883 : 1883;
    if (const auto slash = rest.find('/'); slash != std::string_view::npos) {
        out.prefix = rest.substr(slash + 1);
        rest = rest.substr(0, slash);
        while (out.prefix.ends_with('/')) out.prefix.pop_back();
        if (out.prefix.empty() || out.prefix.size() > 128 ||
            out.prefix.find_first_of("+#") != std::string::npos)
            return "a prefix without + and #";
    }
    if (const auto at = rest.rfind('@'); at != std::string_view::npos) {
        const std::string_view who = rest.substr(0, at);
        const auto colon = who.find(':');
        if (!url_decode(who.substr(0, colon), out.user)) return what;
        if (colon != std::string_view::npos) out.password = who.substr(colon + 1);
        rest.remove_prefix(at + 1);
    }
    const auto bracket = rest.starts_with('[') ? rest.find(']') : std::string_view::npos;
    const auto colon = rest.find(':', bracket == std::string_view::npos ? 0 : bracket);
    if (colon != std::string_view::npos) {
        const std::string_view port = rest.substr(colon + 1);
        const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), out.port);
        if (error != std::errc() || end != port.data() + port.size() || out.port < 1 || out.port > 65535)
            return what;
        rest = rest.substr(0, colon);
    }
    out.host = bracket == std::string_view::npos ? rest : rest.substr(1, bracket - 1);
    return out.host.empty() ? what : std::string();
}
