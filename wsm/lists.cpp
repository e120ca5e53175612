#include "lists.h"

#include "message.h"
#include "table.h"
#include "text.h"
#include "words.h"

#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

constexpr table_column station_columns[] = {
    {"STATION", 0, 0, false}, {"NAME", 16, 0, false}, {"ADDRESS", 15, 5, false}, {"NETWORK", 7, 4, false},
    {"IFACE", 0, 6, false},   {"BAND", 0, 7, false},  {"DBM", 0, 1, true},       {"FROM", 0, 8, true},
    {"TO", 0, 8, true},       {"TIME", 0, 2, true},
};
constexpr table_column departed_columns[] = {
    {"LEFT", 0, 0, false},  {"STATION", 0, 0, false},  {"NAME", 16, 4, false}, {"ADDRESS", 0, 6, false},
    {"STAYED", 0, 3, true}, {"ENDED BY", 0, 1, false}, {"DBM", 0, 5, true},    {"REASON", 0, 7, false},
};

// The address to show: that of the record, else the first IPv4 address, else the first that is not link-local.
const char *address_of(struct blob_attr *station) {
    const char *found = text_of(station, "ip");
    if (*found != '\0') return found;
    for_each(member(station, "addresses"), [&](struct blob_attr *one) {
        const char *address = text_of(one, "address");
        const bool is_link_local = std::strncmp(address, "fe80:", 5) == 0;
        const bool better = !std::strchr(address, ':') && std::strchr(found, ':');
        if (!is_link_local && (*found == '\0' || better)) found = address;
    });
    return found;
}

bool add_number(table &to, struct blob_attr *from, const char *name) {
    char word[word_size] = "";
    std::int64_t number = 0;
    struct blob_attr *value = member(from, name);
    if (value && read_number(value, number))
        (void)std::snprintf(word, sizeof(word), "%lld", static_cast<long long>(number));
    return to.add(word);
}

bool add_bytes(table &to, struct blob_attr *from, const char *name) {
    char word[word_size];
    put_bytes(word, number_of(from, name));
    return to.add(word);
}

bool add_duration(table &to, struct blob_attr *from, const char *name) {
    char word[word_size] = "";
    const std::int64_t seconds = number_of(from, name, -1);
    if (seconds >= 0) put_duration(word, seconds);
    return to.add(word);
}

bool add_station(table &to, struct blob_attr *one) {
    return to.add(text_of(one, "mac")) && to.add(text_of(one, "name")) && to.add(address_of(one)) &&
           to.add(text_of(one, "ssid")) && to.add(text_of(one, "interface")) &&
           to.add(text_of(one, "band")) && add_number(to, one, "signal") && add_bytes(to, one, "rx_bytes") &&
           add_bytes(to, one, "tx_bytes") && add_duration(to, one, "connected");
}

bool add_departure(table &to, struct blob_attr *one) {
    char when[word_size];
    put_time(when, number_of(one, "left"), std::time(nullptr));
    return to.add(when) && to.add(text_of(one, "mac")) && to.add(text_of(one, "name")) &&
           to.add(text_of(one, "ip")) && add_duration(to, one, "lasted") &&
           to.add(text_of(one, "ended_by")) && add_number(to, one, "signal") &&
           to.add(text_of(one, "reason"));
}

// Reads all pages and calls `visit` with each station; a page that is not full is the last one.
template <class Visit>
exit_status for_each_station(struct ubus_context *bus, std::span<const char *const> fields, Visit visit) {
    constexpr std::uint32_t page = 128;
    char after[18] = "";
    for (;;) {
        bus_arguments arguments;
        if (after[0] != '\0') arguments.add("after", after);
        arguments.add("limit", page);
        if (!fields.empty()) arguments.add("fields", fields);
        char next[18] = "";
        bool whole = true;
        const exit_status status = bus_ask(bus, "wsmd", "stations", arguments, [&](struct blob_attr *answer) {
            for_each(member(answer, "stations"),
                     [&](struct blob_attr *station) { whole = visit(station) && whole; });
            (void)std::snprintf(next, sizeof(next), "%s", text_of(answer, "next"));
        });
        if (status != exit_done) return status;
        if (!whole) return complain_of_memory();
        if (next[0] == '\0' || std::strcmp(next, after) <= 0) return exit_done;
        std::memcpy(after, next, sizeof(after));
    }
}

