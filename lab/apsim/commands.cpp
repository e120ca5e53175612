#include "apsim/commands.h"

#include "channel/messages.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace {

constexpr int burst_max = 60'000;
constexpr int population_max = 10'000;
constexpr int announcements_max = 100'000;
constexpr int seconds_max = 3'600;

std::string text_of(json_object *owned) {
    std::string text =
        json_object_to_json_string_ext(owned, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
    json_object_put(owned);
    return text;
}

mac_address need_mac(words &given) {
    if (const std::optional<mac_address> mac = mac_address::parse(given.need("mac"))) return *mac;
    throw command_error("mac: six octets like 02:00:00:00:00:01");
}

void check(field_result result, const std::string &name) {
    switch (result) {
    case field_result::set: return;
    case field_result::unknown: throw command_error("unknown field " + name);
    case field_result::not_a_number: throw command_error(name + ": not a whole number");
    case field_result::out_of_range: throw command_error(name + ": out of the field's range");
    case field_result::too_long: throw command_error(name + ": longer than the field");
    }
}

// Interface and radio; either may be left out.
struct place {
    std::string ifname;
    int radio;
};
std::optional<place> take_place(words &given) {
    std::optional<std::string> ifname = given.take("ifname");
    const std::optional<std::int64_t> radio = given.take_number(
        "radio", std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max());
    if (!ifname && !radio) return std::nullopt;
    if (ifname && ifname->size() >= sizeof(station_event::ifname))
        throw command_error("ifname: longer than the field");
    const int number = radio ? static_cast<int>(*radio) : radio_of(*ifname);
    return place{ifname ? *std::move(ifname) : ifname_of(number), number};
}

std::string told(std::size_t listeners) { return "ok listeners=" + std::to_string(listeners); }

} // namespace

const commands::verb commands::verbs[] = {
    {"announce", &commands::announce}, {"assoc", &commands::assoc}, {"disassoc", &commands::disassoc},
    {"roam", &commands::roam},         {"set", &commands::set},     {"forget", &commands::forget},
    {"fail", &commands::fail},         {"count", &commands::count}, {"num", &commands::num},
    {"raw", &commands::raw},           {"burst", &commands::burst}, {"list", &commands::list},
    {"log", &commands::log},           {"lease", &commands::lease}, {"population", &commands::people},
    {"again", &commands::again},       {"pass", &commands::pass},   {"events", &commands::events},
    {"status", &commands::status},     {"help", &commands::help},
};

std::string commands::run(std::string_view line) {
    try {
        words given(line);
        const auto *const known = std::ranges::find(verbs, given.verb(), &verb::name);
        if (known == std::end(verbs)) return "error unknown command; try help";
        return (this->*known->run)(given);
    } catch (const command_error &wrong) {
        return std::string("error ") + wrong.what();
    }
}

std::string commands::announce(words &given) {
    const auto id =
        given.take_number("id", lowest_family, std::numeric_limits<std::uint16_t>::max()).value_or(0);
    const auto times = given.take_number("times", 1, announcements_max).value_or(1);
    given.finish();
    air_.channel.announce(static_cast<std::uint16_t>(id), static_cast<int>(times));
    return "ok id=" + std::to_string(air_.channel.channel().family());
}

std::string commands::assoc(words &given) {
    const mac_address mac = need_mac(given);
    const place where = take_place(given).value_or(place{ifname_of(0), 0});
    const std::string ssid = given.take("ssid").value_or("Lobby");
    if (ssid.size() >= sizeof(station_event::ssid)) throw command_error("ssid: longer than the field");
    station client(mac, where.radio, where.ifname, ssid);
    for (const auto &[name, text] : given.rest()) check(client.set(name, text), name);
    client.signal_goal = client.signal();
    station_event event = client.happening(1);
    // Fields given here override those of the station and those computed for the event.
    for (const auto &[name, text] : given.rest()) (void)set_field(event, name, text);
    return told(event.assoc == 1 ? air_.associate(client, event) : air_.channel.send(event));
}

