// names.h - names that people gave their stations, in a file: one "MAC name" per line, separated by spaces, a tab or a
// comma. "#" begins a comment line.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

// Thread: of() and replace() may be called from any.
class station_names {
public:
    station_names() = default;
    station_names(station_names &&other) noexcept : wrong(other.wrong), names_(std::move(other.names_)) {}

    // Malformed lines are ignored and counted. Names are escaped, and cut to 64 bytes.
    static station_names parse(std::string_view text);
    // Empty without a path; throws std::runtime_error when the file cannot be read.
    static station_names read(const std::string &path);

    // Empty when there is none.
    std::string of(const std::string &mac) const;
    // Replaces the names by those of `by`, for all users of this object.
    void replace(station_names by);
    std::size_t count() const { return names_.size(); }
    std::size_t wrong = 0;

private:
    mutable std::mutex lock_;
    std::map<std::string, std::string> names_;
};
