#include "life/reports.h"

#include "model/table.h"
#include "outputs/collector.h"
#include "outputs/notify.h"
#include "protocol/station_report.h"
#include "tools/log.h"
#include "wlan/removal.h"

void sta_sta_log_on(sta_info_t *sta) {
    STA_LOG("sta log on.\n");
    if (sta) sta->log_type = report_online;
    if (sta_domain_socket_send(sta) == -1) STA_LOG("sta_domain_socket_send error!!!\n");
    sta_ubus_log_info_notify(sta);
}

void sta_sta_log_off(sta_info_t *sta) {
    STA_LOG("sta log off.\n");
    if (sta) sta->log_type = report_offline;
    if (sta_domain_socket_send(sta) == -1) STA_LOG("sta_domain_socket_send error!!!\n");
    sta_ubus_log_info_notify(sta);
}

void sta_sta_roam_send_msg(const sta_info_t *sta) {
    STA_LOG("sta_sta_roam_send_msg is running!!!\n");
    sta_info_t *known = sta ? sta_sta_find_usr(sta->mac) : nullptr;
    if (!known) {
        STA_LOG("sta can't find\n");
        return;
    }
    STA_LOG("stamac = %s, sta_radio_id = %d, tempt_radio_id = %d\n", sta->mac, sta->radio_id,
            known->radio_id);
    if (known->radio_id == sta->radio_id) return;
    known->log_type = report_roamed;
    sta_sta_delete_sta_by_roam(known);
    if (sta_domain_socket_send(known) == -1) STA_LOG("sta_domain_socket_send error!!!\n");
}
