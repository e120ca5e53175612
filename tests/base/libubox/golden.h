// golden.h - golden data for parameterized tests: files of one JSON object per line, each with a member
// "name".
#ifndef TESTS_BASE_LIBUBOX_GOLDEN_H
#define TESTS_BASE_LIBUBOX_GOLDEN_H

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <json-c/json.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct golden_case {
    std::string name;
    std::shared_ptr<json_object> columns;

    json_object *operator[](const char *column) const; // fails the test program if there is none
    bool has(const char *column) const;

    // A column of text, also of text that is not UTF-8 (in column_hex); empty for null.
    std::optional<std::string> text(const char *column) const;
};

// What GoogleTest prints of a case: its name.
std::ostream &operator<<(std::ostream &out, const golden_case &c);

// The cases of a file, named below the folder of golden data.
std::vector<golden_case> golden_cases(const std::string &file);

// The name of a case as part of the test's name.
template <class Info> std::string golden_name(const Info &info) { return info.param.name; }

std::string hex(const void *data, std::size_t len);
std::string unhex(std::string_view digits);

// Items of an array column.
json_object *item(json_object *array, std::size_t i);
std::size_t items(json_object *array);
std::string text_of(json_object *obj);
int number(json_object *obj);

// JSON text of a value, for comparison.
std::string plain(json_object *obj);

#endif
