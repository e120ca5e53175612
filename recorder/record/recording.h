// recording.h - reading and checking a recording. It may come from anywhere: every length and number is checked.
#pragma once

#include "record/layout.h"

#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace recorded {

using bytes = std::span<const std::uint8_t>;

struct message {
    bytes content; // as recv() gave it
};
struct receive_error {
    int number;
};
struct request {
    int cmd;
    int arg;
    int result;
    std::uint32_t took; // µs
    std::uint32_t size; // of the buffer
    std::string_view ifname;
    bytes asked, answer; // without the zeros at their ends; never longer than the buffer
};
struct file {
    const recorded_place *place;
    file_state state;
    bytes content;
};
struct bus_message {
    record_kind kind; // record_event, record_notification or record_call
    std::string_view name;
    bytes message; // empty, or as long as its header says
};
struct end {};

struct record {
    std::uint64_t time; // µs since the start
    std::variant<message, receive_error, request, file, bus_message, end> what;
};

} // namespace recorded

struct recording {
    std::int64_t wall = 0;      // µs since 1970, at the start
    std::int64_t monotonic = 0; // µs, at the start
    std::int64_t uptime = 0;    // µs, at the start
    std::vector<recorded::record> records;
    std::string notice; // what is missing at the end; empty if it is complete

    std::uint64_t length() const { return records.empty() ? 0 : records.back().time; }
};

// Reads a recording out of `bytes`, which it then refers to. Returns an empty text, or why it is not one; `out` is then undefined.
std::string recording_read(recorded::bytes bytes, recording &out);

// Reads the whole content of a file; "-" is the standard input. Returns an empty text, or what failed.
std::string recording_load(const char *path, std::vector<std::uint8_t> &content);
