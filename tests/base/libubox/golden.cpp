#include "golden.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <ostream>

namespace {

[[noreturn]] void give_up(const std::string &what) {
    std::fprintf(stderr, "golden data: %s\n", what.c_str());
    std::abort();
}

} // namespace

json_object *golden_case::operator[](const char *column) const {
    json_object *value = nullptr;
    if (!json_object_object_get_ex(columns.get(), column, &value)) give_up(name + " has no " + column);
    return value;
}

bool golden_case::has(const char *column) const {
    return json_object_object_get_ex(columns.get(), column, nullptr) != 0;
}

std::optional<std::string> golden_case::text(const char *column) const {
    if (json_object *value = (*this)[column]) return text_of(value);
    const std::string raw = std::string{column} + "_hex";
    if (has(raw.c_str())) return unhex(text_of((*this)[raw.c_str()]));
    return std::nullopt;
}

std::ostream &operator<<(std::ostream &out, const golden_case &c) { return out << c.name; }

std::vector<golden_case> golden_cases(const std::string &file) {
    std::ifstream in(std::string{WSMD_GOLDEN_DIR "/"} + file);
    if (!in) give_up("no " + file);
    std::vector<golden_case> cases;
    for (std::string line; std::getline(in, line);) {
        golden_case c{file, {json_tokener_parse(line.c_str()), json_object_put}};
        c.name = text_of(c["name"]);
        cases.push_back(std::move(c));
    }
    if (cases.empty()) give_up(file + " is empty");
    return cases;
}

std::string hex(const void *data, std::size_t len) {
    std::string digits;
    for (std::size_t i = 0; i < len; ++i) {
        const unsigned byte = static_cast<const unsigned char *>(data)[i];
        digits += "0123456789abcdef"[byte >> 4];
        digits += "0123456789abcdef"[byte & 15];
    }
    return digits;
}

std::string unhex(std::string_view digits) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(std::string{digits.substr(i, 2)}, nullptr, 16));
    return bytes;
}

json_object *item(json_object *array, std::size_t i) { return json_object_array_get_idx(array, i); }
std::size_t items(json_object *array) { return json_object_array_length(array); }

std::string text_of(json_object *obj) {
    return {json_object_get_string(obj), static_cast<std::size_t>(json_object_get_string_len(obj))};
}

int number(json_object *obj) { return json_object_get_int(obj); }

std::string plain(json_object *obj) { return json_object_to_json_string_ext(obj, JSON_C_TO_STRING_PLAIN); }
