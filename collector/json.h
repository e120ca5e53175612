// json.h - JSON objects and arrays for writing. Texts become valid UTF-8: what is not is escaped (protocol/escape.h).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

struct json_object;

// Seconds with six digits of a fraction, from microseconds.
std::string seconds_text(std::int64_t microseconds);

class json_value {
public:
    std::string write() const;
    json_object *raw() const { return object_.get(); }

protected:
    explicit json_value(json_object *object);
    struct releaser {
        void operator()(json_object *object) const;
    };
    std::unique_ptr<json_object, releaser> object_;
};

class json_fields : public json_value {
public:
    json_fields();
    json_fields &text(const char *name, std::string_view value);
    json_fields &number(const char *name, std::int64_t value);
    json_fields &real(const char *name, double value); // one digit behind the point
    json_fields &time(const char *name, std::int64_t microseconds);
    json_fields &flag(const char *name, bool value);
    json_fields &null(const char *name);
    json_fields &value(const char *name, const json_value &what);
    json_fields &parsed(const char *name, const std::string &json); // what was written before
};

class json_array : public json_value {
public:
    json_array();
    void add(const json_value &what);
};
