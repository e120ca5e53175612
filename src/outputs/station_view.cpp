#include "outputs/station_view.h"

#include "model/identity.h"
#include "model/table.h"
#include "tools/packed_texts.h"
#include "tools/text.h"

#include <bit>
#include <iterator>
#include <string_view>
#include <utility>

namespace {

constexpr std::uint64_t bits_of_mbit = 1000000;

struct shown {
    struct blob_buf *buf;
    const sta_info_t *sta;
    const station_clock &clock;

    void number(const char *key, std::int32_t value) const {
        blobmsg_add_u32(buf, key, static_cast<std::uint32_t>(value));
    }
    void large(const char *key, std::uint64_t value) const { blobmsg_add_u64(buf, key, value); }
    void truth(const char *key, bool value) const { blobmsg_add_u8(buf, key, value ? 1 : 0); }
    // Adds a text that is not empty.
    void text(const char *key, const char *value) const {
        if (value && *value != '\0') blobmsg_add_string(buf, key, value);
    }
    void known(const char *key, std::int64_t value) const {
        if (value != 0) number(key, static_cast<std::int32_t>(value));
    }
};

bool is_name(const char *name) { return name && *name != '\0' && std::strcmp(name, "-") != 0; }

// 6 GHz uses channel numbers of the other bands again: the band is given only where the number belongs to one band.
const char *band_of(std::int32_t channel) {
    if (channel == 14 || (channel >= 1 && channel <= 13)) return "2.4 GHz";
    if (channel == 36 || (channel > 36 && channel <= 177)) return "5 GHz";
    return nullptr;
}

void put_access_point(const shown &to, const char *key) {
    char mac[sizeof(sta_info_t::ap_mac)];
    sta_put_text(mac, to.sta->ap_mac);
    sta_str_trim(mac);
    to.text(key, mac);
}

void put_connected(const shown &to, const char *key) {
    // A restored record does not know when its station associated.
    if (to.sta->online_clock.sec != 0) to.number(key, to.clock.monotonic - to.sta->online_clock.sec);
}

void put_rate(const shown &to, const char *key, std::int32_t kilo_mbit) {
    if (kilo_mbit > 0) to.large(key, static_cast<std::uint64_t>(kilo_mbit) * bits_of_mbit / 1024);
}

void put_width(const shown &to, const char *key) {
    constexpr int widths[] = {20, 40, 80, 160, 320};
    const std::int32_t index = to.sta->maxBW;
    if (index >= 0 && index < static_cast<std::int32_t>(std::size(widths))) to.number(key, widths[index]);
}

// The steps of the association: their clock times as the driver writes them, and how long each took.
void put_steps(const shown &to, const char *key) {
    const sta_info_t &s = *to.sta;
    void *table = blobmsg_open_table(to.buf, key);
    to.text("auth", s.ap_auth_req);
    to.text("assoc", s.ap_assoc_req);
    to.text("key_start", s.key_start);
    to.text("key_msg2", s.key_msg2);
    to.text("key_end", s.key_end);
    to.known("auth_ms", s.cost_auth_req);
    to.known("assoc_ms", s.cost_assoc_req);
    to.known("msg2_ms", s.cost_msg2);
    to.known("msg4_ms", s.cost_msg4);
    blobmsg_close_table(to.buf, table);
}

// The members that addresses and names have in common.
template <class Entry> void put_how(const shown &to, const Entry &one) {
    const std::int64_t boot = to.clock.wall - to.clock.monotonic;
    to.text("origin", station_origin_name(one.origin));
    to.large("since", static_cast<std::uint64_t>(boot + one.since));
    to.large("seen", static_cast<std::uint64_t>(boot + one.seen));
}

void put_addresses(const shown &to, const char *key) {
    const std::span<const station_address> addresses = sta_identity_addresses(to.sta);
    if (addresses.empty()) return;
    void *array = blobmsg_open_array(to.buf, key);
    for (const station_address &one : addresses) {
        char text[station_address_text_size];
        sta_address_write(one, text);
        void *table = blobmsg_open_table(to.buf, nullptr);
        to.text("address", text);
        put_how(to, one);
        blobmsg_close_table(to.buf, table);
    }
    blobmsg_close_array(to.buf, array);
}

void put_names(const shown &to, const char *key) {
    const std::span<const station_name> names = sta_identity_names(to.sta);
    if (names.empty()) return;
    void *array = blobmsg_open_array(to.buf, key);
    for (const station_name &one : names) {
        void *table = blobmsg_open_table(to.buf, nullptr);
        to.text("name", one.text);
        put_how(to, one);
        blobmsg_close_table(to.buf, table);
    }
    blobmsg_close_array(to.buf, array);
}

bool is_private(const char *text) {
    constexpr int locally_administered = 2;
    std::uint8_t mac[6] = {};
    return sta_read_mac(text, mac) && (mac[0] & locally_administered) != 0;
}

struct view_field {
    const char *name;
    bool figure; // comes from the driver's table
    void (*put)(const shown &to, const char *key);
};

#define PUT(body) [](const shown &to, const char *key) { body; }
// clang-format off
constexpr view_field view_fields[] = {
    {"mac", false, PUT(to.text(key, to.sta->mac))},
    {"private", false, PUT(to.truth(key, is_private(to.sta->mac)))},
    {"state", false, PUT(to.text(key, to.sta->status == sta_status_online ? "online" : "waiting"))},
    {"confirmed", false, PUT(to.truth(key, to.sta->restored == 0))},
    {"ip", false, PUT(if (std::strcmp(to.sta->ip, sta_no_address) != 0) to.text(key, to.sta->ip))},
    {"name", false, PUT(if (is_name(to.sta->name)) to.text(key, to.sta->name))},
    {"ssid", false, PUT(to.text(key, to.sta->ssid))},
    {"interface", false, PUT(to.text(key, to.sta->ifname))},
    {"access_point", false, put_access_point},
    {"radio", false, PUT(to.number(key, to.sta->radio_id))},
    {"band", false, PUT(to.text(key, band_of(to.sta->channel)))},
    {"channel", false, PUT(to.known(key, to.sta->channel))},
    {"vlan", false, PUT(to.known(key, to.sta->vlanid))},
    {"protocol", false, PUT(to.text(key, to.sta->protocol))},
    {"repeater", false, PUT(to.truth(key, to.sta->repeater_type == 1))},
    {"roaming", false, PUT(to.truth(key, to.sta->roam_enable == 1))},
    {"came", false, PUT(if (to.sta->online_ts.sec > 0) to.large(key, static_cast<std::uint64_t>(to.sta->online_ts.sec)))},
    {"connected", false, put_connected},
    {"signal", true, PUT(to.known(key, to.sta->rssi))},
    {"noise", true, PUT(to.known(key, to.sta->floornoise))},
    {"rx_rate", true, PUT(put_rate(to, key, to.sta->flow_rateup))},
    {"tx_rate", true, PUT(put_rate(to, key, to.sta->flow_ratedown))},
    {"max_rate", true, PUT(if (to.sta->driver_rate != 0) to.large(key, to.sta->driver_rate * bits_of_mbit))},
    {"rx_bytes", true, PUT(to.large(key, to.sta->wifi_up))},
    {"tx_bytes", true, PUT(to.large(key, to.sta->wifi_down))},
    {"rx_bytes_second", true, PUT(to.large(key, to.sta->onesecrxbyte))},
    {"tx_bytes_second", true, PUT(to.large(key, to.sta->onesectxbyte))},
    {"tx_packets", true, PUT(to.large(key, to.sta->txPkt))},
    {"rx_error_percent", true, PUT(to.number(key, static_cast<std::int32_t>(to.sta->rxper)))},
    {"tx_error_percent", true, PUT(to.number(key, static_cast<std::int32_t>(to.sta->txper)))},
    {"width", true, put_width},
    {"max_mcs", true, PUT(to.number(key, to.sta->maxMCS))},
    {"steps", true, put_steps},
    {"addresses", false, put_addresses},
    {"names", false, put_names},
};
// clang-format on
#undef PUT
static_assert(std::size(view_fields) < 64, "a set of members is one word");
constexpr std::size_t many = 2; // the last two members are lists
constexpr auto names = pack_texts<view_fields, &view_field::name>();

// Calls each function of the table by its name: a table of addresses would have to be relocated.
template <std::size_t... At>
void put_fields(const shown &to, station_fields fields, std::index_sequence<At...> /*all*/) {
    ((fields >> At & 1 ? view_fields[At].put(to, names[At]) : void()), ...);
}

constexpr station_fields figures = [] {
    station_fields set = 0;
    for (std::size_t i = 0; i < std::size(view_fields); ++i)
        if (view_fields[i].figure) set |= station_fields{1} << i;
    return set;
}();

} // namespace

station_fields sta_view_all() noexcept { return (station_fields{1} << std::size(view_fields)) - 1; }

station_fields sta_view_page() noexcept { return (station_fields{1} << (std::size(view_fields) - many)) - 1; }

station_fields sta_view_field(const char *name) noexcept {
    for (std::size_t i = 0; i < std::size(view_fields); ++i)
        if (std::strcmp(names[i], name) == 0) return station_fields{1} << i;
    return 0;
}

station_fields sta_view_figures() noexcept { return figures; }

station_clock::station_clock() noexcept : monotonic(sta_monotonic_seconds()), wall(std::time(nullptr)) {}

void sta_view_put(struct blob_buf *buf, const sta_info_t *sta, station_fields fields,
                  const station_clock &clock) noexcept {
    const shown to{buf, sta, clock};
    fields |= 1; // mac
    put_fields(to, fields, std::make_index_sequence<std::size(view_fields)>());
}

bool sta_view_has_mac(const sta_info_t *sta) noexcept {
    std::uint8_t mac[6];
    return sta_read_mac(sta->mac, mac);
}
