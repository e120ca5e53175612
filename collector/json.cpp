#include "collector/json.h"

#include "protocol/escape.h"

#include <charconv>
#include <cinttypes>
#include <cstdio>

namespace {

// Texts that were escaped before keep their escapes; a byte that is not UTF-8 is escaped here.
void add_string(std::string &out, std::string_view text) {
    out += '"';
    while (!text.empty()) {
        std::size_t plain = 0; // most texts have only such characters
        while (plain < text.size() && text[plain] >= 0x20 && text[plain] < 0x7f && text[plain] != '"' &&
               text[plain] != '\\')
            ++plain;
        out += text.substr(0, plain);
        text.remove_prefix(plain);
        if (text.empty()) break;
        std::size_t length = 1;
        if (text[0] == '"' || text[0] == '\\') {
            out += '\\';
            out += text[0];
        } else if (length = escape::utf8_length(text); length > 0) {
            out += text.substr(0, length);
        } else {
            char piece[8];
            (void)std::snprintf(piece, sizeof(piece), "\\\\x%02x", static_cast<unsigned char>(text[0]));
            out += piece;
            length = 1;
        }
        text.remove_prefix(length);
    }
    out += '"';
}

template <class Int> void add_number(std::string &out, Int value) {
    char text[24];
    out.append(text, std::to_chars(text, text + sizeof(text), value).ptr);
}

} // namespace

std::string seconds_text(std::int64_t microseconds) {
    char text[32];
    const int length = std::snprintf(text, sizeof(text), "%" PRId64 ".%06" PRId64, microseconds / 1'000'000,
                                     microseconds % 1'000'000);
    return {text, static_cast<std::size_t>(length)};
}

std::string &json_fields::begin(std::string_view name) {
    members_ += members_.empty() ? "{\"" : ",\"";
    members_ += name;
    return members_ += "\":";
}

json_fields &json_fields::text(std::string_view name, std::string_view value) {
    add_string(begin(name), value);
    return *this;
}
json_fields &json_fields::number(std::string_view name, std::int64_t value) {
    add_number(begin(name), value);
    return *this;
}
json_fields &json_fields::natural(std::string_view name, std::uint64_t value) {
    add_number(begin(name), value);
    return *this;
}
json_fields &json_fields::real(std::string_view name, double value) {
    char text[48];
    (void)std::snprintf(text, sizeof(text), "%.1f", value);
    begin(name) += text;
    return *this;
}
json_fields &json_fields::time(std::string_view name, std::int64_t microseconds) {
    begin(name) += seconds_text(microseconds);
    return *this;
}
json_fields &json_fields::flag(std::string_view name, bool value) {
    begin(name) += value ? "true" : "false";
    return *this;
}
json_fields &json_fields::null(std::string_view name) {
    begin(name) += "null";
    return *this;
}
json_fields &json_fields::written(std::string_view name, std::string_view json) {
    begin(name) += json;
    return *this;
}

void json_array::add(const json_fields &what) {
    members_ += members_.empty() ? '[' : ',';
    members_ += what.write();
}
