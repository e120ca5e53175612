#include "words.h"

#include <cstdio>
#include <ctime>

void put_duration(char (&word)[word_size], std::int64_t seconds) {
    const auto in = [&](std::int64_t unit) { return static_cast<long long>(seconds / unit); };
    if (seconds < 60)
        (void)std::snprintf(word, sizeof(word), "%llds", in(1));
    else if (seconds < 3600)
        (void)std::snprintf(word, sizeof(word), "%lldm", in(60));
    else if (seconds < 86400)
        (void)std::snprintf(word, sizeof(word), "%lldh%02lldm", in(3600), in(60) % 60);
    else
        (void)std::snprintf(word, sizeof(word), "%lldd%02lldh", in(86400), in(3600) % 24);
}

void put_bytes(char (&word)[word_size], std::int64_t bytes) {
    constexpr const char *units[] = {"", "k", "M", "G", "T", "P", "E"};
    double value = static_cast<double>(static_cast<std::uint64_t>(bytes));
    int unit = 0;
    // A value that would be shown as 1000 is shown in the next unit.
    for (; value >= 999.5; value /= 1000) ++unit;
    (void)std::snprintf(word, sizeof(word), "%.*f%s", unit > 0 && value < 9.95 ? 1 : 0, value, units[unit]);
}

void put_time(char (&word)[word_size], std::int64_t time, std::int64_t now) {
    const auto then = static_cast<std::time_t>(time), today = static_cast<std::time_t>(now);
    std::tm at{}, at_now{};
    if (!localtime_r(&then, &at) || !localtime_r(&today, &at_now)) {
        (void)std::snprintf(word, sizeof(word), "-");
        return;
    }
    const bool same_day = at.tm_year == at_now.tm_year && at.tm_yday == at_now.tm_yday;
    std::strftime(word, sizeof(word), same_day ? "%H:%M:%S" : "%b %d %H:%M", &at);
}
