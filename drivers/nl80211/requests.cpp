// The driver requests, answered from the kernel's list and from station_life. No answer waits for
// hostapd.
#include "nl80211/bridge.h"

#include "nl80211/log.h"

#include <cerrno>

namespace {

// The daemon asks for the number and then for the table: both answers must come from the same list.
constexpr std::int64_t list_good_for_ms = 250;

} // namespace

std::int32_t bridge::answer(was_question &question) noexcept {
    switch (question.command) {
    case driver_station_count: return answer_count(question);
    case driver_station_table: return answer_table(question);
    case driver_roam_delete: return answer_removal(question);
    default: return -EOPNOTSUPP;
    }
}

// All authorised stations on the radio of this interface; null when there is no such interface, or no list.
const array<listed_station> *bridge::stations_of(const char *ifname) noexcept {
    const access_interface *asked = networks_.find(ifname);
    if (!asked || asked->facts.radio < 0 || asked->facts.radio > 1) return nullptr;
    radio_list &list = lists_[asked->facts.radio];
    const std::int64_t now = now_moment().ms;
    if (list.at_ms != 0 && now - list.at_ms < list_good_for_ms) return &list.stations;
    list.at_ms = 0;
    list.stations.clear();
    for (const access_interface *one = networks_.begin_all(); one != networks_.end_all(); ++one)
        if (one->base != 0 && one->facts.radio == asked->facts.radio &&
            !list_stations_of(kernel_, one->ifindex, one->base, list.stations))
            return nullptr;
    for (std::size_t i = 0; i < list.stations.size();) {
        const listed_station &one = list.stations[i];
        // After a roam the old network may list the client for a while.
        const station *on = life_.find_on(one.mac);
        if (one.figures.authorized && (!on || on->network == one.network))
            ++i;
        else
            list.stations.remove(i);
    }
    list.at_ms = now;
    return &list.stations;
}

std::int32_t bridge::answer_count(was_question &question) noexcept {
    const array<listed_station> *stations = stations_of(question.ifname);
    if (!stations) return -ENODEV;
    char text[16];
    const int used = std::snprintf(text, sizeof(text), "%zu", stations->size());
    if (question.size < static_cast<std::size_t>(used) + 1) return -EINVAL;
    std::memset(question.bytes, 0, question.size);
    std::memcpy(question.bytes, text, static_cast<std::size_t>(used));
    return 0;
}

std::int32_t bridge::answer_table(was_question &question) noexcept {
    if (question.size < table_header_size) return -EINVAL;
    const auto wanted = wire::get<std::uint32_t>(question.bytes + table_num_offset);
    const auto mask = wire::get<std::uint32_t>(question.bytes + table_mask_offset);
    const std::size_t entry_size =
        (mask & table_basic ? table_basic_size : 0) + (mask & table_extended ? table_extended_size : 0);
    if (entry_size == 0 || (question.size - table_header_size) / entry_size < wanted) return -EINVAL;
    const array<listed_station> *stations = stations_of(question.ifname);
    if (!stations) return -ENODEV;

    // The extended section comes after as many basic entries as were asked for, filled or not.
    std::uint8_t *basic = question.bytes + table_header_size;
    std::uint8_t *extended = basic + (mask & table_basic ? wanted * table_basic_size : 0);
    std::memset(basic, 0, question.size - table_header_size);
    const std::uint64_t boot = now_boot_ns();
    std::uint32_t filled = 0;
    for (const listed_station &one : *stations) {
        const access_interface *where = networks_.find(one.network);
        if (filled == wanted || !where) continue;
        station unknown{};
        unknown.mac = one.mac;
        const station *known = life_.find(one.network, one.mac);
        if (!known) must_list_ = true;
        const station &about = known ? *known : unknown;
        if (mask & table_basic)
            driver_basic_encode(make_basic(about, one.figures, where->facts, boot),
                                basic + filled * table_basic_size);
        if (mask & table_extended)
            driver_extended_encode(make_extended(about, one.figures),
                                   extended + filled * table_extended_size);
        ++filled;
    }
    wire::put<std::uint32_t>(question.bytes + table_num_offset, filled);
    return 0;
}

// The daemon asks to remove a client from a radio: because it is now on the other radio, or because somebody disconnects
// it. The client must not notice the first; it must notice the second.
std::int32_t bridge::answer_removal(const was_question &question) noexcept {
    if (question.size < roam_delete_size) return -EINVAL;
    char text[roam_delete_mac_size + 1];
    wire::get_text(text, question.bytes);
    mac_address mac{};
    if (!mac_address::parse(text, mac)) return -EINVAL;
    const auto radio = wire::get<std::int32_t>(question.bytes + roam_delete_radio_offset);
    const station *on = life_.find_on(mac);
    const access_interface *on_at = on ? networks_.find(on->network) : nullptr;
    const bool is_told = on_at && on_at->facts.radio == radio;
    bool any = false;
    for (const access_interface *one = networks_.begin_all(); one != networks_.end_all(); ++one) {
        const station *there =
            one->is_network && one->facts.radio == radio ? life_.find(one->ifindex, mac) : nullptr;
        if (!there || !there->in_kernel || (is_told && !there->on)) continue;
        any = true;
        log_line("%s is sent away from %s%s", text, one->facts.ifname,
                 is_told ? "" : ", where it is no longer");
        // Without hostapd the kernel drops the entry, and the client notices when it sends next.
        if (!one->control || !one->control->is_attached() || !one->control->send_away(mac, is_told))
            kernel_.remove_station(one->ifindex, mac);
    }
    return any ? 0 : -ENOENT;
}
