// words.h - a command line: a verb, then arguments "key=value" or a bare word, which is a key without a
// value. A value may be quoted: ssid="Lobby \"2\"" with \" \\ \n \r \t and \xNN for any byte.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// An error in a command; its text is the answer.
struct command_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class words {
public:
    // Throws command_error for an open quote, a bad escape, a key given twice or without a name.
    explicit words(std::string_view line);

    const std::string &verb() const { return verb_; } // empty for an empty line

    // Takes the value of `key`; nothing if it was not given.
    std::optional<std::string> take(std::string_view key);
    // The same, but an error if it was not given.
    std::string need(std::string_view key);
    // A whole number, decimal or 0x, within low..high.
    std::optional<std::int64_t> take_number(std::string_view key, std::int64_t low, std::int64_t high);
    std::int64_t need_number(std::string_view key, std::int64_t low, std::int64_t high);

    struct argument {
        std::string key;
        std::string value;
    };
    // The arguments not taken yet.
    const std::vector<argument> &rest() const { return arguments_; }
    // An error if an argument was not taken.
    void finish() const;

private:
    std::string verb_;
    std::vector<argument> arguments_;
};
