#include "apsim/words.h"

#include "apsim/station_fields.h"

#include <algorithm>
#include <charconv>

namespace {

bool is_blank(char c) { return c == ' ' || c == '\t'; }

// Reads one escape; `at` is the position after the backslash and is advanced.
char unescape(std::string_view line, std::size_t &at) {
    const char kind = at < line.size() ? line[at++] : '\0';
    switch (kind) {
    case '"':
    case '\\': return kind;
    case 'n': return '\n';
    case 'r': return '\r';
    case 't': return '\t';
    case 'x': {
        const std::string_view digits = line.substr(std::min(at, line.size()), 2);
        unsigned value = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
        if (error != std::errc() || digits.size() != 2 || end != digits.data() + 2) break;
        at += 2;
        return static_cast<char>(value);
    }
    default: break;
    }
    throw command_error("a backslash needs one of \" \\ n r t xNN behind it");
}

// One word starting at `at`, without its quotes.
std::string next_word(std::string_view line, std::size_t &at) {
    std::string word;
    bool quoted = false;
    for (; at < line.size() && (quoted || !is_blank(line[at]));) {
        const char c = line[at++];
        if (c == '"')
            quoted = !quoted;
        else if (c == '\\' && quoted)
            word += unescape(line, at);
        else
            word += c;
    }
    if (quoted) throw command_error("a quotation mark is missing");
    return word;
}

} // namespace

words::words(std::string_view line) {
    if (line.ends_with('\r')) line.remove_suffix(1);
    for (std::size_t at = 0; at < line.size();) {
        if (is_blank(line[at])) {
            ++at;
            continue;
        }
        if (verb_.empty()) {
            verb_ = next_word(line, at);
            continue;
        }
        const std::size_t end = line.find_first_of(" \t=\"", at);
        argument one{std::string(line.substr(at, end - at)), {}};
        at = std::min(end, line.size());
        if (at < line.size() && line[at] == '=') one.value = next_word(line, ++at);
        if (one.key.empty()) throw command_error("a value needs a name before it");
        if (std::ranges::find(arguments_, one.key, &argument::key) != arguments_.end())
            throw command_error(one.key + " is given twice");
        arguments_.push_back(std::move(one));
    }
}

std::optional<std::string> words::take(std::string_view key) {
    const auto at = std::ranges::find(arguments_, key, &argument::key);
    if (at == arguments_.end()) return std::nullopt;
    std::string value = std::move(at->value);
    arguments_.erase(at);
    return value;
}

std::string words::need(std::string_view key) {
    if (std::optional<std::string> value = take(key)) return *std::move(value);
    throw command_error(std::string(key) + " is missing");
}

std::optional<std::int64_t> words::take_number(std::string_view key, std::int64_t low, std::int64_t high) {
    const std::optional<std::string> text = take(key);
    if (!text) return std::nullopt;
    const std::optional<std::int64_t> value = parse_number(*text, low, high);
    if (!value)
        throw command_error(std::string(key) + ": not a whole number from " + std::to_string(low) + " to " +
                            std::to_string(high));
    return value;
}

std::int64_t words::need_number(std::string_view key, std::int64_t low, std::int64_t high) {
    if (const std::optional<std::int64_t> value = take_number(key, low, high)) return *value;
    throw command_error(std::string(key) + " is missing");
}

void words::finish() const {
    if (!arguments_.empty()) throw command_error("unknown argument " + arguments_.front().key);
}
