// text.h - which texts may be names, types and values.
#pragma once

#include <algorithm>
#include <string_view>

namespace uci {

constexpr bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
constexpr bool is_blank(char c) { return c == ' ' || c == '\t'; }

constexpr bool is_name_byte(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}
constexpr bool is_visible_byte(char c) { return c >= 33 && c <= 126; }

// Name of a section or option.
constexpr bool is_name(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, is_name_byte);
}

// Type of a section; name of a package, as a file name.
constexpr bool is_type(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, is_visible_byte);
}

// Name behind the word "package".
constexpr bool is_package_line_name(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](char c) { return is_name_byte(c) || c == '-'; });
}

} // namespace uci