std::string commands::disassoc(words &given) {
    const mac_address mac = need_mac(given);
    const std::optional<place> where = take_place(given);
    const station *client =
        where ? air_.stations.find(mac.text(), where->radio) : air_.stations.find(mac.text());
    const bool known = client && (!where || where->ifname == client->basic.ifname);
    // The event can be sent for a station that the driver does not have, or has elsewhere.
    const place named = where.value_or(place{ifname_of(0), 0});
    station_event event =
        known ? client->happening(0) : station(mac, named.radio, named.ifname, "").happening(0);
    event.off_reason_code =
        static_cast<std::int32_t>(given
                                      .take_number("reason", std::numeric_limits<std::int32_t>::min(),
                                                   std::numeric_limits<std::int32_t>::max())
                                      .value_or(reason_disassociated_by_station));
    for (const auto &[name, text] : given.rest()) check(set_field(event, name, text), name);
    return told(known ? air_.disassociate(*client, event) : air_.channel.send(event));
}

std::string commands::roam(words &given) {
    const std::string mac = need_mac(given).text();
    const std::optional<place> where = take_place(given);
    given.finish();
    const station *client = air_.stations.find(mac);
    if (!client) throw command_error("no such station");
    if (!where) throw command_error("ifname or radio is missing");
    return told(air_.roam(*client, where->ifname, where->radio));
}

std::string commands::set(words &given) {
    const std::string mac = need_mac(given).text();
    const auto radio = given.take_number("radio", 0, std::numeric_limits<std::int32_t>::max());
    station *client = radio ? air_.stations.find(mac, static_cast<int>(*radio)) : air_.stations.find(mac);
    if (!client) throw command_error("no such station");
    if (given.rest().empty()) throw command_error("which field?");
    station changed = *client; // all fields are set or none
    for (const auto &[name, text] : given.rest()) {
        if (name == "ifname") throw command_error("ifname: use roam");
        check(changed.set(name, text), name);
    }
    *client = std::move(changed);
    return "ok";
}

std::string commands::forget(words &given) {
    const std::string mac = need_mac(given).text();
    given.finish();
    const station *client = air_.stations.find(mac);
    if (!client) throw command_error("no such station");
    while (client) {
        air_.stations.remove(mac, client->radio);
        client = air_.stations.find(mac);
    }
    return "ok";
}

std::string commands::fail(words &given) {
    if (given.take("off")) {
        given.finish();
        air_.requests.fail_no_more();
        return "ok";
    }
    const auto command =
        static_cast<int>(given.need_number("cmd", 0, std::numeric_limits<std::int32_t>::max()));
    const auto times = given.take_number("times", 1, std::numeric_limits<std::int32_t>::max());
    given.finish();
    air_.requests.fail(command, times ? std::optional<std::uint64_t>(static_cast<std::uint64_t>(*times))
                                      : std::nullopt);
    return "ok";
}

std::string commands::count(words &given) {
    const std::string ifname = given.need("ifname");
    if (given.take("off")) {
        given.finish();
        air_.requests.set_count(ifname, std::nullopt);
        return "ok";
    }
    std::string text = given.need("n"); // any text, so that a test can let the driver answer nonsense
    given.finish();
    air_.requests.set_count(ifname, std::move(text));
    return "ok";
}

std::string commands::num(words &given) {
    if (given.take("off")) {
        given.finish();
        air_.requests.set_num(std::nullopt);
        return "ok";
    }
    const std::int64_t n = given.need_number("n", 0, std::numeric_limits<std::uint32_t>::max());
    given.finish();
    air_.requests.set_num(static_cast<std::uint32_t>(n));
    return "ok";
}

std::string commands::raw(words &given) {
    const std::string hex = given.need("hex");
    given.finish();
    std::vector<std::uint8_t> bytes;
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        const std::optional<std::int64_t> byte = parse_number("0x" + hex.substr(i, 2), 0, 255);
        if (!byte || i + 2 > hex.size()) throw command_error("hex: two digits for each byte");
        bytes.push_back(static_cast<std::uint8_t>(*byte));
    }
    if (bytes.empty()) throw command_error("hex: no byte");
    return told(air_.channel.send(bytes));
}

