// station_fields.h - the driver's records by field name: set from text, shown as JSON. Expanded from the
// layouts that the daemon reads, so a new field there can be set and shown here at once.
#pragma once

#include "protocol/driver_request.h"
#include "protocol/station_event.h"

#include <cstdint>
#include <json-c/json.h>
#include <optional>
#include <string>
#include <string_view>

enum class field_result { set, unknown, not_a_number, out_of_range, too_long };

// Sets the field `name` of the record from `text`: decimal or 0x for numbers, any bytes for texts.
field_result set_field(station_event &record, std::string_view name, std::string_view text);
field_result set_field(driver_basic &record, std::string_view name, std::string_view text);
field_result set_field(driver_extended &record, std::string_view name, std::string_view text);

// Adds every number field, and the texts of an extended entry, to `object`.
void add_fields(json_object *object, const driver_basic &record);
void add_fields(json_object *object, const driver_extended &record);

// Copies the figures that an event shares with the table entries.
void copy_figures(station_event &event, const driver_basic &basic, const driver_extended &extended);

// Text of the record's field, cut to its size.
template <std::size_t N> void put_text(char (&field)[N], std::string_view text) {
    std::memset(field, 0, N);
    text.copy(field, N - 1);
}

// "02:00:00:00:00:01" in either case; nothing for any other text.
struct mac_address {
    std::uint8_t bytes[6];
    std::string text() const; // lower case
    static std::optional<mac_address> parse(std::string_view text);
};

// A whole number in decimal or, after "0x", in hexadecimal, within low..high.
std::optional<std::int64_t> parse_number(std::string_view text, std::int64_t low, std::int64_t high);
