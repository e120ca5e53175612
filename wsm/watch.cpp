#include "watch.h"

#include "message.h"
#include "text.h"
#include "words.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace {

struct watching {
    struct ubus_subscriber subscriber; // must be first: the handlers get a pointer to it
    wanted_output to;
    std::uint32_t seq;
    exit_status end;
};

// The details to print for each kind of notification.
void put_details(char (&line)[512], const char *kind, struct blob_attr *message) {
    if (std::strcmp(kind, "joined") == 0) {
        struct blob_attr *station = member(message, "station");
        (void)std::snprintf(line, sizeof(line), "%s%s%s %s", text_of(station, "interface"),
                            truth_of(message, "again") ? " again" : "",
                            *text_of(station, "ssid") != '\0' ? " at" : "", text_of(station, "ssid"));
    } else if (std::strcmp(kind, "left") == 0) {
        struct blob_attr *departure = member(message, "departure");
        char stayed[word_size] = "some time";
        if (const std::int64_t seconds = number_of(departure, "lasted", -1); seconds >= 0)
            put_duration(stayed, seconds);
        (void)std::snprintf(line, sizeof(line), "%s after %s, ended by %s %s %s",
                            text_of(departure, "interface"), stayed, text_of(departure, "ended_by"),
                            text_of(departure, "reason"), text_of(departure, "name"));
    } else if (std::strcmp(kind, "roamed") == 0) {
        (void)std::snprintf(line, sizeof(line), "from %s to %s",
                            text_of(member(message, "from"), "interface"),
                            text_of(member(message, "to"), "interface"));
    } else if (std::strcmp(kind, "changed") == 0) {
        const char *address = text_of(message, "address");
        (void)std::snprintf(line, sizeof(line), "%s %s (%s)", *address != '\0' ? "address" : "name",
                            *address != '\0' ? address : text_of(message, "name"),
                            text_of(message, "origin"));
    } else if (std::strcmp(kind, "resync") == 0) {
        (void)std::snprintf(line, sizeof(line), "events were lost: %lld had come, %lld had gone",
                            static_cast<long long>(number_of(message, "arrived")),
                            static_cast<long long>(number_of(message, "departed")));
    }
}

void print_told(const watching &here, const char *kind, struct blob_attr *message) {
    char now[word_size], line[512] = "", whole[640];
    put_time(now, std::time(nullptr), std::time(nullptr));
    put_details(line, kind, message);
    (void)std::snprintf(whole, sizeof(whole), "%s  %-7s  %-17s  %s", now, kind, text_of(message, "mac"),
                        line);
    const shown_text shown = show(whole, here.to.width);
    std::printf("%.*s\n", static_cast<int>(shown.length), shown.bytes);
}

int hear(struct ubus_context * /*bus*/, struct ubus_object *object, struct ubus_request_data * /*request*/,
         const char *kind, struct blob_attr *message) {
    watching &here = *reinterpret_cast<watching *>(container_of(object, struct ubus_subscriber, obj));
    const auto seq = static_cast<std::uint32_t>(number_of(message, "seq"));
    if (here.seq != 0 && seq != here.seq + 1)
        std::fputs("wsm: some were missed: wsm list says how it is now\n", stderr);
    here.seq = seq;
    if (here.to.json) {
        std::putchar('{');
        print_json_text(kind);
        std::putchar(':');
        if (!print_json(message, "}")) {
            std::puts("null}");
            (void)complain_of_memory();
        }
    } else {
        print_told(here, kind, message);
    }
    std::fflush(stdout);
    return 0;
}

void gone(struct ubus_context * /*bus*/, struct ubus_subscriber *subscriber, std::uint32_t /*id*/) {
    std::fputs("wsm: wsmd has gone\n", stderr);
    reinterpret_cast<watching *>(subscriber)->end = exit_no_daemon;
    uloop_end();
}

bool bus_is_lost = false;

void lost(struct ubus_context * /*bus*/) {
    std::fputs("wsm: the broker has hung up\n", stderr);
    bus_is_lost = true;
    uloop_end();
}

// Whether this station is among the departures that came after the first `before` ones.
exit_status see_whether_it_left(struct ubus_context *bus, const char *mac, std::int64_t before, bool &left) {
    return bus_ask(bus, "wsmd", "departed", {}, [&](struct blob_attr *answer) {
        // If the daemon was restarted meanwhile, it has counted fewer: then all its departures are new.
        const std::uint64_t fresh =
            static_cast<std::uint64_t>(number_of(answer, "total")) - static_cast<std::uint64_t>(before);
        std::uint64_t nth = 0;
        for_each(member(answer, "departed"), [&](struct blob_attr *one) {
            if (nth++ < fresh && std::strcmp(text_of(one, "mac"), mac) == 0) left = true;
        });
    });
}

} // namespace

exit_status watch_stations(struct ubus_context *bus, const wanted_output &to) {
    watching here{};
    here.to = to;
    here.subscriber.cb = hear;
    here.subscriber.remove_cb = gone;
    std::uint32_t id = 0;
    if (const exit_status missing = bus_find(bus, "wsmd", id); missing != exit_done) return missing;
    uloop_init();
    bus->connection_lost = lost;
    int status = ubus_register_subscriber(bus, &here.subscriber);
    if (status == UBUS_STATUS_OK) status = ubus_subscribe(bus, &here.subscriber, id);
    if (status == UBUS_STATUS_NOT_FOUND) status = UBUS_STATUS_PERMISSION_DENIED; // the object was found above
    if (status != UBUS_STATUS_OK) return bus_complain("wsmd", status);
    ubus_add_uloop(bus);
    uloop_run();
    uloop_done();
    return bus_is_lost ? exit_no_bus : here.end;
}

exit_status kick_station(struct ubus_context *bus, const wanted_output &to, const char *mac) {
    bus_arguments station;
    station.add("mac", mac);
    std::int64_t radio = 0, before = 0;
    exit_status status = bus_ask(bus, "wsmd", "station", station,
                                 [&](struct blob_attr *answer) { radio = number_of(answer, "radio"); });
    if (status == exit_not_found) std::fprintf(stderr, "wsm: no station %s\n", mac);
    if (status == exit_done)
        status = bus_ask(bus, "wsmd", "departed", {},
                         [&](struct blob_attr *answer) { before = number_of(answer, "total"); });
    if (status == exit_done) {
        bus_arguments place;
        place.add("mac", mac);
        place.add("radio", static_cast<std::uint32_t>(radio));
        status = bus_ask(bus, "sta", "delete", place, nullptr, nullptr);
    }
    bool is_gone = false;
    for (int tenth = 0; status == exit_done && !is_gone && tenth < 50; ++tenth) {
        constexpr timespec pause{0, 100000000};
        nanosleep(&pause, nullptr);
        status = bus_ask(bus, "wsmd", "station", station, nullptr, nullptr);
        if (status == exit_done) {
            status = see_whether_it_left(bus, mac, before, is_gone);
        } else if (status == exit_not_found) {
            is_gone = true;
            status = exit_done;
        }
    }
    if (status != exit_done) return status;
    if (to.json)
        std::printf("{\"mac\":\"%s\",\"gone\":%s}\n", mac, is_gone ? "true" : "false");
    else if (is_gone)
        std::printf("%s is disconnected\n", mac);
    else
        std::fprintf(stderr, "wsm: the driver was asked, but %s is still there\n", mac);
    return is_gone ? exit_done : exit_failed;
}
