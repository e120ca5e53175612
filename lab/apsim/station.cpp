#include "apsim/station.h"

#include "protocol/escape.h"

#include <algorithm>
#include <ctime>

namespace {

constexpr int weakest = -94; // dBm, within what the daemon shows unchanged
constexpr int strongest = -25;

void clock_text(char (&field)[33], std::time_t when, int milliseconds) {
    struct tm parts {};
    localtime_r(&when, &parts);
    char text[33];
    const std::size_t used = std::strftime(text, sizeof(text), "%H:%M:%S", &parts);
    (void)std::snprintf(text + used, sizeof(text) - used, ".%03d", milliseconds);
    put_text(field, text);
}

std::uint64_t number_of(const mac_address &mac) {
    std::uint64_t number = 0;
    for (const std::uint8_t byte : mac.bytes) number = number << 8 | byte;
    return number;
}

int step_towards(int value, int goal) { return value + (goal > value) - (goal < value); }

// How busy the channel is. A table has it in per cent, which the daemon keeps; an event has a share of 255, which the daemon
// converts to per cent, rounded down.
int per_cent(int share) { return share * 100 / 255; }
int share(int per_cent) { return (per_cent * 255 + 99) / 100; }

// Mbit/s that the signal carries.
std::uint32_t link_rate(int rssi, std::uint32_t most) {
    const int quality = std::clamp(rssi + 95, 0, 50);
    return std::max<std::uint32_t>(6, most * static_cast<std::uint32_t>(quality) / 50);
}

} // namespace

station::station(const mac_address &address, int on_radio, std::string_view ifname, std::string_view ssid)
    : mac(address.text()), radio(on_radio), event{}, basic{}, extended{}, signal_goal(-50), demand_up(40),
      demand_down(200), random(number_of(address)) {
    std::memcpy(event.mac, address.bytes, sizeof(event.mac));
    std::memcpy(basic.mac, address.bytes, sizeof(basic.mac));
    put_text(event.ssid, ssid);
    put_text(basic.ssid, ssid);
    put_text(event.ifname, ifname);
    put_text(basic.ifname, ifname);
    event.radio_id = on_radio;
    put_text(event.version, on_radio == 0 ? "11n" : "11ac");
    event.roam_enable = 1;

    basic.tx_time = 4000;
    basic.floornoise = -95;
    basic.utilization = per_cent(60);
    basic.maxRate = on_radio == 0 ? 300 : 867;
    basic.rx_rate = basic.tx_rate = basic.maxRate / 2;
    basic.channel = on_radio == 0 ? 6 : 36;
    basic.rssi = static_cast<std::int8_t>(signal_goal);
    basic.chain_rssi0 = basic.chain_rssi1 = basic.rssi;
    basic.chain_rssi2 = basic.chain_rssi3 = weakest;

    extended.supportSTBC = extended.supportSGI = 1;
    extended.maxMCS = on_radio == 0 ? 15 : 9;
    extended.maxBW = on_radio == 0 ? 1 : 2;
    extended.FCAP = 3;
    extended.fromDS = extended.toDS = 1;
    extended.cost_auth_req = 2;
    extended.cost_assoc_req = 5;
    extended.cost_msg2 = 9;
    extended.cost_msg4 = 14;
    const std::time_t now = std::time(nullptr);
    clock_text(extended.ap_auth_req, now, 120);
    clock_text(extended.ap_assoc_req, now, 125);
    clock_text(extended.key_start, now, 130);
    clock_text(extended.key_msg2, now, 139);
    clock_text(extended.key_end, now, 144);
}

field_result station::set(std::string_view name, std::string_view text) {
    field_result result = field_result::unknown;
    for (const field_result one :
         {set_field(event, name, text), set_field(basic, name, text), set_field(extended, name, text)}) {
        if (one == field_result::unknown) continue;
        if (one != field_result::set) return one;
        result = one;
    }
    if (result == field_result::set) by_hand.emplace(name);
    return result;
}

station_event station::happening(std::uint32_t assoc) const {
    station_event now = event;
    copy_figures(now, basic, extended);
    if (!by_hand.contains("utilization")) now.utilization = share(basic.utilization);
    now.assoc = assoc;
    now.time_stamp = static_cast<std::uint32_t>(std::time(nullptr));
    return now;
}

json_object *station::json() const {
    json_object *object = json_object_new_object();
    json_object_object_add(object, "mac", json_object_new_string(mac.c_str()));
    json_object_object_add(object, "radio", json_object_new_int(radio));
    add_fields(object, basic);
    add_fields(object, extended);
    char shown[1024]; // the table's text is shorter than the event's
    std::string_view ssid = event.ssid;
    const std::size_t used = escape::write(ssid, shown);
    json_object_object_add(object, "ssid", json_object_new_string_len(shown, static_cast<int>(used)));
    return object;
}

