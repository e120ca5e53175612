#include "apsim/station_fields.h"

#include "protocol/escape.h"

#include <charconv>
#include <limits>

namespace {

template <class Number> field_result set_number(Number &field, std::string_view text) {
    const bool hex = text.starts_with("0x");
    const std::string_view digits = hex ? text.substr(2) : text;
    Number value{};
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), value, hex ? 16 : 10);
    if (error == std::errc::result_out_of_range) return field_result::out_of_range;
    // "-1" for an unsigned field is a number, but out of range.
    if (error != std::errc() && digits.size() > 1 && digits[0] == '-' && std::is_unsigned_v<Number>)
        return field_result::out_of_range;
    if (error != std::errc() || end != digits.data() + digits.size()) return field_result::not_a_number;
    field = value;
    return field_result::set;
}

// The field has one byte more than the record on the wire has room for.
template <std::size_t N> field_result set_text(char (&field)[N], std::string_view text) {
    if (text.size() >= N) return field_result::too_long;
    put_text(field, text);
    return field_result::set;
}

template <class Number> void add_number(json_object *object, const char *name, Number value) {
    if constexpr (std::is_same_v<Number, std::uint64_t>)
        json_object_object_add(object, name, json_object_new_uint64(value));
    else
        json_object_object_add(object, name, json_object_new_int64(value));
}

void add_text(json_object *object, const char *name, std::string_view text) {
    char shown[1024];
    const std::size_t used = escape::write(text, shown);
    json_object_object_add(object, name, json_object_new_string_len(shown, static_cast<int>(used)));
}

template <class From> void copy_common(station_event &event, const From &from) {
#define COPY_NUM(type, field, off)                                                                           \
    if constexpr (requires { from.field; }) event.field = static_cast<type>(from.field);
#define COPY_TEXT(field, off, len)
    STATION_EVENT_FIELDS(COPY_NUM, COPY_TEXT)
#undef COPY_NUM
#undef COPY_TEXT
}

int hex_digit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

} // namespace

#define SET_NUM(type, field, off)                                                                            \
    if (name == #field) return set_number(record.field, text);
#define SET_TEXT(field, off, len)                                                                            \
    if (name == #field) return set_text(record.field, text);

field_result set_field(station_event &record, std::string_view name, std::string_view text) {
    STATION_EVENT_FIELDS(SET_NUM, SET_TEXT)
    return field_result::unknown;
}

field_result set_field(driver_basic &record, std::string_view name, std::string_view text) {
    DRIVER_BASIC_FIELDS(SET_NUM, SET_TEXT)
    return field_result::unknown;
}

field_result set_field(driver_extended &record, std::string_view name, std::string_view text) {
    DRIVER_EXTENDED_FIELDS(SET_NUM, SET_TEXT)
    return field_result::unknown;
}

#undef SET_NUM
#undef SET_TEXT

#define ADD_NUM(type, field, off) add_number(object, #field, record.field);
#define ADD_TEXT(field, off, len) add_text(object, #field, record.field);

void add_fields(json_object *object, const driver_basic &record) { DRIVER_BASIC_FIELDS(ADD_NUM, ADD_TEXT) }

void add_fields(json_object *object, const driver_extended &record) {
    DRIVER_EXTENDED_FIELDS(ADD_NUM, ADD_TEXT)
}

#undef ADD_NUM
#undef ADD_TEXT

void copy_figures(station_event &event, const driver_basic &basic, const driver_extended &extended) {
    copy_common(event, basic);
    copy_common(event, extended);
    put_text(event.ap_auth_req, extended.ap_auth_req);
    put_text(event.ap_assoc_req, extended.ap_assoc_req);
    put_text(event.key_start, extended.key_start);
    put_text(event.key_msg2, extended.key_msg2);
    put_text(event.key_end, extended.key_end);
    event.time_delay = basic.tx_time / 1000;
    // The event has rates as the record keeps them, the table in units of 1024.
    event.sta_rxrate = static_cast<std::int32_t>(basic.rx_rate * 1024);
    event.sta_txrate = static_cast<std::int32_t>(basic.tx_rate * 1024);
    event.sta_rxbyte = basic.rx_bytes;
    event.sta_txbyte = basic.tx_bytes;
}

std::string mac_address::text() const {
    char text[18];
    (void)std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", bytes[0], bytes[1], bytes[2],
                        bytes[3], bytes[4], bytes[5]);
    return text;
}

std::optional<mac_address> mac_address::parse(std::string_view text) {
    if (text.size() != 17) return std::nullopt;
    mac_address mac{};
    for (std::size_t i = 0; i < 6; ++i) {
        const int high = hex_digit(text[3 * i]);
        const int low = hex_digit(text[3 * i + 1]);
        if (high < 0 || low < 0 || (i > 0 && text[3 * i - 1] != ':')) return std::nullopt;
        mac.bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
    }
    return mac;
}

std::optional<std::int64_t> parse_number(std::string_view text, std::int64_t low, std::int64_t high) {
    std::int64_t value = 0;
    if (set_number(value, text) != field_result::set || value < low || value > high) return std::nullopt;
    return value;
}
