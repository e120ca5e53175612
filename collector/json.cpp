#include "collector/json.h"

#include "protocol/escape.h"

#include <cinttypes>
#include <cstdio>
#include <json-c/json.h>

namespace {

// Texts that were escaped before stay as they are; a byte that is no UTF-8 gets its escape here.
std::string valid(std::string_view text) {
    std::string out;
    while (!text.empty()) {
        const auto byte = static_cast<unsigned char>(text[0]);
        std::size_t length = byte >= 0x20 && byte < 0x7f ? 1 : escape::utf8_length(text);
        if (length == 0) {
            char piece[8];
            (void)std::snprintf(piece, sizeof(piece), "\\x%02x", byte);
            out += piece;
            length = 1;
        } else {
            out += text.substr(0, length);
        }
        text.remove_prefix(length);
    }
    return out;
}

} // namespace

std::string seconds_text(std::int64_t microseconds) {
    char text[32];
    const int length = std::snprintf(text, sizeof(text), "%" PRId64 ".%06" PRId64, microseconds / 1'000'000,
                                     microseconds % 1'000'000);
    return {text, static_cast<std::size_t>(length)};
}

json_value::json_value(json_object *object) : object_(object) {}
void json_value::releaser::operator()(json_object *object) const { json_object_put(object); }

std::string json_value::write() const {
    return json_object_to_json_string_ext(object_.get(),
                                          JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
}

json_fields::json_fields() : json_value(json_object_new_object()) {}

json_fields &json_fields::text(const char *name, std::string_view value) {
    const std::string good = valid(value);
    json_object_object_add(raw(), name,
                           json_object_new_string_len(good.data(), static_cast<int>(good.size())));
    return *this;
}
json_fields &json_fields::number(const char *name, std::int64_t value) {
    json_object_object_add(raw(), name, json_object_new_int64(value));
    return *this;
}
json_fields &json_fields::real(const char *name, double value) {
    char text[48];
    (void)std::snprintf(text, sizeof(text), "%.1f", value);
    json_object_object_add(raw(), name, json_object_new_double_s(value, text));
    return *this;
}
json_fields &json_fields::time(const char *name, std::int64_t microseconds) {
    json_object_object_add(raw(), name,
                           json_object_new_double_s(static_cast<double>(microseconds) / 1e6,
                                                    seconds_text(microseconds).c_str()));
    return *this;
}
json_fields &json_fields::flag(const char *name, bool value) {
    json_object_object_add(raw(), name, json_object_new_boolean(value));
    return *this;
}
json_fields &json_fields::null(const char *name) {
    json_object_object_add(raw(), name, nullptr);
    return *this;
}
json_fields &json_fields::value(const char *name, const json_value &what) {
    json_object_object_add(raw(), name, json_object_get(what.raw()));
    return *this;
}
json_fields &json_fields::parsed(const char *name, const std::string &json) {
    json_object_object_add(raw(), name, json_tokener_parse(json.c_str()));
    return *this;
}

json_array::json_array() : json_value(json_object_new_array()) {}
void json_array::add(const json_value &what) { json_object_array_add(raw(), json_object_get(what.raw())); }