std::string ifname_of(int radio) { return "ath" + std::to_string(radio); }

int radio_of(std::string_view ifname) { return ifname.starts_with("ath1") ? 1 : 0; }

station *station_table::find(std::string_view mac) {
    const auto at =
        std::find_if(stations_.rbegin(), stations_.rend(), [mac](const station &s) { return s.mac == mac; });
    return at == stations_.rend() ? nullptr : &*at;
}

station *station_table::find(std::string_view mac, int radio) {
    const auto at =
        std::ranges::find_if(stations_, [=](const station &s) { return s.mac == mac && s.radio == radio; });
    return at == stations_.end() ? nullptr : &*at;
}

station &station_table::add(station added) {
    remove(added.mac, added.radio);
    added.random.stir(seed_);
    return stations_.emplace_back(std::move(added));
}

bool station_table::remove(std::string_view mac, int radio) {
    return std::erase_if(stations_, [=](const station &s) { return s.mac == mac && s.radio == radio; }) > 0;
}

std::vector<const station *> station_table::with(std::string_view ifname) const {
    std::vector<const station *> found;
    const auto known =
        std::ranges::find_if(stations_, [=](const station &s) { return ifname == s.basic.ifname; });
    if (known == stations_.end() && !ifname.starts_with("ath")) return found;
    const int radio = known == stations_.end() ? radio_of(ifname) : known->radio;
    for (const station &one : stations_)
        if (one.radio == radio) found.push_back(&one);
    return found;
}

void station_table::advance() {
    for (int radio = 0; radio < 2; ++radio) {
        noise_[radio] = std::clamp(noise_[radio] + air_.between(-1, 1), -102, -88);
        utilization_[radio] = std::clamp(utilization_[radio] + air_.between(-6, 6), 5, 220);
    }
    for (station &one : stations_) advance(one, noise_[one.radio == 1], utilization_[one.radio == 1]);
}

void station_table::advance(station &one, int noise, int utilization) {
    const auto move = [&one](const char *name, auto &field, auto value) {
        if (!one.by_hand.contains(name)) field = static_cast<std::remove_reference_t<decltype(field)>>(value);
    };
    random_numbers &random = one.random;
    driver_basic &basic = one.basic;
    driver_extended &extended = one.extended;

    const int rssi =
        std::clamp(step_towards(basic.rssi, one.signal_goal) + random.between(-1, 1), weakest, strongest);
    move("rssi", basic.rssi, rssi);
    move("chain_rssi0", basic.chain_rssi0, rssi - random.between(0, 3));
    move("chain_rssi1", basic.chain_rssi1, rssi - random.between(0, 3));
    move("floornoise", basic.floornoise, noise);
    move("utilization", basic.utilization, per_cent(utilization));
    move("tx_time", basic.tx_time, 1000 * random.between(1, 2 + utilization / 10));
    move("online_time", basic.online_time, basic.online_time + 1);
    const std::uint32_t link = link_rate(basic.rssi, basic.maxRate);
    move("tx_rate", basic.tx_rate, link);
    move("rx_rate", basic.rx_rate, std::max<std::uint32_t>(6, link * 9 / 10));

    const auto bytes = [&random, link](unsigned demand) { // of this second, within what the link carries
        const std::uint64_t kilobits = std::min<std::uint64_t>(demand, std::uint64_t{link} * 600);
        return kilobits * 125 * static_cast<unsigned>(random.between(60, 140)) / 100;
    };
    const std::uint64_t up = bytes(one.demand_up);
    const std::uint64_t down = bytes(one.demand_down);
    move("onesecrxbyte", extended.onesecrxbyte, up);
    move("onesectxbyte", extended.onesectxbyte, down);
    move("rx_bytes", basic.rx_bytes, basic.rx_bytes + up);
    move("tx_bytes", basic.tx_bytes, basic.tx_bytes + down);
    move("txPkt", extended.txPkt, extended.txPkt + down / 1200 + 1);
    move("txBcast", extended.txBcast, extended.txBcast + static_cast<unsigned>(random.between(0, 2)));
    move("txMcast", extended.txMcast, extended.txMcast + static_cast<unsigned>(random.between(0, 1)));
    move("txper", extended.txper, std::max(0, -basic.rssi - 55) + random.between(0, 3));
    move("rxper", extended.rxper, std::max(0, -basic.rssi - 60) + random.between(0, 2));
    move("psm", basic.psm, one.demand_down == 0 ? 1 : 0);
}
