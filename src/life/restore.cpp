#include "life/restore.h"

#include "life/members.h"
#include "life/sweep.h"
#include "model/identity.h"
#include "model/state.h"
#include "model/table.h"
#include "outputs/backup.h"
#include "outputs/backup_gap.h"
#include "protocol/backup_line.h"
#include "tools/command.h"
#include "tools/file.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <algorithm>
#include <cctype>
#include <limits>

namespace {

constexpr const char *backup_file = sta_backup_file;
constexpr const char *copy_file = "/tmp/sta_tmp.info";
constexpr std::size_t line_size = 250;

// One line's fields as read, before they are copied into the record's narrower fields.
struct backup_fields {
#define FIELD_MAC(field) char field[17] = {}; // no terminator: exactly the 17 characters
#define FIELD_TEXT(field, instead) char field[line_size] = "";
#define FIELD_NUMBER(type, field) type field = 0;
#define FIELD_SHOWN(field)
    BACKUP_FIELDS(FIELD_MAC, FIELD_TEXT, FIELD_NUMBER, FIELD_SHOWN, FIELD_SHOWN)
#undef FIELD_MAC
#undef FIELD_TEXT
#undef FIELD_NUMBER
#undef FIELD_SHOWN
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

// A line as the daemon writes it: its fields separated by exactly one space, so that an empty text shows as two.
// False when it is not such a line; some fields may be filled then.
bool read_whole_line(const char *line, backup_fields &fields) {
    std::string_view part[backup_field_count];
    std::size_t count = 0;
    const std::string_view whole{line, std::strcspn(line, "\n")};
    for (std::size_t begin = 0;;) {
        const std::size_t end = std::min(whole.find(' ', begin), whole.size());
        if (count == backup_field_count) return false;
        part[count++] = {whole.data() + begin, end - begin}; // substr would need the C++ runtime library
        if (end == whole.size()) break;
        begin = end + 1;
    }
    if (count != backup_field_count) return false;
    const auto read_mac = [](std::string_view text, char(&field)[17]) {
        if (text.size() != sizeof(field) || !has_colons(text.data())) return false;
        std::memcpy(field, text.data(), sizeof(field));
        return true;
    };
    const auto read_text = [](std::string_view text, char(&field)[line_size]) {
        std::memcpy(field, text.data(), text.size());
        field[text.size()] = '\0';
    };
    const std::string_view *next = part;
#define READ_MAC(field)                                                                                      \
    if (!read_mac(*next++, fields.field)) return false;
#define READ_TEXT(field, instead) read_text(*next++, fields.field);
#define READ_NUMBER(type, field)                                                                             \
    if (!read_number(*next++, fields.field)) return false;
#define READ_SHOWN(field) ++next;
    BACKUP_FIELDS(READ_MAC, READ_TEXT, READ_NUMBER, READ_SHOWN, READ_SHOWN)
#undef READ_MAC
#undef READ_TEXT
#undef READ_NUMBER
#undef READ_SHOWN
    return true;
}

// Any other line: fields separated by any white space, up to the first one that does not fit.
class line_scanner {
public:
    explicit line_scanner(const char *line) noexcept : at_(line) {}

