// backup_line.h - a station's line in "/tmp/sta_sta.info", which lets the table survive a restart of the daemon: fields
// in this order, separated by exactly one space, so that an empty field shows as two. Writer, reader and document expand
// the one list below.
//
// TEXT:    white space in a text would end the field or begin a line; each such character is written as `instead`.
// SHOWN_*: fields for people who look at the file; the daemon does not read them back.
#pragma once

#include <cstddef>
#include <cstdint>

// clang-format off
// MAC(field)   TEXT(field, instead)   NUMBER(type, field)   SHOWN_TEXT(field)   SHOWN_NUMBER(field)
#define BACKUP_FIELDS(MAC, TEXT, NUMBER, SHOWN_TEXT, SHOWN_NUMBER)                                        \
    TEXT(name, '-')                       /* "-" without one */                                           \
    MAC(mac)                                                                                              \
    TEXT(ip, '-')                                                                                         \
    NUMBER(long, online_ts)               /* wall clock of the association */                             \
    NUMBER(int, oltime)                   /* seconds */                                                   \
    NUMBER(int, flow_rateup)                                                                              \
    NUMBER(int, flow_ratedown)                                                                            \
    TEXT(ssid, '/')                       /* without its trailing spaces */                               \
    NUMBER(int, no_backup)                /* written as 0; a line with 1 is restored and never written */ \
    NUMBER(int, radio_id)                                                                                 \
    TEXT(power, '-')                                                                                      \
    NUMBER(int, channel)                  /* 11 when it is below 1 */                                     \
    SHOWN_TEXT(rate_up)                   /* flow_rateup / 1024 and "M" */                                \
    SHOWN_TEXT(rate_down)                 /* flow_ratedown / 1024 and "M" */                              \
    NUMBER(unsigned long long, wifi_up)   /* bytes */                                                     \
    NUMBER(unsigned long long, wifi_down) /* bytes */                                                     \
    SHOWN_NUMBER(bytes_up)                /* wifi_up / 5 */                                               \
    SHOWN_NUMBER(bytes_down)              /* wifi_down / 5 */                                             \
    TEXT(ifname, '-')                                                                                     \
    NUMBER(int, is_reassoc)                                                                               \
    NUMBER(int, vlanid)                                                                                   \
    NUMBER(int, roam_enable)                                                                              \
    NUMBER(int, repeater_type)                                                                            \
    SHOWN_TEXT(rate_max)                  /* maxRate and "M" */
// clang-format on

#define BACKUP_TEXT(field, instead) +1
#define BACKUP_NUMBER(type, field) +1
#define BACKUP_ONE(field) +1
inline constexpr std::size_t backup_field_count =
    0 BACKUP_FIELDS(BACKUP_ONE, BACKUP_TEXT, BACKUP_NUMBER, BACKUP_ONE, BACKUP_ONE);
#undef BACKUP_TEXT
#undef BACKUP_NUMBER
#undef BACKUP_ONE
