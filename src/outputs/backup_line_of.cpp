#include "outputs/backup_line_of.h"

#include "inputs/dhcpmon_list.h"
#include "inputs/network.h"
#include "model/identity.h"
#include "outputs/happenings.h"
#include "protocol/backup_line.h"
#include "tools/line.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <algorithm>
#include <charconv>
#include <concepts>

namespace {

constexpr std::size_t text_max = 128; // limit of a name, whose length is not fixed; other texts are shorter

// Log lines carry the name of the exported function, whichever code asks for the line.
constexpr const char *add_function = "sta_sta_users_backup_add";

std::uint32_t mega(std::int32_t rate) { return static_cast<std::uint32_t>(rate) >> 10; }

// A rate with its unit, cut to the buffer: "866M".
template <std::size_t N> struct rate_text {
    char text[N] = {};
    template <std::integral T> explicit rate_text(T rate) {
        char *end = std::to_chars(text, text + N - 1, rate).ptr;
        if (end < text + N - 1) *end = 'M';
    }
};

// An empty name becomes "-" in the record. Its block may have a single byte, so it is replaced.
void fill_empty_name(sta_info_t *sta) {
    if (!sta->name || sta->name[0] != '\0') return;
    auto *name = static_cast<char *>(sta_malloc(sta_name_size));
    if (!name) return;
    name[0] = '-';
    sta_free(sta->name);
    sta->name = name;
}

// The values of a line's fields.
struct backup_values {
#define VALUE_TEXT(field, instead) const char *field;
#define VALUE_NUMBER(type, field) type field;
#define VALUE_SHOWN(field) const char *field;
#define VALUE_SHOWN_NUMBER(field) unsigned long long field;
    BACKUP_FIELDS(VALUE_SHOWN, VALUE_TEXT, VALUE_NUMBER, VALUE_SHOWN, VALUE_SHOWN_NUMBER)
#undef VALUE_TEXT
#undef VALUE_NUMBER
#undef VALUE_SHOWN
#undef VALUE_SHOWN_NUMBER
};

// Returns the length of the line.
std::size_t write_line(const backup_values &values, char (&line)[sta_backup_line_size]) {
    sta_line out{line};
#define WRITE_TEXT(field, instead) out.text(values.field, instead, text_max);
#define WRITE_NUMBER(type, field) out.number(values.field);
#define WRITE_SHOWN(field) out.text(values.field, '-', text_max);
#define WRITE_SHOWN_NUMBER(field) out.number(values.field);
    BACKUP_FIELDS(WRITE_SHOWN, WRITE_TEXT, WRITE_NUMBER, WRITE_SHOWN, WRITE_SHOWN_NUMBER)
#undef WRITE_TEXT
#undef WRITE_NUMBER
#undef WRITE_SHOWN
#undef WRITE_SHOWN_NUMBER
    return out.finish();
}

} // namespace

void sta_sta_ssid_escape(char *text) {
    if (!text) return;
    std::size_t length = std::strlen(text);
    while (length > 0 && text[length - 1] == ' ') text[--length] = '\0';
    std::replace(text, text + length, ' ', '/');
}

std::size_t sta_make_backup_line(sta_info_t *sta, sta_configuration &configuration,
                                 char (&line)[sta_backup_line_size]) noexcept {
    using ull = unsigned long long;
    const std::uint64_t last_up =
        0; // Deliberate: no earlier value is kept, so the rates are a fifth of the totals
    const std::uint64_t last_down = 0;
    const ull up_rate = (sta->wifi_up - last_up) / 5;
    const ull down_rate = (sta->wifi_down - last_down) / 5;
    STA_LOG_AS(add_function,
               "last_wifi_up:%llu last_wifi_down: %llu wifi_up %llu wifi_down %llu wifi_up_rate %llu "
               "wifi_down_rate %llu\n",
               static_cast<ull>(last_up), static_cast<ull>(last_down), static_cast<ull>(sta->wifi_up),
               static_cast<ull>(sta->wifi_down), up_rate, down_rate);
    if (configuration.is_bridged(sta)) {
        const bool had_none = std::strcmp(sta->ip, sta_no_address) == 0;
        sta_sta_get_ip_hostname_by_dhcpmon_list(sta);
        if (had_none && std::strcmp(sta->ip, sta_no_address) != 0) {
            sta_learn_address(sta, sta->ip, station_origin::dhcpmon);
            if (sta->name) sta_learn_name(sta, sta->name, station_origin::dhcpmon);
        }
    }

    char ssid[sizeof(sta->ssid)];
    sta_put_text(ssid, sta->ssid);
    sta_sta_ssid_escape(ssid);
    sta_space_to_middleline(sta->name);
    fill_empty_name(sta);

    const rate_text<8> rx_rate{mega(sta->flow_rateup)}, tx_rate{mega(sta->flow_ratedown)};
    const rate_text<16> max_rate{static_cast<std::int32_t>(sta->maxRate)};
    STA_LOG_AS(add_function, "load_users:\nflow_rateup %d flow_ratedown %d rxrate %s txrate %s maxrate %s\n",
               sta->flow_rateup, sta->flow_ratedown, rx_rate.text, tx_rate.text, max_rate.text);

    return write_line({.name = sta->name && sta->name[0] != '\0' ? sta->name : "-",
                       .mac = sta->mac,
                       .ip = sta->ip,
                       .online_ts = sta->online_ts.sec,
                       .oltime = sta->oltime,
                       .flow_rateup = sta->flow_rateup,
                       .flow_ratedown = sta->flow_ratedown,
                       .ssid = ssid,
                       .no_backup = 0,
                       .radio_id = sta->radio_id,
                       .power = sta->power,
                       .channel = sta->channel < 1 ? 11 : sta->channel,
                       .rate_up = rx_rate.text,
                       .rate_down = tx_rate.text,
                       .wifi_up = sta->wifi_up,
                       .wifi_down = sta->wifi_down,
                       .bytes_up = up_rate,
                       .bytes_down = down_rate,
                       .ifname = sta->ifname,
                       .is_reassoc = sta->is_reassoc,
                       .vlanid = sta->vlanid,
                       .roam_enable = sta->roam_enable,
                       .repeater_type = sta->repeater_type,
                       .rate_max = max_rate.text},
                      line);
}
