#include "record/uci_options.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

using namespace std::string_view_literals;

constexpr std::string_view known_options[] = {"device"sv,   "ifname"sv,      "ssid"sv,
                                              "vlanid"sv,   "network"sv,     "transmode"sv,
                                              "mod_type"sv, "forwardMode"sv, "sdk"sv};

// Takes the next word off `line`, without the quotes around it.
std::string_view take_word(std::string_view &line) {
    while (!line.empty() && (line.front() == ' ' || line.front() == '\t')) line.remove_prefix(1);
    std::size_t length = 0;
    char quote = 0;
    if (!line.empty() && (line.front() == '\'' || line.front() == '"')) {
        quote = line.front();
        line.remove_prefix(1);
    }
    const auto ends = [quote](char c) { return quote ? c == quote : c == ' ' || c == '\t' || c == '\r'; };
    while (length < line.size() && !ends(line[length])) ++length;
    const std::string_view word{line.data(), length};
    line.remove_prefix(std::min(length + 1, line.size()));
    return word;
}

bool is_kept(std::string_view line) {
    const std::string_view keyword = take_word(line);
    if (keyword == "config"sv) return true;
    if (keyword != "option"sv && keyword != "list"sv) return false;
    const std::string_view name = take_word(line);
    return std::find(std::begin(known_options), std::end(known_options), name) != std::end(known_options);
}

} // namespace

std::size_t keep_known_options(char *text, std::size_t size) noexcept {
    std::size_t kept = 0;
    for (std::size_t at = 0; at < size;) {
        const auto *feed = static_cast<const char *>(std::memchr(text + at, '\n', size - at));
        const std::size_t end = feed ? static_cast<std::size_t>(feed - text) : size;
        const std::size_t next = feed ? end + 1 : size;
        if (is_kept({text + at, end - at})) {
            std::memmove(text + kept, text + at, next - at);
            kept += next - at;
        }
        at = next;
    }
    return kept;
}
