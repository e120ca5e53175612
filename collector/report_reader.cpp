#include "collector/report_reader.h"

#include "collector/sessions.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <json-c/json.h>
#include <limits>
#include <memory>
#include <new>

namespace {

struct freed {
    void operator()(json_object *object) const { json_object_put(object); }
    void operator()(json_tokener *parser) const { json_tokener_free(parser); }
};

std::string_view text_of(json_object *value) {
    return {json_object_get_string(value), static_cast<std::size_t>(json_object_get_string_len(value))};
}

int hex_digit(char c) { return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1; }

// The reverse of escape::write. False for a text that escape::write cannot have made.
bool unescape(std::string_view text, std::string &out) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (static_cast<unsigned char>(text[at]) < ' ') return false;
        if (text[at] != '\\') {
            out += text[at];
            continue;
        }
        if (++at == text.size()) return false;
        switch (text[at]) {
        case '\\': out += '\\'; break;
        case 'n': out += '\n'; break;
        case 'r': out += '\r'; break;
        case 't': out += '\t'; break;
        case 'x': {
            if (text.size() - at < 3) return false;
            const int high = hex_digit(text[at + 1]), low = hex_digit(text[at + 2]);
            if (high < 0 || low < 0) return false;
            out += static_cast<char>(high * 16 + low);
            at += 2;
            break;
        }
        default: return false;
        }
    }
    return true;
}

template <std::size_t N> bool read(json_object *value, char (&field)[N]) {
    std::string text;
    if (!json_object_is_type(value, json_type_string) || !unescape(text_of(value), text)) return false;
    if (text.size() >= N || text.find('\0') != std::string::npos) return false;
    std::fill(std::begin(field), std::end(field), '\0');
    text.copy(field, N - 1);
    return true;
}

template <class Int> bool read(json_object *value, Int &field) {
    if (!json_object_is_type(value, json_type_int)) return false;
    // A number beyond 64 bits is read as the nearest one within.
    const std::string_view text = json_object_get_string(value);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), field);
    return error == std::errc() && end == text.data() + text.size();
}

// Reads "-12.000345" from its text, since the JSON library's numbers have fewer digits. False: another form.
bool split_decimal(std::string_view text, std::int64_t &whole, std::int64_t &fraction, int digits) {
    const bool negative = text.starts_with('-');
    if (negative) text.remove_prefix(1);
    const auto point = text.find('.');
    if (point == std::string_view::npos || text.size() - point - 1 != static_cast<std::size_t>(digits))
        return false;
    const auto number = [](std::string_view part, std::int64_t &out) {
        const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), out);
        return error == std::errc() && end == part.data() + part.size() && out >= 0;
    };
    if (!number(text.substr(0, point), whole) || !number(text.substr(point + 1), fraction)) return false;
    if (negative) {
        whole = -whole;
        fraction = -fraction;
    }
    return true;
}

bool read(json_object *value, report_clock &clock) {
    constexpr std::int64_t in_a_second = 1'000'000'000;
    constexpr std::int64_t latest = std::numeric_limits<std::int32_t>::max(),
                           earliest = std::numeric_limits<std::int32_t>::min();
    std::int64_t seconds = 0, nanoseconds = 0;
    if (!json_object_is_type(value, json_type_double) ||
        !split_decimal(json_object_get_string(value), seconds, nanoseconds, 9))
        return false;
    if (seconds > latest + 4 || seconds < earliest - 4) return false;
    // An invalid clock, with more than a second of nanoseconds, is written as their sum.
    const std::int64_t kept = std::clamp(seconds, earliest, latest);
    nanoseconds += (seconds - kept) * in_a_second;
    constexpr std::int64_t rounded = 1000; // that sum has fewer digits
    if (nanoseconds > latest + rounded || nanoseconds < earliest - rounded) return false;
    clock = {static_cast<std::int32_t>(kept),
             static_cast<std::int32_t>(std::clamp(nanoseconds, earliest, latest))};
    return true;
}

bool read_received(json_object *value, moment &at) {
    at = 0;
    if (!value) return true; // null
    std::int64_t seconds = 0, microseconds = 0;
    if (!json_object_is_type(value, json_type_double) ||
        !split_decimal(json_object_get_string(value), seconds, microseconds, 6))
        return false;
    if (seconds < 0 || microseconds < 0 || seconds > std::numeric_limits<moment>::max() / second - 1)
        return false;
    at = seconds * second + microseconds;
    return true;
}

bool read_boot(json_object *value, std::string &out) {
    if (!json_object_is_type(value, json_type_string)) return false;
    out = text_of(value);
    return !out.empty() && out.size() <= 64 && std::all_of(out.begin(), out.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '-';
    });
}

using json_pointer = std::unique_ptr<json_object, freed>;

// Null when the whole of `json` is not one value.
json_pointer parsed(std::string_view json, int flags) {
    constexpr int deepest = 4;
    const std::unique_ptr<json_tokener, freed> parser(json_tokener_new_ex(deepest));
    if (!parser) throw std::bad_alloc();
    json_tokener_set_flags(parser.get(), flags);
    json_pointer value(json_tokener_parse_ex(parser.get(), json.data(), static_cast<int>(json.size())));
    if (json_tokener_get_parse_end(parser.get()) != json.size()) value.reset();
    return value;
}

// json-c 0.18, when strict, takes every byte above 127 for a control character. A text with such bytes is strictly parsed
// with a letter in place of each, and then as it is.
json_pointer strictly_parsed(std::string_view json) {
    const auto beyond_ascii = [](char c) { return static_cast<unsigned char>(c) > 127; };
    if (std::none_of(json.begin(), json.end(), beyond_ascii)) return parsed(json, JSON_TOKENER_STRICT);
    std::string ascii(json);
    std::replace_if(ascii.begin(), ascii.end(), beyond_ascii, 'x');
    return parsed(ascii, JSON_TOKENER_STRICT) ? parsed(json, JSON_TOKENER_VALIDATE_UTF8) : nullptr;
}

} // namespace

std::string read_report(std::string_view json, std::string_view topic, received &out) {
    if (json.size() > most_report_json) return "longer than any report";
    const json_pointer object = strictly_parsed(json);
    if (!object || !json_object_is_type(object.get(), json_type_object)) return "no JSON object";
    const auto member = [&object](const char *name, json_object *&value) {
        return json_object_object_get_ex(object.get(), name, &value) != 0;
    };
    json_object *value = nullptr;
    station_report &report = out.report.emplace();
#define READ(type, field, off)                                                                               \
    if (!member(#field, value)) return #field " is missing";                                                 \
    if (!read(value, report.field)) return #field " has no value that it can have";
    STATION_REPORT_FIELDS(READ)
#undef READ
    if (!member("received", value) || !read_received(value, out.at)) return "no time of receipt";
    origin &from = out.from.emplace();
    if (!member("boot", value) || !read_boot(value, from.boot)) return "no boot";
    if (!member("seq", value) || !read(value, from.seq) || from.seq == 0) return "no seq";
    from.told = out.at != 0 ? out.at : made_at(report);
    from.access_point = normal_mac(std::string_view(report.ap_mac).substr(0, 17));
    if (from.access_point.empty()) from.access_point = "unknown";
    for (;;) {
        const auto slash = topic.find('/');
        const std::string_view level = topic.substr(0, slash);
        const bool last = slash == std::string_view::npos;
        if (level != from.access_point && (last || !normal_mac(level).empty()))
            return "not of the access point that its topic names";
        if (last) return {};
        topic.remove_prefix(slash + 1);
    }
}