exit_status ask_health(struct ubus_context *bus, bool (*take)(struct blob_attr *answer, int width),
                       int width) {
    bool whole = true;
    const exit_status status =
        bus_ask(bus, "wsmd", "health", {}, [&](struct blob_attr *answer) { whole = take(answer, width); });
    return whole ? status : complain_of_memory();
}

bool print_summary(struct blob_attr *answer, int /*width*/) {
    char up[word_size];
    put_duration(up, number_of(answer, "uptime"));
    struct blob_attr *stations = member(answer, "stations");
    const auto of = [&](const char *name) { return static_cast<long long>(number_of(stations, name)); };
    const shown_text version = show(text_of(answer, "version"), 20);
    std::printf("wsmd %.*s, up %s: %lld stations, %lld online (most %lld of %lld)%s\n\n",
                static_cast<int>(version.length), version.bytes, up, of("known"), of("online"), of("most"),
                of("limit"), truth_of(answer, "family") ? "" : "; NO DRIVER");
    return true;
}

// "name  value, name value, ...", in as many lines as needed.
class wrapped_line {
public:
    wrapped_line(const char *name, int width) noexcept : room(width - 1) { // leaves room for the comma
        const shown_text title = show(name, indent - 1);
        std::printf("%.*s%*s", static_cast<int>(title.length), title.bytes, indent - title.columns, "");
    }
    ~wrapped_line() { std::putchar('\n'); }
    wrapped_line(const wrapped_line &) = delete;
    wrapped_line &operator=(const wrapped_line &) = delete;

    void word(const char *text) noexcept {
        const shown_text shown = show(text, room - indent);
        if (used > indent) {
            const bool fits = used + 2 + shown.columns <= room;
            std::printf(fits ? ", " : ",\n%*s", indent, "");
            used = fits ? used + 2 : indent;
        }
        std::fwrite(shown.bytes, 1, shown.length, stdout);
        used += shown.columns;
    }

private:
    static constexpr int indent = 18;
    int room;
    int used = indent;
};

void put_value(char (&word)[256], const char *name, struct blob_attr *value) {
    std::int64_t number = 0;
    const char *before = name ? name : "";
    const char *blank = name ? " " : "";
    if (blobmsg_type(value) == BLOBMSG_TYPE_STRING)
        (void)std::snprintf(word, sizeof(word), "%s%s%s", before, blank, blobmsg_get_string(value));
    else if (blobmsg_type(value) == BLOBMSG_TYPE_BOOL)
        (void)std::snprintf(word, sizeof(word), "%s%s%s", before, blank,
                            blobmsg_get_bool(value) ? "yes" : "no");
    else if (read_number(value, number))
        (void)std::snprintf(word, sizeof(word), "%s%s%lld", before, blank, static_cast<long long>(number));
    else
        word[0] = '\0';
}

struct unit {
    const char *member;
    const char *text;
};
constexpr unit units[] = {{"signal", "dBm"},
                          {"noise", "dBm"},
                          {"rx_rate", "bit/s"},
                          {"tx_rate", "bit/s"},
                          {"max_rate", "bit/s"},
                          {"rx_bytes", "bytes"},
                          {"tx_bytes", "bytes"},
                          {"rx_bytes_second", "bytes"},
                          {"tx_bytes_second", "bytes"},
                          {"width", "MHz"},
                          {"rx_error_percent", "%"},
                          {"tx_error_percent", "%"}};

