// table.h - rows with named columns, the result of queries, and writing them as text.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

using cell = std::variant<std::monostate, std::int64_t, double, std::string>;

struct table {
    std::vector<std::string> columns; // a column for which is_time() is true has microseconds since 1970
    std::vector<std::vector<cell>> rows;
};

bool is_time(const std::string &column);

// Columns as wide as their widest text, times in the local zone.
std::string as_text(const table &what);
// A heading, and texts in quotation marks; times are seconds with a fraction.
std::string as_csv(const table &what);
// An array of objects; times are seconds with a fraction.
std::string as_json(const table &what);
