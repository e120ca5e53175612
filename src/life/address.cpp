#include "life/address.h"

#include "fw/iptables.h"
#include "inputs/leases.h"
#include "inputs/network.h"
#include "inputs/snoop_copy.h"
#include "model/identity.h"
#include "model/table.h"
#include "outputs/backup.h"
#include "outputs/collector.h"
#include "outputs/happenings.h"
#include "protocol/station_report.h"
#include "tools/check.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"

namespace {

constexpr std::size_t host_name_length_max = 128;

// Calls `visit` for every online station with a MAC. `visit` must not remove any.
template <class Visit> void for_each_online(Visit visit) {
    if (g_sta_sta_master.online == 0) return;
    sta_info_t *sta = nullptr;
    list_for_each_entry (sta, &g_sta_sta_master.list, list) {
        if (sta->mac[0] != '\0' && sta->status == sta_status_online) visit(sta);
    }
}

// Shared by all stations of one refresh: each file is read once, and the backup file is written once.
struct refresh {
    sta_configuration configuration{};
    sta_lease_snapshot leases{};
    sta_backup_pass backup{};
};

void refresh_name(sta_info_t *sta, refresh &shared) {
    if (sta->repeater_type == 1) return;
    char *name = sta_get_name_by_dhcp_mac(sta->mac);
    if (!name) return;
    if (sta->name && std::strcmp(sta->name, name) == 0) {
        sta_identity_add_name(sta, name, station_origin::lease);
        sta_free(name);
        return;
    }
    STA_LOG_AS(STA_NAME_OF(sta_sta_update_online_status_name), "name change: mac %s, %s->%s\n", sta->mac,
               sta_or_null(sta->name), name);
    sta_free(sta->name);
    sta->name = name;
    shared.backup.update(sta, shared.configuration);
    sta_learn_name(sta, name, station_origin::lease);
}

// Puts the address found into the record and the previous one into `old`. False when they are the same.
bool change_address(sta_info_t *sta, const char *found, char (&old)[sizeof(sta_info_t::ip)]) {
    if (std::strcmp(sta->ip, found) == 0) return false;
    sta_put_text(old, sta->ip);
    sta_put_text(sta->ip, found);
    return true;
}

void refresh_leased_address(sta_info_t *sta, refresh &shared) {
    char found[sizeof(sta->ip)] = "", old[sizeof(sta->ip)];
    if (sta_get_ipaddr_by_dhcp_mac(found, sta->mac) != 0) return;
    if (!change_address(sta, found, old)) {
        sta_identity_add_address(sta, found, station_origin::lease);
        return;
    }
    shared.backup.update(sta, shared.configuration);
    STA_LOG_AS(STA_NAME_OF(sta_sta_update_online_status_ip_by_dhcp), "ip change: mac %s, %s->%s\n", sta->mac,
               old, sta->ip);
    sta_learn_address(sta, sta->ip, station_origin::lease);
}

void refresh_snooped_address(sta_info_t *sta) {
    char found[sizeof(sta->ip)] = "", old[sizeof(sta->ip)];
    if (sta_get_ipaddr_by_snoop_mac(sta->mac, found) != 0 || !change_address(sta, found, old)) return;
    sta_fw_flow_host(old, sta->mac, 0);
    if (sta_fw_flow_host(sta->ip, sta->mac, 1) == 0) {
        sta->work_up = 0;
        sta->work_down = 0;
        sta->flow_rateup = 0;
        sta->flow_ratedown = 0;
    }
    sta_sta_users_backup_update(sta);
    STA_LOG_AS(STA_NAME_OF(sta_sta_update_online_status_ip), "ip change: mac %s, %s->%s\n", sta->mac, old,
               sta->ip);
    sta_learn_address(sta, sta->ip, station_origin::snoop);
}

// Events that come together share one reading of the lease file.
struct uloop_timeout after_events = {};

void keep_leases_for_this_turn() {
    after_events.cb = [](struct uloop_timeout * /*timer*/) { sta_lease_snapshot::forget_kept(); };
    if (!after_events.pending) uloop_timeout_set(&after_events, 0);
}

void refresh_names(refresh &shared) {
    for_each_online([&](sta_info_t *sta) { refresh_name(sta, shared); });
}

void refresh_leased_addresses(refresh &shared) {
    for_each_online([&](sta_info_t *sta) { refresh_leased_address(sta, shared); });
}

} // namespace

