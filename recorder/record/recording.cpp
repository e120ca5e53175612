#include "record/recording.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

namespace {

using namespace recorded;

std::string_view text_in(bytes field) {
    const auto *text = reinterpret_cast<const char *>(field.data());
    return {text, strnlen(text, field.size())};
}

std::optional<request> read_request(bytes body) {
    if (body.size() < request_header) return {};
    const std::uint8_t *at = body.data();
    request one{};
    one.cmd = wire::get<std::int32_t>(at + request_cmd_offset);
    one.arg = wire::get<std::int32_t>(at + request_arg_offset);
    one.result = wire::get<std::int32_t>(at + request_result_offset);
    one.took = wire::get<std::uint32_t>(at + request_took_offset);
    one.size = wire::get<std::uint32_t>(at + request_size_offset);
    one.ifname = text_in(body.subspan(request_ifname_offset, request_ifname_size));
    const auto asked = wire::get<std::uint32_t>(at + request_asked_offset);
    const bytes rest = body.subspan(request_header);
    if (one.size > request_size_max || asked > one.size || asked > rest.size() ||
        rest.size() - asked > one.size)
        return {};
    one.asked = rest.first(asked);
    one.answer = rest.subspan(asked);
    return one;
}

std::optional<file> read_file(bytes body) {
    if (body.size() < file_header) return {};
    const auto number = wire::get<std::uint16_t>(body.data() + file_number_offset);
    const auto state = wire::get<std::uint16_t>(body.data() + file_state_offset);
    const bytes content = body.subspan(file_header);
    if (number < 1 || number > std::size(recorded_places) || state > file_cut ||
        content.size() > file_size_max || (state == file_absent && !content.empty()))
        return {};
    return file{&recorded_places[number - 1], static_cast<file_state>(state), content};
}

std::optional<bus_message> read_bus_message(record_kind kind, bytes body) {
    if (body.size() < bus_header) return {};
    const auto length = wire::get<std::uint16_t>(body.data() + bus_name_size_offset);
    if (body.size() - bus_header < length) return {};
    const bytes name = body.subspan(bus_header, length);
    const bytes message = body.subspan(bus_header + length);
    if (text_in(name).size() != length) return {}; // a zero byte inside
    // The bus's own numbers are big-endian; the upper byte of the header's is the type.
    if (!message.empty() &&
        (message.size() < 4 || ((message[1] << 16) | (message[2] << 8) | message[3]) != std::ssize(message)))
        return {};
    return bus_message{kind, text_in(name), message};
}

// Adds the decoded record; false if it is malformed.
bool add(recording &out, std::uint64_t time, std::uint16_t kind, bytes body) {
    const auto put = [&out, time](const auto &what) {
        if (what) out.records.push_back({time, *what});
        return what.has_value();
    };
    switch (kind) {
    case record_message: return put(std::optional(message{body}));
    case record_receive_error:
        return put(body.size() == sizeof(std::int32_t)
                       ? std::optional(receive_error{wire::get<std::int32_t>(body.data())})
                       : std::nullopt);
    case record_request: return put(read_request(body));
    case record_file: return put(read_file(body));
    case record_event:
    case record_notification:
    case record_call: return put(read_bus_message(static_cast<record_kind>(kind), body));
    case record_end: return put(body.empty() ? std::optional(end{}) : std::nullopt);
    default: return false;
    }
}

} // namespace

std::string recording_read(bytes whole, recording &out) {
    out = {};
    if (whole.empty()) return "it is empty: the program did not load the recorder";
    if (whole.size() < recording_header ||
        !std::equal(std::begin(recording_magic), std::end(recording_magic), whole.begin()))
        return "this is no recording";
    const auto version = wire::get<std::uint32_t>(whole.data() + recording_version_offset);
    if (version != recording_version)
        return "a recording of version " + std::to_string(version) + "; this program reads version " +
               std::to_string(recording_version);
    if (std::memcmp(whole.data() + recording_order_offset, &recording_order, sizeof(recording_order)) != 0)
        return "it was made on a machine of the other byte order";
    out.wall = wire::get<std::int64_t>(whole.data() + recording_wall_offset);
    out.monotonic = wire::get<std::int64_t>(whole.data() + recording_monotonic_offset);
    out.uptime = wire::get<std::int64_t>(whole.data() + recording_uptime_offset);

    std::uint64_t before = 0;
    for (std::size_t at = recording_header; at < whole.size();) {
        const bytes rest = whole.subspan(at);
        const auto wrong = [&out, at](const char *what) {
            return "record " + std::to_string(out.records.size() + 1) + ", at byte " + std::to_string(at) +
                   ": " + what;
        };
        std::uint32_t size = 0;
        if (rest.size() >= record_header) {
            size = wire::get<std::uint32_t>(rest.data() + record_size_offset);
            if (size > record_size_max) return wrong("longer than any record is");
        }
        if (rest.size() < record_header || rest.size() - record_header < size) {
            out.notice = "the last record is torn: " + std::to_string(rest.size()) + " bytes are left out";
            break;
        }
        const auto kind = wire::get<std::uint16_t>(rest.data() + record_kind_offset);
        const auto time = wire::get<std::uint64_t>(rest.data() + record_time_offset);
        if (time < before || time > record_time_max)
            return wrong("its time is before the one above it, or far away");
        if (!add(out, time, kind, rest.subspan(record_header, size))) return wrong("it cannot be understood");
        before = time;
        at += record_header + size;
    }
    return {};
}

std::string recording_load(const char *path, std::vector<std::uint8_t> &content) {
    struct closer {
        void operator()(std::FILE *file) const { (void)std::fclose(file); }
    };
    const bool given = std::string_view(path) == "-";
    const std::unique_ptr<std::FILE, closer> opened(given ? nullptr : std::fopen(path, "rbe"));
    std::FILE *file = given ? stdin : opened.get();
    if (!file) return std::string(path) + ": " + std::strerror(errno);
    std::uint8_t piece[65536];
    for (std::size_t got = 0; (got = std::fread(piece, 1, sizeof(piece), file)) > 0;)
        content.insert(content.end(), piece, piece + got);
    return std::ferror(file) ? std::string(path) + ": " + std::strerror(errno) : std::string();
}
