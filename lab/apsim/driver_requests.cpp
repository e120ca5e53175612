#include "apsim/driver_requests.h"

#include "protocol/escape.h"

#include <algorithm>
#include <cerrno>

namespace {

constexpr std::size_t log_max = 10'000; // requests kept for the log
constexpr std::size_t kept_bytes = 32;  // of each; enough for a roam delete

std::string text_in(const std::uint8_t *field, std::size_t size) {
    const auto *text = reinterpret_cast<const char *>(field);
    return {text, strnlen(text, size)};
}

void add_text(json_object *object, const char *name, std::string_view text) {
    char shown[256];
    const std::size_t used = escape::write(text, shown);
    json_object_object_add(object, name, json_object_new_string_len(shown, static_cast<int>(used)));
}

} // namespace

driver_requests::driver_requests(station_table &stations, drop drop_station)
    : stations_(stations), drop_station_(std::move(drop_station)),
      server_(
          [](void *self, was_question &question) {
              return static_cast<std::int32_t>(static_cast<driver_requests *>(self)->handle(question));
          },
          this) {}

std::string driver_requests::listen(const std::string &path) {
    switch (const int error = server_.listen(path.c_str())) {
    case 0: return {};
    case EADDRINUSE: return path + ": somebody listens there already";
    case ENOTSOCK: return path + ": not a socket";
    case ENAMETOOLONG: return path + ": not a path for a socket";
    default: return "cannot listen at " + path + ": " + std::strerror(error);
    }
}

void driver_requests::set_count(const std::string &ifname, std::optional<std::string> text) {
    if (text)
        counts_[ifname] = std::move(*text);
    else
        counts_.erase(ifname);
}

int driver_requests::handle(const was_question &question) {
    const request asked{
        question.command, question.argument, question.ifname, {question.bytes, question.size}};
    const auto kept = asked.bytes.first(std::min(kept_bytes, asked.bytes.size()));
    entry record{
        asked.command, asked.argument, asked.ifname, asked.bytes.size(), {kept.begin(), kept.end()}, 0};
    record.result = fails(asked.command) ? -EIO : answer(asked);
    log_.push_back(std::move(record));
    if (log_.size() > log_max) log_.pop_front();
    return log_.back().result;
}

bool driver_requests::fails(int command) {
    const auto at = failing_.find(command);
    if (at == failing_.end()) return false;
    if (at->second && --*at->second == 0) failing_.erase(at);
    return true;
}

// Replaces the request's bytes by the answer's. Returns 0, or a negative error number.
int driver_requests::answer(const request &asked) {
    switch (asked.command) {
    case driver_station_count: return answer_count(asked);
    case driver_station_table: return answer_table(asked);
    case driver_roam_delete: return roam_delete(asked);
    default: return -EOPNOTSUPP;
    }
}

int driver_requests::answer_count(const request &asked) {
    const auto lie = counts_.find(asked.ifname);
    const std::string text =
        lie != counts_.end() ? lie->second : std::to_string(stations_.with(asked.ifname).size());
    std::ranges::fill(asked.bytes, std::uint8_t{0});
    std::copy_n(text.begin(), std::min(text.size(), asked.bytes.size()), asked.bytes.begin());
    return 0;
}

int driver_requests::answer_table(const request &asked) {
    const std::span<std::uint8_t> bytes = asked.bytes;
    if (bytes.size() < table_header_size) return -EINVAL;
    const auto wanted = wire::get<std::uint32_t>(bytes.data() + table_num_offset);
    const auto mask = wire::get<std::uint32_t>(bytes.data() + table_mask_offset);
    const std::size_t entry_size =
        (mask & table_basic ? table_basic_size : 0) + (mask & table_extended ? table_extended_size : 0);
    // The extended section comes after as many basic entries as were asked for, filled or not.
    if (entry_size == 0 || (bytes.size() - table_header_size) / entry_size < wanted) return -EINVAL;
    std::uint8_t *basic = bytes.data() + table_header_size;
    std::uint8_t *extended = basic + (mask & table_basic ? wanted * table_basic_size : 0);

    const std::vector<const station *> there = stations_.with(asked.ifname);
    const std::size_t filled = std::min<std::size_t>(wanted, there.size());
    std::ranges::fill(bytes.subspan(table_header_size), std::uint8_t{0});
    for (std::size_t i = 0; i < filled; ++i) {
        if (mask & table_basic) driver_basic_encode(there[i]->basic, basic + i * table_basic_size);
        if (mask & table_extended)
            driver_extended_encode(there[i]->extended, extended + i * table_extended_size);
    }
    wire::put<std::uint32_t>(bytes.data() + table_num_offset,
                             num_.value_or(static_cast<std::uint32_t>(filled)));
    return 0;
}

int driver_requests::roam_delete(const request &asked) {
    if (asked.bytes.size() < roam_delete_size) return -EINVAL;
    const std::string mac = text_in(asked.bytes.data(), roam_delete_mac_size);
    const auto radio = wire::get<std::int32_t>(asked.bytes.data() + roam_delete_radio_offset);
    const station *there = stations_.find(mac, radio);
    if (!there) return -ENOENT;
    drop_station_(*there);
    return 0;
}

json_object *driver_requests::log() const {
    json_object *list = json_object_new_array();
    for (const entry &each : log_) {
        json_object *object = json_object_new_object();
        const auto number = [object](const char *name, std::int64_t value) {
            json_object_object_add(object, name, json_object_new_int64(value));
        };
        const std::vector<std::uint8_t> &bytes = each.bytes;
        number("cmd", each.command);
        number("arg", each.argument);
        number("size", static_cast<std::int64_t>(each.size));
        add_text(object, "ifname", each.ifname);
        number("result", each.result);
        if (each.command == driver_roam_delete && bytes.size() >= roam_delete_size) {
            add_text(object, "mac", text_in(bytes.data(), roam_delete_mac_size));
            number("radio", wire::get<std::int32_t>(bytes.data() + roam_delete_radio_offset));
        }
        if (each.command == driver_station_table && bytes.size() >= table_header_size) {
            number("num", wire::get<std::uint32_t>(bytes.data() + table_num_offset));
            number("sections", wire::get<std::uint32_t>(bytes.data() + table_mask_offset));
        }
        json_object_array_add(list, object);
    }
    return list;
}
