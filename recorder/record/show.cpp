#include "record/show.h"

#include "protocol/driver_request.h"
#include "protocol/escape.h"
#include "protocol/station_event.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <linux/genetlink.h>
#include <linux/netlink.h>

namespace {

using namespace recorded;

__attribute__((format(printf, 1, 2))) std::string formatted(const char *format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    return {text, std::min(static_cast<std::size_t>(std::max(length, 0)), sizeof(text) - 1)};
}

std::string shown(std::string_view text) {
    char room[160];
    return {room, escape::write(text, room)};
}

std::string station_shown(bytes content) {
    std::array<std::uint8_t, station_event_size> record{};
    const bytes there = content.subspan(station_event_offset);
    std::copy_n(there.begin(), std::min(there.size(), record.size()), record.begin());
    station_event event;
    station_event_decode(record, event);
    const auto *mac = event.mac;
    return formatted("  %s %02x:%02x:%02x:%02x:%02x:%02x ", event.assoc == 1 ? "assoc" : "disassoc", mac[0],
                     mac[1], mac[2], mac[3], mac[4], mac[5]) +
           shown(event.ifname) + formatted(" radio %d \"", event.radio_id) + shown(event.ssid) + "\"";
}

std::string line_of(const message &one) {
    const std::string size = formatted("netlink  %zu bytes", one.content.size());
    if (one.content.size() < NLMSG_HDRLEN + GENL_HDRLEN) return size;
    nlmsghdr header{};
    std::memcpy(&header, one.content.data(), sizeof(header));
    const std::uint8_t cmd = one.content[NLMSG_HDRLEN];
    if (header.nlmsg_type == NLMSG_ERROR) return size + ", an error message";
    const std::string kind = size + formatted(", type %u, command %u", header.nlmsg_type, cmd);
    if (header.nlmsg_type == GENL_ID_CTRL) return kind + (cmd == CTRL_CMD_NEWFAMILY ? ", a family" : "");
    if (cmd != station_event_cmd || one.content.size() <= station_event_offset) return kind;
    return kind + station_shown(one.content);
}

std::string line_of(const receive_error &one) {
    return formatted("netlink  error %d: %s", one.number, std::strerror(one.number));
}

std::string line_of(const request &one) {
    std::string line =
        formatted("request  %d ", one.cmd) + shown(one.ifname) + formatted(", %u bytes", one.size);
    if (one.cmd == driver_roam_delete && !one.asked.empty())
        line.append(" ").append(
            shown({reinterpret_cast<const char *>(one.asked.data()),
                   strnlen(reinterpret_cast<const char *>(one.asked.data()), one.asked.size())}));
    line += formatted(" -> %d after %.3f ms", one.result, one.took / 1000.0);
    if (one.result != 0) return line;
    if (one.cmd == driver_station_count)
        return line + ": " + shown({reinterpret_cast<const char *>(one.answer.data()), one.answer.size()});
    if (one.cmd == driver_station_table && one.answer.size() >= sizeof(std::uint32_t))
        return line +
               formatted(": %u stations", wire::get<std::uint32_t>(one.answer.data() + table_num_offset));
    return line;
}

std::string line_of(const file &one) {
    const std::string name = formatted("file     %s", one.place->path);
    if (one.state == file_absent) return name + ", absent";
    return name + formatted(", %zu bytes%s", one.content.size(), one.state == file_cut ? ", cut" : "");
}

std::string line_of(const bus_message &one) {
    const char *kind = one.kind == record_event ? "event" : one.kind == record_call ? "call" : "notify";
    return formatted("%-8s ", kind) + shown(one.name) + formatted(", %zu bytes", one.message.size());
}

std::string line_of(const end &) { return "end"; }

} // namespace

std::string record_line(const record &record) {
    return formatted("%12.6f  ", static_cast<double>(record.time) / 1e6) +
           std::visit([](const auto &what) { return line_of(what); }, record.what);
}

std::string recording_line(const recording &whole) {
    const auto seconds = static_cast<std::time_t>(whole.wall / 1000000);
    std::tm parts{};
    char date[64] = "at an impossible time";
    if (gmtime_r(&seconds, &parts)) std::strftime(date, sizeof(date), "%Y-%m-%d %H:%M:%S UTC", &parts);
    return formatted("recorded %s, %zu records in %.1f s", date, whole.records.size(),
                     static_cast<double>(whole.length()) / 1e6);
}
