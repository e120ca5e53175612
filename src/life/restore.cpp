#include "life/restore.h"

#include "life/members.h"
#include "life/sweep.h"
#include "model/table.h"
#include "outputs/backup.h"
#include "tools/command.h"
#include "tools/file.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <algorithm>
#include <cctype>
#include <limits>

namespace {

constexpr const char *backup_file = "/tmp/sta_sta.info";
constexpr const char *copy_file = "/tmp/sta_tmp.info";
constexpr std::size_t line_size = 250;

// One line's fields as they are read, before they go into fields of other widths.
struct backup_fields {
    char name[line_size] = "";
    char mac[17] = {}; // no terminator: exactly the 17 characters
    char ip[line_size] = "";
    long online_ts = 0;
    int oltime = 0, flow_rateup = 0, flow_ratedown = 0;
    char ssid[line_size] = "";
    int no_backup = 0, radio_id = 0;
    char power[line_size] = "";
    int channel = 0;
    unsigned long long wifi_up = 0, wifi_down = 0;
    char ifname[line_size] = "";
    int is_reassoc = 0, vlanid = 0, roam_enable = 0, repeater_type = 0;
};

bool has_colons(const char *mac) {
    return mac[2] == ':' && mac[5] == ':' && mac[8] == ':' && mac[11] == ':' && mac[14] == ':';
}

template <class Int> bool read_number(std::string_view text, Int &value) {
    char *end = nullptr;
    if (text.empty() || text.front() == ' ') return false;
    errno = 0;
    if constexpr (std::is_unsigned_v<Int>) {
        value = static_cast<Int>(std::strtoull(text.data(), &end, 10));
    } else {
        const long long number = std::strtoll(text.data(), &end, 10);
        if (number < std::numeric_limits<Int>::min() || number > std::numeric_limits<Int>::max())
            return false;
        value = static_cast<Int>(number);
    }
    return errno == 0 && end == text.data() + text.size();
}

// A line as the daemon writes it: 24 fields parted by exactly one blank, so that an empty text shows as two
// blanks. False when it is not one; the fields are then half filled.
bool read_whole_line(const char *line, backup_fields &fields) {
    constexpr std::size_t field_count = 24;
    std::string_view part[field_count];
    std::size_t count = 0;
    const std::string_view whole{line, std::strcspn(line, "\n")};
    for (std::size_t begin = 0;;) {
        const std::size_t end = std::min(whole.find(' ', begin), whole.size());
        if (count == field_count) return false;
        part[count++] = {whole.data() + begin, end - begin}; // substr would need the C++ runtime library
        if (end == whole.size()) break;
        begin = end + 1;
    }
    if (count != field_count || part[1].size() != sizeof(fields.mac) || !has_colons(part[1].data()))
        return false;
    const auto text = [&](std::size_t number, char(&field)[line_size]) {
        std::memcpy(field, part[number - 1].data(), part[number - 1].size());
        field[part[number - 1].size()] = '\0';
    };
    text(1, fields.name);
    std::memcpy(fields.mac, part[1].data(), sizeof(fields.mac));
    text(3, fields.ip);
    text(8, fields.ssid);
    text(11, fields.power);
    text(19, fields.ifname);
    return read_number(part[3], fields.online_ts) && read_number(part[4], fields.oltime) &&
           read_number(part[5], fields.flow_rateup) && read_number(part[6], fields.flow_ratedown) &&
           read_number(part[8], fields.no_backup) && read_number(part[9], fields.radio_id) &&
           read_number(part[11], fields.channel) && read_number(part[14], fields.wifi_up) &&
           read_number(part[15], fields.wifi_down) && read_number(part[19], fields.is_reassoc) &&
           read_number(part[20], fields.vlanid) && read_number(part[21], fields.roam_enable) &&
           read_number(part[22], fields.repeater_type);
}

// Any other line: fields parted by any white space, up to the first one that does not fit. Every text has
// room for the whole line.
void scan_line(const char *line, backup_fields &fields) {
    char *mac = fields.mac;
    char skipped[line_size];
    unsigned long long skipped_number = 0;
    // NOLINTBEGIN(cert-err34-c): what does not fit stays zero, as documented
    (void)std::sscanf(line,
                      "%s %c%c:%c%c:%c%c:%c%c:%c%c:%c%c %s %ld %d %d %d %s %d %d %s %d %s %s %llu %llu %llu "
                      "%llu %s %d %d %d %d",
                      fields.name, mac + 0, mac + 1, mac + 3, mac + 4, mac + 6, mac + 7, mac + 9, mac + 10,
                      mac + 12, mac + 13, mac + 15, mac + 16, fields.ip, &fields.online_ts, &fields.oltime,
                      &fields.flow_rateup, &fields.flow_ratedown, fields.ssid, &fields.no_backup,
                      &fields.radio_id, fields.power, &fields.channel, skipped, skipped, &fields.wifi_up,
                      &fields.wifi_down, &skipped_number, &skipped_number, fields.ifname, &fields.is_reassoc,
                      &fields.vlanid, &fields.roam_enable, &fields.repeater_type);
    // NOLINTEND(cert-err34-c)
    for (const int colon : {2, 5, 8, 11, 14}) mac[colon] = ':';
}

void fill_record(sta_info_t *sta, const backup_fields &fields) {
    if (fields.mac[0] != '\0') {
        char mac[sizeof(sta->mac)] = "";
        std::memcpy(mac, fields.mac, sizeof(fields.mac)); // a match that broke off ends the text there
        // As the station's line will hold it: its removal searches for this text.
        std::ranges::replace_if(
            mac, [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; }, '-');
        sta_put_text(sta->mac, mac);
    }
    sta_put_text(sta->ip, fields.ip);
    sta_put_text(sta->ssid, fields.ssid);
    sta_put_text(sta->power, fields.power, 7);
    sta_put_text(sta->ifname, fields.ifname);
    sta->online_ts.sec = static_cast<std::int32_t>(fields.online_ts);
    sta->oltime = fields.oltime;
    sta->flow_rateup = fields.flow_rateup;
    sta->flow_ratedown = fields.flow_ratedown;
    sta->no_backup = fields.no_backup == 1 ? 1 : 0;
    sta->radio_id = fields.radio_id;
    sta->channel = fields.channel;
    sta->wifi_up = fields.wifi_up;
    sta->wifi_down = fields.wifi_down;
    sta->is_reassoc = static_cast<std::int8_t>(fields.is_reassoc);
    sta->vlanid = fields.vlanid;
    sta->roam_enable = static_cast<std::uint8_t>(fields.roam_enable);
    sta->repeater_type = static_cast<std::int8_t>(fields.repeater_type);
}

// Reads one line, at most 249 characters of it; the rest of a longer one, or of one with a NUL, must not become a
// station of its own.
bool read_line(std::FILE *file, char (&line)[line_size]) {
    std::size_t length = 0;
    for (int c; (c = std::getc(file)) != EOF;) {
        if (length < sizeof(line) - 1) line[length++] = static_cast<char>(c);
        if (c == '\n') break;
    }
    line[length] = '\0';
    return length > 0;
}

} // namespace

