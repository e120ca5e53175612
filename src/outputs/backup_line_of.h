// backup_line_of.h - a station's line of the backup file, made of its record (protocol/backup_line.h).
//
// Foreign: white space in a field would split it or begin another line; it is written as "-" (SSID: "/").
// Logs:    level 7, in the name of sta_sta_users_backup_add.
#pragma once

#include "model/record.h"

#include <cstddef>

class sta_configuration;

inline constexpr std::size_t sta_backup_line_size = 1024; // more than all fields at their longest

extern "C" {
// Removes trailing spaces and replaces inner ones by "/", in place. Null and empty texts are left alone.
void sta_sta_ssid_escape(char *text);
}

// Writes the line, with its line feed and without a terminator. Returns its length. Before that a bridged station takes its
// address and name from the DHCP monitor list, spaces in the name become "-", and an empty name becomes "-": the record
// changes too (deliberate).
std::size_t sta_make_backup_line(sta_info_t *sta, sta_configuration &configuration,
                                 char (&line)[sta_backup_line_size]) noexcept;
