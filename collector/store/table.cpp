#include "collector/store/table.h"

#include "collector/json.h"
#include "protocol/escape.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <iterator>

namespace {

constexpr std::int64_t second = 1'000'000;

std::string local_time(std::int64_t at) {
    const std::time_t seconds = at / second;
    struct tm parts {};
    localtime_r(&seconds, &parts);
    char text[32];
    return {text, std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &parts)};
}

// For people: characters as they are seen, one for each that is not a continuation byte.
std::size_t width(const std::string &text) {
    return static_cast<std::size_t>(std::count_if(
        text.begin(), text.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

std::string shown(const std::string &column, const cell &value) {
    if (const auto *number = std::get_if<std::int64_t>(&value))
        return is_time(column) ? local_time(*number) : std::to_string(*number);
    if (const auto *real = std::get_if<double>(&value)) {
        char text[32];
        return {text, static_cast<std::size_t>(std::snprintf(text, sizeof(text), "%.1f", *real))};
    }
    if (const auto *text = std::get_if<std::string>(&value)) return *text;
    return "-";
}

} // namespace

bool is_time(const std::string &column) {
    constexpr const char *times[] = {"at", "began", "seen", "ended", "first", "last"};
    return std::find(std::begin(times), std::end(times), column) != std::end(times);
}

std::string as_text(const table &what) {
    std::vector<std::vector<std::string>> lines{what.columns};
    for (const auto &row : what.rows) {
        auto &line = lines.emplace_back();
        for (std::size_t i = 0; i < row.size(); ++i) line.push_back(shown(what.columns[i], row[i]));
    }
    std::vector<std::size_t> widest(what.columns.size(), 0);
    for (const auto &line : lines)
        for (std::size_t i = 0; i < line.size(); ++i) widest[i] = std::max(widest[i], width(line[i]));
    std::string text;
    for (const auto &line : lines) {
        std::string whole;
        for (std::size_t i = 0; i < line.size(); ++i)
            whole += line[i] + std::string(widest[i] - width(line[i]) + 2, ' ');
        whole.erase(whole.find_last_not_of(' ') + 1);
        text += whole + '\n';
    }
    return text;
}

std::string as_csv(const table &what) {
    std::string text;
    for (const std::string &column : what.columns) text += (text.empty() ? "" : ",") + column;
    text += '\n';
    for (const auto &row : what.rows) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (i > 0) text += ',';
            if (const auto *foreign = std::get_if<std::string>(&row[i])) {
                text += '"';
                for (const char c : *foreign) text += c == '"' ? std::string("\"\"") : std::string(1, c);
                text += '"';
            } else if (!std::holds_alternative<std::monostate>(row[i])) {
                const auto *number = std::get_if<std::int64_t>(&row[i]);
                text += number && is_time(what.columns[i]) ? seconds_text(*number)
                                                           : shown(what.columns[i], row[i]);
            }
        }
        text += '\n';
    }
    return text;
}

std::string as_json(const table &what) {
    json_array all;
    for (const auto &row : what.rows) {
        json_fields fields;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const char *name = what.columns[i].c_str();
            if (const auto *number = std::get_if<std::int64_t>(&row[i]))
                is_time(what.columns[i]) ? fields.time(name, *number) : fields.number(name, *number);
            else if (const auto *real = std::get_if<double>(&row[i]))
                fields.real(name, *real);
            else if (const auto *text = std::get_if<std::string>(&row[i]))
                fields.text(name, *text);
            else
                fields.null(name);
        }
        all.add(fields);
    }
    return all.write();
}
