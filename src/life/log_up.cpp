#include "life/log_up.h"

#include "inputs/network.h"
#include "life/departure.h"
#include "life/members.h"
#include "life/reports.h"
#include "model/departures.h"
#include "model/members.h"
#include "model/table.h"
#include "outputs/backup.h"
#include "outputs/collector.h"
#include "outputs/notify.h"
#include "protocol/driver_request.h"
#include "protocol/station_report.h"
#include "tools/log.h"
#include "tools/text.h"
#include "wlan/tables.h"

namespace {

constexpr unsigned all_sections = table_basic | table_extended;
constexpr std::int32_t unlisted_seconds_max = 300;
constexpr std::int8_t left_for_another = 2;
constexpr std::int8_t single_pass = 2; // the third, counted from 0

} // namespace

void sta_sta_log_byioctl_update() {
    const std::int32_t now = sta_uptime_seconds();
    sta_configuration configuration;
    sta_radio_tables tables{all_sections, configuration};
    sta_backup_pass backup;
    sta_info_t *sta = nullptr;
    sta_info_t *next = nullptr;
    list_for_each_entry_safe (sta, next, &g_sta_sta_master.list, list) {
        if (sta->status != sta_status_online) continue;
        tables.fetch_for(sta);
        if (!sta_radio_tables::has_radio(sta)) STA_LOG("sta:%s radio is inexistence \n", sta->mac);
        if (tables.update(sta) == 0) {
            sta->load_uptime = now;
        } else if (now - sta->load_uptime >= unlisted_seconds_max) {
            sta_sta_log_off(sta);
            // A station whose event said that it roams to another access point is taken to have arrived there.
            sta_departed_by_absence(sta, sta->is_reassoc == left_for_another ? departure_cause::roam
                                                                             : departure_cause::unlisted);
            sta_members_dismiss(sta, backup);
            continue;
        }
        sta->log_type = report_update;
        if (sta_domain_socket_send(sta) == -1) STA_LOG("sta_domain_socket_send error!!!\n");
        sta_ubus_log_info_notify(sta);
        // Only now, so that the report shows the previous address once.
        if (std::strcmp(sta->before_ip, sta->ip) != 0) sta_put_text(sta->before_ip, sta->ip);
    }
}

void sta_sta_log_single_byioctl_update() {
    if (!sta_early_reports_due) return;
    sta_early_reports_due = false;
    sta_configuration configuration;
    sta_radio_tables tables{all_sections, configuration};
    sta_info_t *sta = nullptr;
    list_for_each_entry (sta, &g_sta_sta_master.list, list) {
        if (sta->single_log_up_cnt > single_pass) continue;
        if (sta->single_log_up_cnt == single_pass) {
            tables.fetch_for(sta);
            if (sta_radio_tables::has_radio(sta)) tables.update(sta);
            sta->log_type = report_update;
            if (sta_domain_socket_send(sta) == -1) STA_LOG("sta_domain_socket_send error!!!\n");
        }
        if (++sta->single_log_up_cnt <= single_pass) sta_early_reports_due = true;
    }
}
