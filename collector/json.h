// json.h - JSON objects and arrays, written member by member. Texts become valid UTF-8: other bytes are escaped
// (protocol/escape.h). Every report of a busy network passes through here several times, so no tree is built.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Seconds with six digits of a fraction, from microseconds.
std::string seconds_text(std::int64_t microseconds);

class json_fields {
public:
    // The object so far.
    std::string write() const { return members_ + (members_.empty() ? "{}" : "}"); }

    json_fields &text(std::string_view name, std::string_view value);
    json_fields &number(std::string_view name, std::int64_t value);
    json_fields &natural(std::string_view name, std::uint64_t value);
    json_fields &real(std::string_view name, double value); // one decimal
    json_fields &time(std::string_view name, std::int64_t microseconds);
    json_fields &flag(std::string_view name, bool value);
    json_fields &null(std::string_view name);
    // A value that is JSON already.
    json_fields &written(std::string_view name, std::string_view json);

private:
    std::string &begin(std::string_view name); // trusted: a name of our own
    std::string members_;
};

class json_array {
public:
    void add(const json_fields &what);
    std::string write() const { return members_ + (members_.empty() ? "[]" : "]"); }

private:
    std::string members_;
};
