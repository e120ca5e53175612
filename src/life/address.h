// address.h - keeping stations' addresses and names current: from the lease file, the snooping table and
// bus events.
//
// Keys:   mac, compared exactly.   Logs: level 7; refused arguments at level 3. None of these adds or removes
//         a station. A lack of memory keeps the old name.
#pragma once

extern "C" {

// The lease file has changed: names first, then addresses. Both look only at stations on line, and do nothing
// while there is none. No firewall rule and no bus event comes of it (deliberate).
void sta_sta_update_name_by_dhcp(void);
void sta_sta_update_online_status_name(void); // repeaters keep theirs
void sta_sta_update_online_status_ip_by_dhcp(void);

// The same from the snooping table; moves the station's firewall rules to the new address. Nothing schedules
// it: it belongs to the module's interface.
void sta_sta_update_online_status_ip(void);

// An address change was announced: every station on line with this MAC takes `changed_ip`, unless the lease
// file knows better. Refused: a `mac` below 17 characters, addresses below 7. `before_ip` is only checked and
// logged.
void sta_sta_update_ip_by_ip_change_event(const char *mac, const char *before_ip, const char *changed_ip);

// A DHCP update was announced: the first station with this MAC, whatever its status, takes address and name
// and is reported. Refused as above, and a missing `hostName` or one above 128 characters; an empty one is a
// name.
void sta_sta_update_ip_by_dhcp_update_event(const char *mac, const char *ip, const char *hostName);
}
