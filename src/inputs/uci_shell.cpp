#include "inputs/uci_shell.h"

#include "tools/command.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <cstdio>
#include <memory>

namespace {

struct counted_freer {
    void operator()(char *text) const noexcept { sta_free(text); }
};
using counted_text = std::unique_ptr<char, counted_freer>;

// The trimmed first line of `command`, or null.
counted_text trimmed_line(const char *command) {
    counted_text line{sta_execute_buf("%s", command)};
    sta_str_trim(line.get());
    return line;
}

bool prints(const char *command, std::string_view wanted) {
    const counted_text line = trimmed_line(command);
    return line && line.get() == wanted;
}

} // namespace

// Deliberate: the command is used as a format text, with the default value as its argument.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
int sta_get_uci_int(const char *command, int fallback) {
    const counted_text line{sta_execute_buf(command, fallback)};
    if (!line) return fallback;
    sta_str_trim(line.get());
    return sta_number(line.get());
}

void sta_get_uci_str(const char *command, char *buffer, std::size_t size) {
    const counted_text line{sta_execute_buf(command, buffer, size)};
    if (!line) return;
    sta_str_trim(line.get());
    std::snprintf(buffer, size, "%s", line.get());
}
#pragma GCC diagnostic pop

int sta_get_mod_type() { return prints("uci -q get system.@system[0].mod_type", "cpe") ? 0 : 1; }

int sta_get_dev_mode() { return prints("uci -q get sysinfo.@sysinfo[0].forwardMode", "ROUTER") ? 0 : 1; }

int sta_ssid_is_bridge(const char *ssid) {
    if (!ssid) return 0;
    constexpr int most_interfaces = 64;
    for (int i = 0; i < most_interfaces; ++i) {
        char command[100];
        std::snprintf(command, sizeof(command), "uci -q get wireless.@wifi-iface[%d].ssid", i);
        if (!prints(command, ssid)) continue;
        std::snprintf(command, sizeof(command), "uci -q get wireless.@wifi-iface[%d].transmode", i);
        return prints(command, "bridge") ? 1 : 0;
    }
    return 0;
}
