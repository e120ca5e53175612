// wsm - shows what the daemon knows, for a person at a terminal of the access point.

#include "lists.h"
#include "text.h"
#include "watch.h"

#include <cctype>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr const char *usage =
    "usage: wsm [--json] [COMMAND]\n"
    "\n"
    "  (none)        the daemon's state in one line, and the stations\n"
    "  list          the stations\n"
    "  show MAC      everything about one station: figures, addresses, names\n"
    "  departed [N]  the newest N departures, with time and reason (default 64)\n"
    "  watch         arrivals, departures, roams and changes, as they happen\n"
    "  kick MAC      disconnect a station, and wait until it has gone\n"
    "  health        the daemon's counters\n"
    "\n"
    "  --json        one JSON text per line\n"
    "  --version     print the version\n"
    "  --help        print this\n"
    "\n"
    "Exit status: 0 done, 1 no such station, 2 wrong usage, 3 no broker, 4 no daemon on the bus,\n"
    "5 no right, 6 anything else.\n";

exit_status complain(const char *what, const char *word) {
    const shown_text shown = show(word, 60);
    std::fprintf(stderr, "wsm: %s: %.*s\nTry \"wsm --help\".\n", what, static_cast<int>(shown.length),
                 shown.bytes);
    return exit_usage;
}

// Reads a MAC in either case, with colons or dashes, and writes it in the daemon's spelling.
bool read_mac(const char *word, char (&mac)[18]) {
    if (std::strlen(word) != sizeof(mac) - 1) return false;
    for (std::size_t i = 0; i < sizeof(mac) - 1; ++i) {
        const auto c = static_cast<unsigned char>(word[i]);
        const bool between = i % 3 == 2;
        if (between ? c != ':' && c != '-' : std::isxdigit(c) == 0) return false;
        mac[i] = between ? ':' : static_cast<char>(std::tolower(c));
    }
    mac[sizeof(mac) - 1] = '\0';
    return true;
}

struct request {
    const char *words[3]; // the command and its arguments
    int count;
    bool json;
};

exit_status run(const request &asked) {
    const char *command = asked.count > 0 ? asked.words[0] : "";
    const auto is = [&](const char *name) { return std::strcmp(command, name) == 0; };
    const bool of_station = is("show") || is("kick"), of_number = is("departed");
    if (asked.count > 0 && !of_station && !of_number && !is("list") && !is("watch") && !is("health"))
        return complain("no command", command);
    if (asked.count > (of_station || of_number ? 2 : 1))
        return complain("too much", asked.words[asked.count - 1]);
    char mac[18] = "";
    if (of_station && asked.count < 2) return complain("which station?", command);
    if (of_station && !read_mac(asked.words[1], mac)) return complain("no MAC address", asked.words[1]);
    unsigned long limit = 64;
    if (of_number && asked.count > 1) {
        char *end = nullptr;
        limit = std::strtoul(asked.words[1], &end, 10);
        if (std::isdigit(static_cast<unsigned char>(*asked.words[1])) == 0 || *end != '\0' || limit < 1 ||
            limit > 256)
            return complain("not 1 to 256", asked.words[1]);
    }
    const wanted_output to{asked.json, terminal_columns()};
    struct ubus_context *bus = bus_connect();
    if (!bus) return exit_no_bus;
    const exit_status status = is("show")       ? show_station(bus, to, mac)
                               : is("kick")     ? kick_station(bus, to, mac)
                               : is("departed") ? list_departed(bus, to, static_cast<std::uint32_t>(limit))
                               : is("watch")    ? watch_stations(bus, to)
                               : is("health")   ? show_health(bus, to)
                                                : list_stations(bus, to, asked.count == 0);
    ubus_free(bus);
    return status;
}

} // namespace

int main(int argc, char **argv) {
    text_begin();
    request asked{};
    for (int i = 1; i < argc; ++i) {
        const char *word = argv[i];
        if (std::strcmp(word, "--json") == 0) {
            asked.json = true;
        } else if (std::strcmp(word, "--version") == 0) {
            std::printf("wsm %s\n", WSMD_VERSION);
            return exit_done;
        } else if (std::strcmp(word, "--help") == 0 || std::strcmp(word, "-h") == 0) {
            std::fputs(usage, stdout);
            return exit_done;
        } else if (*word == '-' || asked.count == 3) {
            return complain("unknown", word);
        } else {
            asked.words[asked.count++] = word;
        }
    }
    const exit_status status = run(asked);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) return exit_failed;
    return status;
}
