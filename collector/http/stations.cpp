#include "collector/http/stations.h"

#include "collector/sessions.h"
#include "collector/stay_json.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <sstream>
#include <string_view>

namespace {

constexpr std::size_t longest_search = 256; // each word is looked for in each station
constexpr std::size_t most_stations = 10000;

char small(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }
bool digit(char c) { return c >= '0' && c <= '9'; }

std::string small(std::string_view text) {
    std::string made(text);
    std::ranges::transform(made, made.begin(), [](char c) { return small(c); });
    return made;
}

std::string_view digits(std::string_view text) {
    return text.substr(0, static_cast<std::size_t>(std::ranges::find_if_not(text, digit) - text.begin()));
}

// Below, above or equal to 0. "Printer 9" is before "printer 10".
int compare(std::string_view a, std::string_view b) {
    while (!a.empty() && !b.empty()) {
        if (digit(a[0]) && digit(b[0])) {
            std::string_view x = digits(a), y = digits(b);
            a.remove_prefix(x.size());
            b.remove_prefix(y.size());
            x.remove_prefix(std::min(x.find_first_not_of('0'), x.size()));
            y.remove_prefix(std::min(y.find_first_not_of('0'), y.size()));
            if (x.size() != y.size()) return x.size() < y.size() ? -1 : 1;
            if (const int order = x.compare(y); order != 0) return order;
        } else {
            const auto x = static_cast<unsigned char>(small(a[0])),
                       y = static_cast<unsigned char>(small(b[0]));
            if (x != y) return x < y ? -1 : 1;
            a.remove_prefix(1);
            b.remove_prefix(1);
        }
    }
    return a.empty() && b.empty() ? 0 : a.empty() ? -1 : 1;
}

// The band of a channel number. Most numbers of 6 GHz are also used in another band, and count as that one.
const char *band_of(int channel) {
    if (channel >= 1 && channel <= 14) return "2.4";
    if (channel >= 32 && channel <= 177) return "5";
    return channel > 177 ? "6" : "";
}

struct row {
    const stay *one;
    std::string name;
};

std::uint64_t bytes(const stay &one) {
    return one.up.total + std::min(one.down.total, UINT64_MAX - one.up.total);
}

template <class Value> int number(Value a, Value b) { return a < b ? -1 : a > b ? 1 : 0; }

using comparison = int (*)(const row &, const row &);
constexpr std::pair<std::string_view, comparison> orders[] = {
    {"mac", [](const row &a, const row &b) { return a.one->mac.compare(b.one->mac); }},
    {"name",
     [](const row &a, const row &b) { // those with a name first
         if (a.name.empty() != b.name.empty()) return a.name.empty() ? 1 : -1;
         return compare(a.name, b.name);
     }},
    {"ssid", [](const row &a, const row &b) { return compare(a.one->ssid, b.one->ssid); }},
    {"ap",
     [](const row &a, const row &b) {
         const int order = a.one->ap.compare(b.one->ap);
         return order != 0 ? order : number(a.one->radio, b.one->radio);
     }},
    {"signal",
     [](const row &a, const row &b) {
         const bool heard_a = a.one->signal.count > 0, heard_b = b.one->signal.count > 0;
         return heard_a && heard_b ? number(a.one->signal.last, b.one->signal.last)
                                   : number(heard_a, heard_b);
     }},
    {"rate",
     [](const row &a, const row &b) {
         return number(std::int64_t{a.one->rate_down} + a.one->rate_up,
                       std::int64_t{b.one->rate_down} + b.one->rate_up);
     }},
    {"bytes", [](const row &a, const row &b) { return number(bytes(*a.one), bytes(*b.one)); }},
    {"time", [](const row &a, const row &b) { return number(b.one->began, a.one->began); }},
};

bool has(std::string_view text, const std::string &word) {
    const auto same = [](char a, char b) { return small(a) == b; };
    return std::search(text.begin(), text.end(), word.begin(), word.end(), same) != text.end();
}

bool fits(const row &of, const stations_question &asked) {
    const stay &one = *of.one;
    if (!asked.ssid.empty() && one.ssid != asked.ssid) return false;
    if (!asked.ap.empty() && one.ap != asked.ap) return false;
    if (!asked.state.empty() && presence_name(one.state) != asked.state) return false;
    if (!asked.band.empty() && band_of(one.channel) != asked.band) return false;
    const std::string_view ip = one.addresses.empty() ? std::string_view() : one.addresses.back().ip;
    const std::array<std::string_view, 6> texts{of.name, one.mac, ip, one.ssid, one.ap, one.version};
    return std::ranges::all_of(asked.words, [&texts](const std::string &word) {
        return std::ranges::any_of(texts, [&word](std::string_view text) { return has(text, word); });
    });
}

template <std::size_t N> bool one_of(const std::string &value, const std::array<std::string_view, N> &known) {
    return std::ranges::find(known, value) != known.end();
}

} // namespace

std::string read_question(const std::map<std::string, std::string> &arguments, stations_question &asked) {
    for (const auto &[name, value] : arguments) {
        if (name == "search") {
            if (value.size() > longest_search) return "search has more than 256 bytes";
            std::istringstream words(small(value));
            for (std::string word; words >> word;) asked.words.push_back(word);
        } else if (name == "ssid") {
            asked.ssid = value;
        } else if (name == "ap") {
            asked.ap = normal_mac(value);
            if (asked.ap.empty() && !value.empty()) return "ap is not a MAC";
        } else if (name == "state") {
            if (!one_of<4>(value, {"", "here", "leaving", "moving"}))
                return "state is not here, leaving or moving";
            asked.state = value;
        } else if (name == "band") {
            if (!one_of<4>(value, {"", "2.4", "5", "6"})) return "band is not 2.4, 5 or 6";
            asked.band = value;
        } else if (name == "sort") {
            if (!value.empty()) asked.sort = value;
            if (std::ranges::none_of(orders,
                                     [&asked](const auto &known) { return known.first == asked.sort; }))
                return "sort is not mac, name, ssid, ap, signal, rate, bytes or time";
        } else if (name == "direction") {
            if (!one_of<3>(value, {"", "ascending", "descending"}))
                return "direction is not ascending or descending";
            asked.descending = value == "descending";
        } else if (name == "limit") {
            const char *last = value.data() + value.size();
            const auto [end, error] = std::from_chars(value.data(), last, asked.limit);
            if (error != std::errc() || end != last || asked.limit < 1 || asked.limit > most_stations)
                return "limit is not a number from 1 to 10000";
        } else {
            return "unknown argument " + name;
        }
    }
    return {};
}

std::string stations_json(const std::vector<stay> &here, const station_names &names,
                          const stations_question &asked) {
    std::vector<row> rows;
    rows.reserve(here.size());
    for (const stay &one : here)
        if (row made{&one, names.of(one.mac)}; fits(made, asked)) rows.push_back(std::move(made));
    const comparison compared =
        std::ranges::find(orders, asked.sort, [](const auto &known) { return known.first; })->second;
    const auto before = [compared, &asked](const row &a, const row &b) {
        const int order = asked.descending ? compared(b, a) : compared(a, b);
        return order != 0 ? order < 0 : a.one->mac < b.one->mac;
    };
    const std::size_t count = asked.limit == 0 ? rows.size() : std::min(asked.limit, rows.size());
    std::ranges::partial_sort(rows, rows.begin() + static_cast<std::ptrdiff_t>(count), before);
    json_array all;
    for (std::size_t i = 0; i < count; ++i) all.add(stay_json(*rows[i].one, names));
    return all.write();
}
