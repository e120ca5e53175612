#include "life/resync.h"

#include "inputs/interfaces.h"
#include "inputs/network.h"
#include "life/association.h"
#include "life/departure.h"
#include "life/members.h"
#include "life/reports.h"
#include "model/departures.h"
#include "model/table.h"
#include "outputs/happenings.h"
#include "protocol/driver_request.h"
#include "tools/array.h"
#include "tools/health.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"
#include "wlan/channel.h"
#include "wlan/station_change.h"
#include "wlan/tables.h"

#include <algorithm>

struct uloop_timeout sta_resync_timer = {};

namespace {

constexpr unsigned all_sections = table_basic | table_extended;
constexpr int soon_ms = 100;
constexpr int apart_ms = 10000;
constexpr int socket_busy_ms = 50;
constexpr int waits_max = 60; // for an empty socket: three seconds

std::int64_t last_ms = 0; // monotonic, of the last comparison; 0: none yet
int waits = 0;

std::int64_t monotonic_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

void run(struct uloop_timeout *timer) {
    const sta_turn turn{"resync"};
    // Events that still wait in the socket come first: they may be about the same stations.
    if (sta_nl_has_more() && waits < waits_max) {
        ++waits;
        uloop_timeout_set(timer, socket_busy_ms);
        return;
    }
    sta_resync();
}

// The driver's list of one interface.
struct driver_list {
    wireless_interface interface;
    bool answered;
    std::uint8_t *table; // counting allocator
    std::uint32_t entries;
};

// A MAC as a number.
std::uint64_t mac_number(const std::uint8_t (&mac)[6]) {
    std::uint64_t number = 0;
    for (const std::uint8_t octet : mac) number = number << 8 | octet;
    return number;
}

// An entry of a list: whose it is, and for how many seconds.
struct listed_station {
    std::uint64_t mac;
    std::int32_t online_time;
};

// By MAC; of several entries of one MAC the latest arrival comes first.
int in_order(const void *left, const void *right) {
    const auto &a = *static_cast<const listed_station *>(left);
    const auto &b = *static_cast<const listed_station *>(right);
    if (a.mac != b.mac) return a.mac < b.mac ? -1 : 1;
    return a.online_time < b.online_time ? -1 : a.online_time > b.online_time ? 1 : 0;
}

class comparison {
public:
    ~comparison() {
        for (const driver_list &list : lists) sta_free(list.table);
    }
    // Asks the driver. False without memory: then nothing is compared.
    bool collect();
    std::uint32_t depart();
    std::uint32_t arrive(sta_configuration &configuration);

private:
    bool add_interface(const char *ifname, std::int32_t radio_id);
    const driver_list *list_of(const char *ifname) const;
    const listed_station *last_of(std::uint64_t mac) const;
    bool is_listed(const sta_info_t *sta) const;
    bool stays_on(const driver_basic &entry, const char *ifname) const;
    bool has_moved_on(const driver_basic &entry) const;