    bool text(char (&field)[line_size]) noexcept {
        return advance(std::sscanf(at_, "%s%n", field, &used_), 1);
    }
    bool skip_text() noexcept {
        char skipped[line_size];
        return text(skipped);
    }
    bool mac(char (&field)[17]) noexcept {
        char *mac = field;
        const int read =
            std::sscanf(at_, " %c%c:%c%c:%c%c:%c%c:%c%c:%c%c%n", mac + 0, mac + 1, mac + 3, mac + 4, mac + 6,
                        mac + 7, mac + 9, mac + 10, mac + 12, mac + 13, mac + 15, mac + 16, &used_);
        return advance(read, 12);
    }
    // NOLINTBEGIN(cert-err34-c): what does not fit stays zero, as documented
    bool number(int &field) noexcept { return advance(std::sscanf(at_, "%d%n", &field, &used_), 1); }
    bool number(long &field) noexcept { return advance(std::sscanf(at_, "%ld%n", &field, &used_), 1); }
    bool number(unsigned long long &field) noexcept {
        return advance(std::sscanf(at_, "%llu%n", &field, &used_), 1);
    }
    // NOLINTEND(cert-err34-c)
    bool skip_number() noexcept {
        unsigned long long skipped = 0;
        return number(skipped);
    }

private:
    bool advance(int read, int wanted) noexcept {
        if (read != wanted) return false;
        at_ += used_;
        return true;
    }
    const char *at_;
    int used_ = 0;
};

void scan_line(const char *line, backup_fields &fields) {
    line_scanner from{line};
#define SCAN_MAC(field) &&from.mac(fields.field)
#define SCAN_TEXT(field, instead) &&from.text(fields.field)
#define SCAN_NUMBER(type, field) &&from.number(fields.field)
#define SCAN_SHOWN_TEXT(field) &&from.skip_text()
#define SCAN_SHOWN_NUMBER(field) &&from.skip_number()
    // clang-format off
    (void)(true BACKUP_FIELDS(SCAN_MAC, SCAN_TEXT, SCAN_NUMBER, SCAN_SHOWN_TEXT, SCAN_SHOWN_NUMBER));
    // clang-format on
#undef SCAN_MAC
#undef SCAN_TEXT
#undef SCAN_NUMBER
#undef SCAN_SHOWN_TEXT
#undef SCAN_SHOWN_NUMBER
    for (const int colon : {2, 5, 8, 11, 14}) fields.mac[colon] = ':';
}

void fill_record(sta_info_t *sta, const backup_fields &fields) {
    if (fields.mac[0] != '\0') {
        char mac[sizeof(sta->mac)] = "";
        std::memcpy(mac, fields.mac, sizeof(fields.mac)); // an incomplete MAC ends where reading stopped
        // As in the line that will be written for the station: removing that line searches for this text.
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

// Reads one line, at most 249 characters of it. The rest of a longer line, and what follows a NUL, is skipped, so
// that it does not become another station.
bool read_line(std::FILE *file, char (&line)[line_size]) {
    std::size_t length = 0;
    for (int c; (c = std::getc(file)) != EOF;) {
        if (length < sizeof(line) - 1) line[length++] = static_cast<char>(c);
        if (c == '\n') break;
    }
    line[length] = '\0';
    return length > 0;
}

// Whether the line only begins with a NUL: its station had left, and the daemon ended before the line went.
bool is_of_one_who_left(const char (&line)[line_size]) {
    return line[0] == '\0' && line[1] != '\0' && line[1] != '\n';
}

} // namespace

void sta_restore_parse(const char *line, sta_info_t *sta, char (&name)[sta_name_size]) noexcept {
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
    sta_state_begin();
    sta_sta_load_users();
    sta_sta_load_devc();
    return 0;
}

void sta_sta_load_users() {
    sta_backup_mend(backup_file, sta_backup_temporary_file);
    if (access(backup_file, F_OK) != 0) {
        STA_LOG("sta user info is null.\n");
        return;
    }
    sta_execute("cp %s %s", backup_file, copy_file);
    sta_execute("cat /dev/null > %s", backup_file);
    const sta_file file{std::fopen(copy_file, "re")};
    if (!file) return;
    const std::int32_t uptime = sta_uptime_seconds();
    char line[line_size];
    while (read_line(file.get(), line)) {
        if (is_of_one_who_left(line)) continue;
        // Not sta_sta_new: a restored record's clock stays at zero.
        auto *sta = static_cast<sta_info_t *>(sta_malloc(sizeof(sta_info_t)));
        if (!sta) return;
        STA_LOG("load_users:\n%s\n", line);
        char name[sta_name_size] = "";
        sta_restore_parse(line, sta, name);
        sta_state_move(sta, station_step::restored);
        sta->name = sta_strdup(name);
        sta->load_uptime = uptime;
        const sta_info_t *known = sta_members_admit(sta);
        if (!known) continue;
        sta_identity_add_address(known, known->ip, station_origin::restored);
        if (known->repeater_type != 1) sta_identity_add_name(known, known->name, station_origin::restored);
    }
    sta_sta_restored_sweep_arm(&sta_restored_sweep_timer);
    (void)std::remove(copy_file);
}
