// pattern.h - patterns: a '*' at the end matches any rest of a name.
#ifndef UBUSD_PATTERN_H
#define UBUSD_PATTERN_H

#include <string_view>

namespace ubusd {

constexpr bool pattern_matches(std::string_view pattern, std::string_view name) {
    if (!pattern.empty() && pattern.back() == '*') {
        pattern.remove_suffix(1);
        if (name.size() < pattern.size()) return false;
        name.remove_suffix(name.size() - pattern.size()); // substr would need the C++ runtime library
    }
    return name == pattern;
}
static_assert(pattern_matches("*", "") && pattern_matches("ip_*", "ip_") && pattern_matches("a*b", "a*b"));
static_assert(!pattern_matches("", "a") && !pattern_matches("a*b", "axb") && !pattern_matches("ip_*", "ip"));

} // namespace ubusd

#endif
