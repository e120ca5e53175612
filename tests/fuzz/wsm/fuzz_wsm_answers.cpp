// What comes over the bus, shown by the tool wsm. The first piece chooses the command, the columns of the terminal and whether it
// is to be JSON; each further one is an answer, or a notification whose kind its tag chooses. Whatever they say, only characters
// that are fit for a terminal are written, and no line of a list is wider than the terminal.
#include "../require.h"

#include "../daemon/pieces.h"
#include "tests/wsm/canned_bus.h"
#include "wsm/lists.h"
#include "wsm/watch.h"

#include <algorithm>
#include <iterator>

namespace {

enum command { summary, list, show, departed, health, watch, kick, commands };

constexpr const char *kinds[] = {"joined", "left",    "roamed",  "changed",
                                 "resync", "a\"b\\c", "\x1b[2J", "\xff"};
constexpr const char *mac = "02:00:00:00:00:0a";

exit_status run(command chosen, struct ubus_context *bus, const wanted_output &to) {
    switch (chosen) {
    case summary: return list_stations(bus, to, true);
    case list: return list_stations(bus, to, false);
    case show: return show_station(bus, to, mac);
    case departed: return list_departed(bus, to, 64);
    case health: return show_health(bus, to);
    case watch: return watch_stations(bus, to);
    default: return kick_station(bus, to, mac);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    pieces input(data, size);
    piece one;
    if (!input.next(one) || one.bytes.size() < 2) return 0;
    const auto chosen = static_cast<command>(one.bytes[0] % commands);
    const wanted_output to{(one.tag & 1) != 0, std::max<int>(20, one.bytes[1])};
    canned_bus bus;
    while (input.next(one)) {
        const content bytes(one.bytes.begin(), one.bytes.end());
        bus.answers.push_back(bytes);
        bus.notifications.push_back({kinds[one.tag % std::size(kinds)], bytes});
    }
    const shown told = screen_of([&] { return run(chosen, bus.context(), to); });
    require(unfit_for_a_terminal(told.out).empty(), "standard output is fit for a terminal");
    require(unfit_for_a_terminal(told.error).empty(), "standard error is fit for a terminal");
    require(to.json || chosen == summary || chosen == kick || widest_line(told.out) <= to.width,
            "lines fit the terminal");
    return 0;
}