// Prints a member of a station or of the health: a value, or a table of values.
void print_member(struct blob_attr *one, int width) {
    const char *name = blobmsg_name(one);
    char word[256];
    wrapped_line line{name, width};
    if (blobmsg_type(one) == BLOBMSG_TYPE_TABLE) {
        for_each(one, [&](struct blob_attr *value) {
            put_value(word, blobmsg_name(value), value);
            line.word(word);
        });
        return;
    }
    std::int64_t number = 0;
    if (std::strcmp(name, "came") == 0 && read_number(one, number)) {
        char when[word_size];
        put_time(when, number, std::time(nullptr));
        line.word(when);
        return;
    }
    if ((std::strcmp(name, "connected") == 0 || std::strcmp(name, "uptime") == 0) &&
        read_number(one, number)) {
        char how_long[word_size];
        put_duration(how_long, number);
        line.word(how_long);
        return;
    }
    put_value(word, nullptr, one);
    for (const unit &of : units)
        if (std::strcmp(of.member, name) == 0) {
            const std::size_t used = std::strlen(word);
            (void)std::snprintf(word + used, sizeof(word) - used, " %s", of.text);
        }
    line.word(word);
}

// Prints addresses or names, each with its origin and since when it is known.
void print_known(struct blob_attr *list, const char *kind, int width) {
    const std::int64_t now = std::time(nullptr);
    bool first = true;
    for_each(list, [&](struct blob_attr *one) {
        char since[word_size], seen[word_size], how[128];
        put_time(since, number_of(one, "since"), now);
        put_time(seen, number_of(one, "seen"), now);
        (void)std::snprintf(how, sizeof(how), "%s, since %s, seen %s", text_of(one, "origin"), since, seen);
        wrapped_line line{first ? blobmsg_name(list) : "", width};
        line.word(text_of(one, kind));
        line.word(how);
        first = false;
    });
}

bool print_all(struct blob_attr *answer, int width) {
    for_each(answer, [&](struct blob_attr *one) {
        const char *name = blobmsg_name(one);
        if (std::strcmp(name, "addresses") == 0 && blobmsg_type(one) == BLOBMSG_TYPE_ARRAY)
            print_known(one, "address", width);
        else if (std::strcmp(name, "names") == 0 && blobmsg_type(one) == BLOBMSG_TYPE_ARRAY)
            print_known(one, "name", width);
        else
            print_member(one, width);
    });
    return true;
}

bool print_json_line(struct blob_attr *answer, int /*width*/) { return print_json(answer); }

} // namespace

exit_status list_stations(struct ubus_context *bus, const wanted_output &to, bool with_summary) {
    if (to.json) return for_each_station(bus, {}, [](struct blob_attr *one) { return print_json(one); });
    if (with_summary)
        if (const exit_status status = ask_health(bus, print_summary, to.width); status != exit_done)
            return status;
    constexpr const char *fields[] = {"name", "ip",     "addresses", "ssid",     "interface",
                                      "band", "signal", "rx_bytes",  "tx_bytes", "connected"};
    table rows{station_columns};
    const exit_status status =
        for_each_station(bus, fields, [&](struct blob_attr *one) { return add_station(rows, one); });
    if (status == exit_done) rows.print(to.width);
    return status;
}

exit_status list_departed(struct ubus_context *bus, const wanted_output &to, std::uint32_t limit) {
    bus_arguments arguments;
    arguments.add("limit", limit);
    table rows{departed_columns};
    bool whole = true;
    const exit_status status = bus_ask(bus, "wsmd", "departed", arguments, [&](struct blob_attr *answer) {
        for_each(member(answer, "departed"), [&](struct blob_attr *one) {
            whole = (to.json ? print_json(one) : add_departure(rows, one)) && whole;
        });
    });
    if (!whole) return complain_of_memory();
    if (status == exit_done && !to.json) rows.print(to.width);
    return status;
}

exit_status show_station(struct ubus_context *bus, const wanted_output &to, const char *mac) {
    bus_arguments arguments;
    arguments.add("mac", mac);
    bool whole = true;
    const exit_status status = bus_ask(bus, "wsmd", "station", arguments, [&](struct blob_attr *answer) {
        whole = to.json ? print_json(answer) : print_all(answer, to.width);
    });
    if (status == exit_not_found) std::fprintf(stderr, "wsm: no station %s\n", mac);
    return whole ? status : complain_of_memory();
}

exit_status show_health(struct ubus_context *bus, const wanted_output &to) {
    return ask_health(bus, to.json ? print_json_line : print_all, to.width);
}