void sta_restore_parse(const char *line, sta_info_t *sta, char (&name)[32]) noexcept {
    backup_fields fields;
    if (!read_whole_line(line, fields)) {
        fields = {};
        scan_line(line, fields);
    }
    sta_put_text(name, fields.name);
    fill_record(sta, fields);
}

int sta_sta_init() {
    list_init(&g_sta_sta_master.list);
    for (std::int32_t &count : g_sta_sta_master.device_count) count = 0;
    g_sta_sta_master.online = 0;
    sta_sta_load_users();
    sta_sta_load_devc();
    return 0;
}

void sta_sta_load_users() {
    if (access(backup_file, F_OK) != 0) {
        STA_LOG("sta user info is null.\n");
        return;
    }
    sta_execute("cp /tmp/sta_sta.info /tmp/sta_tmp.info");
    sta_execute("cat /dev/null > /tmp/sta_sta.info");
    const sta_file file{std::fopen(copy_file, "re")};
    if (!file) return;
    const std::int32_t uptime = sta_uptime_seconds();
    char line[line_size];
    while (read_line(file.get(), line)) {
        // Not sta_sta_new: a restored record's clock stays at zero.
        auto *sta = static_cast<sta_info_t *>(sta_malloc(sizeof(sta_info_t)));
        if (!sta) return;
        STA_LOG("load_users:\n%s\n", line);
        char name[32] = "";
        sta_restore_parse(line, sta, name);
        sta->status = sta_status_added;
        sta->name = sta_strdup(name);
        sta->restored = 1;
        sta->load_uptime = uptime;
        sta_sta_add_usr(sta);
    }
    sta_sta_restored_sweep_arm(&sta_restored_sweep_timer);
    (void)std::remove(copy_file);
}
