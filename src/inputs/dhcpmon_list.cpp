#include "inputs/dhcpmon_list.h"

#include "model/table.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"

struct list_head dhcpmon_list = LIST_HEAD_INIT(dhcpmon_list);

int sta_sta_dhcpmon_list_init() {
    list_init(&dhcpmon_list);
    return 0;
}

void sta_sta_empty_dhcpmon_list() {
    if (list_empty(&dhcpmon_list)) {
        STA_LOG("dhcpmon_list is empty\n");
        return;
    }
    dhcpmon_entry *entry = nullptr;
    dhcpmon_entry *next = nullptr;
    list_for_each_entry_safe (entry, next, &dhcpmon_list, list) {
        list_del_init(&entry->list);
        sta_free(entry);
    }
    STA_LOG("To empty the dhcpmon_list\n");
}

int sta_sta_get_dhcpmon_list_by_ubus(const char *ip, const char *hostName, const char *mac) {
    auto *entry = static_cast<dhcpmon_entry *>(sta_malloc(sizeof(dhcpmon_entry)));
    if (!entry) return -1;
    sta_put_text(entry->ip, ip);
    sta_put_text(entry->mac, mac);
    sta_put_text(entry->hostName, hostName);
    list_add_tail(&entry->list, &dhcpmon_list);
    STA_LOG("ip=%s, mac=%s, hostName=%s\n", entry->ip, entry->mac, entry->hostName);
    return 0;
}

void sta_sta_display_dhcpmon_list() {
    dhcpmon_entry *entry = nullptr;
    list_for_each_entry (entry, &dhcpmon_list, list) {
        STA_LOG("ip=%s, mac=%s, hostName=%s\n", entry->ip, entry->mac, entry->hostName);
    }
}

void sta_sta_get_ip_hostname_by_dhcpmon_list(sta_info_t *sta) {
    if (!sta) return;
    if (list_empty(&dhcpmon_list)) {
        STA_LOG("dhcpmon_list is empty!\n");
        return;
    }
    STA_LOG("runing: ip=%s, mac=%s, hostName=%s\n", sta->ip, sta->mac, sta_or_null(sta->name));
    dhcpmon_entry *entry = nullptr;
    list_for_each_entry (entry, &dhcpmon_list, list) {
        if (std::strcmp(sta->ip, sta_no_address) != 0 || std::strcmp(entry->mac, sta->mac) != 0) continue;
        sta_put_text(sta->ip, entry->ip);
        sta_take_name(sta, entry->hostName);
        STA_LOG("ip=%s, mac=%s, hostName=%s\n", sta->ip, sta->mac, sta_or_null(sta->name));
    }
}
