// address.h - keeping stations' addresses and names current: from the lease file, the snooping table and
// bus events.
//
// Keys:   mac, compared exactly.   Logs: level 7; refused arguments at level 3. None of these functions adds or removes
//         a station. Without memory the old name stays.
#pragma once

extern "C" {

// The lease file has changed: names first, then addresses. Both look only at online stations, and do nothing
// while there is none. Firewall rules are not changed and no bus event is sent (deliberate).
void sta_sta_update_name_by_dhcp(void);
void sta_sta_update_online_status_name(void); // repeaters keep theirs
void sta_sta_update_online_status_ip_by_dhcp(void);

// The same from the snooping table; moves the station's firewall rules to the new address. The daemon itself does
// not call it; it is part of the exported interface.
void sta_sta_update_online_status_ip(void);

// An address change was announced: every online station with this MAC takes `changed_ip`, unless the lease
// file has another address for it. Refused: a `mac` below 17 characters, addresses below 7. `before_ip` is only checked and
// logged.
void sta_sta_update_ip_by_ip_change_event(const char *mac, const char *before_ip, const char *changed_ip);

// A DHCP update was announced: the first station with this MAC, whatever its status, takes address and name
// and is reported. Refused: as above, a missing `hostName`, and one above 128 characters. An empty one is
// accepted.
void sta_sta_update_ip_by_dhcp_update_event(const char *mac, const char *ip, const char *hostName);
}
