#include "collector/times.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <ctime>
#include <string_view>

namespace {

template <class Int> bool whole(std::string_view text, Int &out) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out);
    return error == std::errc() && end == text.data() + text.size();
}

} // namespace

moment now() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

moment sound_time(moment told, moment clock) {
    constexpr moment most_ahead = 60 * second;
    return told < first_sound_time || told > clock + most_ahead ? clock : told;
}

std::optional<moment> parse_time(const std::string &text, moment at) {
    constexpr std::int64_t most = 4'000'000'000; // seconds; up to the year 2096
    std::int64_t number = 0;
    if (whole(text, number))
        return number >= 0 && number <= most ? std::optional(number * second) : std::nullopt;
    if (text.size() > 1 && whole(std::string_view(text).substr(0, text.size() - 1), number) && number >= 0 &&
        number <= most) {
        const char unit = text.back();
        const std::int64_t seconds = unit == 's'   ? 1
                                     : unit == 'm' ? 60
                                     : unit == 'h' ? 3600
                                     : unit == 'd' ? 86400
                                                   : 0;
        if (seconds == 0 || number > most / seconds) return {};
        return std::max<moment>(0, at - number * seconds * second);
    }
    for (const char *form :
         {"%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%dT%H:%M", "%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S"}) {
        struct tm parts {};
        parts.tm_isdst = -1;
        const char *end = strptime(text.c_str(), form, &parts);
        if (!end || *end != '\0') continue;
        const std::time_t then = std::mktime(&parts);
        if (then >= 0) return then * second;
    }
    return {};
}