std::string commands::burst(words &given) {
    const auto n = static_cast<int>(given.need_number("n", 1, burst_max));
    const bool leave = given.take("leave").has_value();
    const place where = take_place(given).value_or(place{ifname_of(0), 0});
    const std::string ssid = given.take("ssid").value_or("Lobby");
    given.finish();
    if (ssid.size() >= sizeof(station_event::ssid)) throw command_error("ssid: longer than the field");
    std::size_t listeners = 0;
    for (int i = 0; i < n; ++i) {
        const mac_address mac{
            {0x02, 0xb0, 0, 0, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)}};
        if (!leave)
            listeners = air_.associate(station(mac, where.radio, where.ifname, ssid));
        else if (const station *client = air_.stations.find(mac.text()))
            listeners = air_.disassociate(*client, reason_disassociated_by_station);
    }
    return told(listeners);
}

std::string commands::list(words &given) {
    given.finish();
    json_object *array = json_object_new_array();
    for (const station &one : air_.stations.all()) json_object_array_add(array, one.json());
    return "ok " + text_of(array);
}

std::string commands::log(words &given) {
    const bool clear = given.take("clear").has_value();
    given.finish();
    std::string text = text_of(air_.requests.log());
    if (clear) air_.requests.clear_log();
    return "ok " + text;
}

std::string commands::lease(words &given) {
    const std::string mac = need_mac(given).text();
    const bool off = given.take("off").has_value();
    const std::string ip = off ? "" : given.need("ip");
    const std::string name = off ? "" : given.need("name");
    given.finish();
    const auto breaks_line = [](const std::string &text) { return text.find_first_of("\n\r") != text.npos; };
    if (breaks_line(ip) || breaks_line(name)) throw command_error("a lease is one line");
    const lease_file before = air_.leases;
    if (off)
        air_.leases.remove(mac);
    else
        air_.leases.set(mac, ip, name);
    const std::string why = air_.leases.write();
    if (why.empty()) return "ok";
    air_.leases = before;
    throw command_error(why);
}

std::string commands::people(words &given) {
    const auto n = static_cast<int>(given.need_number("n", 0, population_max));
    const auto seed = given.take_number("seed", 0, std::numeric_limits<std::int64_t>::max()).value_or(1);
    const auto guests = given.take_number("guests", 0, population_max).value_or(0);
    given.finish();
    people_.start(n, static_cast<std::uint64_t>(seed), static_cast<int>(guests));
    return "ok";
}

std::string commands::again(words &given) {
    given.finish();
    return told(air_.again());
}

std::string commands::pass(words &given) {
    const auto seconds = static_cast<int>(given.need_number("seconds", 1, seconds_max));
    given.finish();
    for (int i = 0; i < seconds; ++i) {
        people_.advance();
        air_.stations.advance();
    }
    return "ok events=" + std::to_string(air_.channel.events_sent());
}

std::string commands::events(words &given) {
    const bool clear = given.take("clear").has_value();
    given.finish();
    json_object *array = json_object_new_array();
    for (const event_sender::told &one : air_.channel.events()) {
        json_object *object = json_object_new_object();
        json_object_object_add(object, "assoc", json_object_new_int64(one.assoc));
        json_object_object_add(object, "mac", json_object_new_string(one.mac.text().c_str()));
        json_object_object_add(object, "ifname", json_object_new_string(one.ifname.c_str()));
        json_object_object_add(object, "radio", json_object_new_int(one.radio));
        json_object_object_add(object, "is_reassoc", json_object_new_int(one.is_reassoc));
        json_object_array_add(array, object);
    }
    if (clear) air_.channel.forget_events();
    return "ok " + text_of(array);
}

std::string commands::status(words &given) {
    given.finish();
    air_.channel.look();
    json_object *object = json_object_new_object();
    const auto number = [object](const char *name, std::uint64_t value) {
        json_object_object_add(object, name, json_object_new_uint64(value));
    };
    json_object *ports = json_object_new_array();
    const event_channel &channel = air_.channel.channel();
    for (std::size_t i = 0; i < channel.listeners(); ++i)
        json_object_array_add(ports, json_object_new_int64(channel.port(i)));
    json_object_object_add(object, "listeners", ports);
    number("family", channel.family());
    number("queued", channel.queued());
    number("sent", channel.sent());
    number("lost", channel.lost());
    number("stations", air_.stations.all().size());
    number("population", people_.present());
    return "ok " + text_of(object);
}

std::string commands::help(words &given) {
    given.finish();
    std::string text = "ok";
    for (const verb &each : verbs) text += ' ' + std::string(each.name);
    return text;
}