void sta_sta_update_name_by_dhcp() {
    refresh shared;
    refresh_names(shared);
    refresh_leased_addresses(shared);
}

void sta_sta_update_online_status_name() {
    refresh shared;
    refresh_names(shared);
}

void sta_sta_update_online_status_ip_by_dhcp() {
    refresh shared;
    refresh_leased_addresses(shared);
}

void sta_sta_update_online_status_ip() {
    const sta_snoop_copy snooped;
    for_each_online(refresh_snooped_address);
}

void sta_sta_update_ip_by_ip_change_event(const char *mac, const char *before_ip, const char *changed_ip) {
    STA_LOG("mac=%s, before_ip=%s, changed_ip=%s\n", sta_or_null(mac), sta_or_null(before_ip),
            sta_or_null(changed_ip));
    if (!STA_HAS_LENGTH("sta_sta", mac, sta_mac_text_min) ||
        !STA_HAS_LENGTH("sta_sta", before_ip, sta_ip_text_min) ||
        !STA_HAS_LENGTH("sta_sta", changed_ip, sta_ip_text_min))
        return;
    if (g_sta_sta_master.online == 0) {
        STA_LOG("No sta connection.\n");
        return;
    }
    sta_info_t *sta = nullptr;
    list_for_each_entry (sta, &g_sta_sta_master.list, list) {
        if (std::strlen(sta->mac) < sta_mac_text_min) {
            STA_LOG("Fail to get the sta.\n");
            continue;
        }
        if (sta->status != sta_status_online) continue;
        if (std::strcmp(sta->mac, mac) != 0) {
            STA_LOG("MAC don't match: mac=%s, list_mac=%s.\n", mac, sta->mac);
            continue;
        }
        const sta_lease_snapshot leases{sta_lease_snapshot::of_events{}};
        keep_leases_for_this_turn();
        char leased[sizeof(sta->ip)] = "";
        if (sta_get_ipaddr_by_dhcp_mac(leased, sta->mac) == 0) {
            STA_LOG("IP address is obtained from DHCP.\n");
            return;
        }
        STA_LOG("IP change: mac %s, %s->%s.\n ", sta->mac, sta->ip, changed_ip);
        char old[sizeof(sta->ip)];
        if (change_address(sta, changed_ip, old)) sta_learn_address(sta, sta->ip, station_origin::event);
    }
}

void sta_sta_update_ip_by_dhcp_update_event(const char *mac, const char *ip, const char *hostName) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const std::int64_t time_us = static_cast<std::int64_t>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
    STA_LOG("sta_sta_update_ip_by_dhcp_update_event is running\n ");
    if (!STA_HAS_LENGTH("sta_sta", mac, sta_mac_text_min) || !STA_HAS_LENGTH("sta_sta", ip, sta_ip_text_min))
        return;
    if (!hostName || std::strlen(hostName) > host_name_length_max) {
        STA_ERROR("sta_sta", "The parameter hostName error.\n");
        return;
    }
    sta_info_t *sta = nullptr;
    list_for_each_entry (sta, &g_sta_sta_master.list, list) {
        if (std::strlen(sta->mac) < sta_mac_text_min) {
            STA_LOG("Fail to get the sta.\n");
            continue;
        }
        if (std::strcmp(sta->mac, mac) != 0) {
            STA_LOG("MAC don't match: mac=%s, list_mac=%s.\n", mac, sta->mac);
            continue;
        }
        char old[sizeof(sta->ip)];
        const bool moved = change_address(sta, ip, old);
        if (!sta->name) STA_LOG("sta_name is null\n");
        const bool renamed = !sta->name || std::strcmp(sta->name, hostName) != 0;
        if (char *name = sta_strdup(hostName)) {
            sta_free(sta->name);
            sta->name = name;
        }
        sta->dhcp_update_time = static_cast<std::uint32_t>(time_us);
        sta->log_type = report_online;
        STA_LOG("dhcp update: mac %s, ip %s, hostname %s, time_us %lld.\n ", sta->mac, sta->ip, hostName,
                static_cast<long long>(time_us));
        if (sta_domain_socket_send(sta) == -1) STA_LOG("sta_domain_socket_send error!!!\n");
        if (moved) sta_learn_address(sta, sta->ip, station_origin::event);
        if (renamed && sta->name) sta_learn_name(sta, sta->name, station_origin::event);
        return;
    }
}
