#include "core/log_settings.h"

#include "inputs/uci_shell.h"
#include "tools/log.h"
#include "tools/text.h"

#define LOG_FILE_DEFAULT "/tmp/sta.log"

sta_log_settings sta_log = {0, 0, 5, 1, 6, 65536, LOG_FILE_DEFAULT};

void sta_debug_cfg_read() {
    sta_log.log_console = sta_get_uci_int("uci -q get wsmd.main.debug", 0);
    sta_log.log_syslog = sta_get_uci_int("uci -q get wsmd.main.syslog", 0);
    sta_log.log_level = sta_get_uci_int("uci -q get wsmd.main.loglevel", 5);
    sta_log.log_file = sta_get_uci_int("uci -q get wsmd.main.log_file", 1);
    sta_log.log_file_level = sta_get_uci_int("uci -q get wsmd.main.log_file_level", 6);
    sta_log.log_file_size = sta_get_uci_int("uci -q get wsmd.main.log_file_size", 65536);
    sta_put_text(sta_log.log_file_name, LOG_FILE_DEFAULT); // the default again if the key was removed
    sta_get_uci_str("uci -q get wsmd.main.log_file_name", sta_log.log_file_name,
                    sizeof(sta_log.log_file_name));

    STA_LOG("log_console: %d", sta_log.log_console);
    STA_LOG("log_syslog: %d", sta_log.log_syslog);
    STA_LOG("log_level: %d", sta_log.log_level);
    STA_LOG("log_file: %d", sta_log.log_file);
    STA_LOG("log_file_level: %d", sta_log.log_file_level);
    STA_LOG("log_file_size: %d", sta_log.log_file_size);
    STA_LOG("log_file_name: %s", sta_log.log_file_name);
}
