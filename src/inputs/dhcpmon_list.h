// dhcpmon_list.h - the leases that the DHCP monitor service reported, and giving their addresses and names to stations.
//
// Owns:   dhcpmon_list and its entries (counting allocator). It is emptied and refilled whenever the service
//         answers.
// Logs:   level 7, every operation.
#pragma once

#include "model/record.h"

struct dhcpmon_entry {
    struct list_head list;
    char ip[17];
    char mac[20];
    char hostName[sta_name_size];
};

extern "C" {

extern struct list_head dhcpmon_list;

// Makes the list empty at start. Returns 0.
int sta_sta_dhcpmon_list_init(void);

// Unlinks and frees every entry.
void sta_sta_empty_dhcpmon_list(void);

// Appends one entry; texts are cut to their fields. Returns 0, or -1 without memory.
int sta_sta_get_dhcpmon_list_by_ubus(const char *ip, const char *hostName, const char *mac);

// Logs every entry.
void sta_sta_display_dhcpmon_list(void);

// Gives a station whose address is "0.0.0.0" the address and the name (a repeater: its repeater name) of the
// entry with its MAC. Stations with an address, and stations whose address is still empty, are left alone.
void sta_sta_get_ip_hostname_by_dhcpmon_list(sta_info_t *sta);
}