    sta_array<driver_list> lists;
    sta_array<listed_station> listed; // the entries of all of them, in order
};

bool comparison::add_interface(const char *ifname, std::int32_t radio_id) {
    if (*ifname == '\0' || list_of(ifname)) return true;
    driver_list one{};
    sta_put_text(one.interface.ifname, ifname);
    one.interface.radio_id = radio_id;
    return lists.push(one);
}

const driver_list *comparison::list_of(const char *ifname) const {
    for (std::size_t i = 0; i < lists.size(); ++i)
        if (std::strcmp(lists[i].interface.ifname, ifname) == 0) return &lists[i];
    return nullptr;
}

bool comparison::collect() {
    // The table first: its records have the right radio for certain.
    const sta_info_t *sta = nullptr;
    list_for_each_entry (sta, &g_sta_sta_master.list, list) {
        if (!add_interface(sta->ifname, sta->radio_id)) return false;
    }
    sta_array<wireless_interface> configured;
    (void)sta_uci_interfaces(configured); // without a configuration those of the table remain
    for (const wireless_interface &one : configured)
        if (!add_interface(one.ifname, one.radio_id)) return false;
    for (driver_list &list : lists) {
        list.answered = sta_driver_list(list.interface.ifname, all_sections, &list.table, &list.entries);
        for (std::uint32_t i = 0; i < list.entries; ++i) {
            const driver_basic entry =
                driver_basic_decode(list.table + table_header_size + i * table_basic_size);
            if (!listed.push({mac_number(entry.mac), entry.online_time})) return false;
        }
    }
    if (listed.size() > 0) std::qsort(listed.data(), listed.size(), sizeof(listed_station), in_order);
    return true;
}

// The entry with which the station came last; null if it is not listed.
const listed_station *comparison::last_of(std::uint64_t mac) const {
    std::size_t first = 0, end = listed.size();
    while (first < end) {
        const std::size_t middle = first + (end - first) / 2;
        if (listed[middle].mac < mac)
            first = middle + 1;
        else
            end = middle;
    }
    return first < listed.size() && listed[first].mac == mac ? &listed[first] : nullptr;
}

bool comparison::is_listed(const sta_info_t *sta) const {
    std::uint8_t mac[6];
    if (!sta_read_mac(sta->mac, mac)) return true; // from a damaged backup file: it cannot be compared
    return last_of(mac_number(mac)) != nullptr;
}

// Whether the station of `entry` is also listed on `ifname`, and associated there no earlier. While it roams it is listed on both.
bool comparison::stays_on(const driver_basic &entry, const char *ifname) const {
    for (std::size_t l = 0; l < lists.size(); ++l)
        for (std::uint32_t i = 0; i < lists[l].entries; ++i) {
            const driver_basic other =
                driver_basic_decode(lists[l].table + table_header_size + i * table_basic_size);
            if (mac_number(other.mac) == mac_number(entry.mac) && std::strcmp(other.ifname, ifname) == 0)
                return other.online_time <= entry.online_time;
        }
    return false;
}

// Whether the station of `entry` is listed on another interface as well, and came there later: it has roamed, and is gone from here.
bool comparison::has_moved_on(const driver_basic &entry) const {
    const listed_station *last = last_of(mac_number(entry.mac));
    return last && last->online_time < entry.online_time;
}

std::uint32_t comparison::depart() {
    constexpr std::int8_t left_for_another = 2;
    std::uint32_t gone = 0;
    sta_info_t *sta = nullptr;
    sta_info_t *next = nullptr;
    list_for_each_entry_safe (sta, next, &g_sta_sta_master.list, list) {
        const driver_list *list = list_of(sta->ifname);
        if (!list || !list->answered || is_listed(sta)) continue;
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        sta->offline_ts = {static_cast<std::int32_t>(now.tv_sec), static_cast<std::int32_t>(now.tv_nsec)};
        sta_sta_log_off(sta);
        sta_departed_by_absence(sta, sta->is_reassoc == left_for_another ? departure_cause::roam
                                                                         : departure_cause::unknown);
        sta_sta_del_usr(sta);
        ++gone;
    }
    return gone;
}

// Makes the lost event again from what the driver's table says.
void as_event(const driver_basic &basic, const driver_extended &extended, const driver_list &list,
              station_event &event) {
    event = {};
    event.assoc = 1;
    std::memcpy(event.mac, basic.mac, sizeof(event.mac));
    sta_put_text(event.ssid, basic.ssid);
    sta_put_text(event.ifname, basic.ifname[0] != '\0' ? basic.ifname : list.interface.ifname);
    event.time_stamp = static_cast<std::uint32_t>(std::time(nullptr) - basic.online_time);
    event.floornoise = basic.floornoise;
    event.utilization = basic.utilization;
    event.maxRate = basic.maxRate;
    event.channel = basic.channel;
    event.is_reassoc = basic.is_reassoc;
    event.rssi = basic.rssi;
#define EVENT_TAKE(field) event.field = extended.field;
    EVENT_TAKE(supportSTBC)
    EVENT_TAKE(supportSGI)
    EVENT_TAKE(maxMCS)
    EVENT_TAKE(maxBW)
    EVENT_TAKE(FCAP)
    EVENT_TAKE(fromDS)
    EVENT_TAKE(toDS)
#undef EVENT_TAKE
    sta_put_text(event.ap_auth_req, extended.ap_auth_req);
    sta_put_text(event.ap_assoc_req, extended.ap_assoc_req);
}

std::uint32_t comparison::arrive(sta_configuration &configuration) {
    std::uint32_t come = 0;
    for (const driver_list &list : lists) {
        for (std::uint32_t i = 0; i < list.entries; ++i) {
            const std::uint8_t *basic = list.table + table_header_size;
            const auto count = wire::get<std::uint32_t>(list.table + table_num_offset);
            const driver_basic entry = driver_basic_decode(basic + i * table_basic_size);
            const char *ifname = entry.ifname[0] != '\0' ? entry.ifname : list.interface.ifname;
            char mac[18];
            sta_put_mac(mac, entry.mac);
            const sta_info_t *known = sta_sta_peek(mac);
            if (known && (std::strcmp(known->ifname, ifname) == 0 || stays_on(entry, known->ifname)))
                continue;
            if (has_moved_on(entry)) continue; // told once, where it is
            const driver_list *home = list_of(ifname);
            station_event event;
            as_event(entry,
                     driver_extended_decode(basic + count * table_basic_size + i * table_extended_size), list,
                     event);
            event.radio_id = (home ? home : &list)->interface.radio_id;
            std::uint8_t bytes[station_event_size];
            station_event_encode(event, bytes);
            station_change change;
            station_change_decode(STA_NAME_OF(sta_resync), bytes, change);
            change.utilization = entry.utilization; // per cent; an event has a share of 255
            sta_associate(change, configuration);
            ++come;
        }
    }
    return come;
}

} // namespace

void sta_resync_request() noexcept {
    if (sta_resync_timer.pending) return;
    waits = 0;
    const std::int64_t due = last_ms != 0 ? last_ms + apart_ms - monotonic_ms() : 0;
    sta_resync_timer.cb = run;
    uloop_timeout_set(&sta_resync_timer, static_cast<int>(std::clamp<std::int64_t>(due, soon_ms, apart_ms)));
}

void sta_resync() noexcept {
    last_ms = monotonic_ms();
    ++sta_health.resyncs;
    sta_configuration configuration;
    comparison now;
    if (!now.collect()) {
        STA_NOTICE("no memory to compare the stations with the driver's\n");
        return;
    }
    const std::uint32_t departed = now.depart();
    const std::uint32_t arrived = now.arrive(configuration);
    STA_NOTICE("compared with the driver's stations: %u had come unseen, %u had gone\n", arrived, departed);
    sta_tell_resync(arrived, departed);
}

void sta_resync_forget() noexcept {
    sta_resync_timer = {};
    last_ms = 0;
    waits = 0;
}
