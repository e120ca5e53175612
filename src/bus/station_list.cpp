#include "bus/station_list.h"

#include "inputs/network.h"
#include "model/table.h"
#include "outputs/bus_link.h"
#include "outputs/station_message.h"
#include "protocol/driver_request.h"
#include "tools/log.h"
#include "tools/text.h"
#include "wlan/tables.h"

#include <cstring>
#include <string_view>

namespace {

bool wants_driver_entries(const char *wlan) { return wlan && std::strcmp(wlan, "stainfo") == 0; }

constexpr const char *entries_function = STA_NAME_OF(ubus_server_get_wlan_online_sta_info);

// Appends a table for each of `entries` entries of `list` whose MAC is `mac` (null: all). Returns their number.
unsigned add_entries(blob_buf *buf, const std::uint8_t *list, std::uint32_t entries, const char *mac) {
    unsigned count = 0;
    for (std::uint32_t i = 0; i < entries && sta_bus_make_room(buf); ++i) {
        const driver_basic entry = driver_basic_decode(list + table_header_size + i * table_basic_size);
        char text[64];
        const auto add_text = [&](const char *key) { blobmsg_add_string(buf, key, text); };
        const auto add_number = [&](const char *key, auto value, const char *unit) {
            std::snprintf(text, sizeof(text), "%d%s", static_cast<std::int32_t>(value), unit);
            add_text(key);
        };
        char its_mac[18];
        sta_put_mac(its_mac, entry.mac);
        if (mac && std::strcmp(mac, its_mac) != 0) continue;
        void *table = blobmsg_open_table(buf, nullptr);
        blobmsg_add_string(buf, "mac", its_mac);
        blobmsg_add_string(buf, "ssid", entry.ssid);
        blobmsg_add_string(buf, "ssid_ifname", entry.ifname);
        add_number("channel", entry.channel, "");
        add_number("rxrate", entry.rx_rate, "M");
        add_number("txrate", entry.tx_rate, "M");
        std::snprintf(text, sizeof(text), "%d,%d,%d,%d", entry.chain_rssi0, entry.chain_rssi1,
                      entry.chain_rssi2, entry.chain_rssi3);
        STA_LOG_AS(entries_function, "rssi=%s \n", text);
        add_text("rssi");
        add_number("maxRate", entry.maxRate, "M");
        add_number("oltime", entry.online_time, "");
        add_number("utilization_cnt", entry.utilization, "");
        add_number("floornoise_cnt", entry.floornoise, "");
        add_number("psm", entry.psm, "");
        blobmsg_close_table(buf, table);
        ++count;
    }
    return count;
}

// The entries of the station's radio, whose table has just been fetched.
unsigned add_driver_entries(blob_buf *buf, const sta_radio_tables &tables, const sta_info_t *sta,
                            const char *mac) {
    if (tables.count_of(sta) == 0) return 0;
    const std::uint8_t *table = tables.table_of(sta);
    if (!table) {
        STA_LOG_AS(entries_function, "param is null!!\n");
        return 0;
    }
    return add_entries(buf, table, tables.entries_of(sta), mac);
}

} // namespace

unsigned ubus_server_get_wlan_online_sta_info(struct blob_buf *buf, const std::uint8_t *list,
                                              const char *mac) {
    if (!buf || !list) {
        STA_LOG("param is null!!\n");
        return 0;
    }
    return add_entries(buf, list, wire::get<std::uint32_t>(list + table_num_offset), mac);
}

void sta_encode_json_sta_array_info(struct blob_buf *buf, const char *param, const char *mac,
                                    const char *wlan) {
    if (!param) return;
    const std::int32_t now = sta_monotonic_seconds();
    unsigned count = 0;
    STA_LOG("encode start\n");
    sta_configuration configuration;
    sta_radio_tables tables{table_basic | table_extended, configuration};
    if (std::strcmp(param, "online") == 0 && sta_bus_make_room(buf)) {
        void *array = blobmsg_open_array(buf, "online_list");
        pthread_mutex_lock(&g_sta_server_mutex);
        sta_info_t *sta = nullptr;
        list_for_each_entry (sta, &g_sta_sta_master.list, list) {
            if (!sta_bus_make_room(buf)) break;
            if (sta->mac[0] == '\0' || (mac && std::strcmp(mac, sta->mac) != 0)) continue;
            const bool fetched = tables.fetch_for(sta);
            if (wants_driver_entries(wlan)) {
                if (fetched) count += add_driver_entries(buf, tables, sta, mac);
                continue;
            }
            void *table = blobmsg_open_table(buf, nullptr);
            if (sta_radio_tables::has_radio(sta))
                tables.update(sta);
            else
                STA_LOG("sta:%s radio is inexistence \n", sta->mac);
            sta->oltime = now - sta->online_clock.sec;
            ubus_server_get_all_online_sta_info(buf, sta);
            blobmsg_close_table(buf, table);
            ++count;
        }
        pthread_mutex_unlock(&g_sta_server_mutex);
        if (buf->head) blobmsg_close_array(buf, array);
    }
    char text[15];
    std::snprintf(text, sizeof(text), "%d", static_cast<int>(count));
    if (buf->head) blobmsg_add_string(buf, "count", text);
    STA_LOG("encode end\n");
}

int sta_encode_json_sta_count_info(struct blob_buf *buf, const char *selector) {
    std::uint32_t total = 0;
    std::uint32_t repeaters = 0;
    const sta_info_t *sta = nullptr;
    list_for_each_entry (sta, &g_sta_sta_master.list, list) {
        if (sta->mac[0] == '\0') continue;
        ++total;
        if (sta->repeater_type == 1) ++repeaters;
    }
    const std::string_view wanted = selector ? selector : "";
    const std::uint32_t count = wanted == "normal_sta"     ? total - repeaters
                                : wanted == "repeater_sta" ? repeaters
                                                           : total;
    return blobmsg_add_u32(buf, "count", count);
}
