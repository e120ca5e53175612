#include "wlan/tables.h"

#include "inputs/network.h"
#include "model/figures.h"
#include "model/table.h"
#include "protocol/driver_request.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/spread.h"
#include "tools/text.h"
#include "wlan/driver_call.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

namespace {

constexpr std::size_t driver_text_limit = 30; // of the table's texts; an event's have 31

constexpr std::uint64_t table_size(unsigned mask, std::uint64_t count) {
    const std::uint64_t entry =
        ((mask & table_basic) ? table_basic_size : 0) + ((mask & table_extended) ? table_extended_size : 0);
    return table_header_size + count * entry;
}
static_assert(table_size(3, 2) == 784 && table_size(1, 2) == 336);

// Believed whatever the device's limit: four networks with as many association numbers as a network has.
constexpr std::int32_t always_believed = 8192;

// A driver that counts more stations than possible is wrong, and would make us ask for gigabytes.
bool is_believable(const char *ifname, std::int32_t count) {
    static char said[sizeof(sta_info_t::ifname)] = ""; // the first interface that is wrong
    const std::int32_t most = std::max(sta_max_num, always_believed);
    if (count <= most) {
        if (std::strcmp(said, ifname) == 0) said[0] = '\0';
        return true;
    }
    if (said[0] == '\0') {
        sta_put_text(said, ifname);
        STA_NOTICE("the driver counts %d stations on %s, more than %d: its table is not read\n", count,
                   ifname, most);
    }
    return false;
}

constexpr std::size_t mac_size = 6;

constexpr unsigned mac_digits = 2 * mac_size;

// The MAC of entry `index` of a table, as a number.
std::uint64_t mac_of_entry(const std::uint8_t *table, std::size_t index) {
    std::uint64_t word = 0; // and two bytes behind it, which belong to the entry
    static_assert(basic_mac_offset + sizeof(word) <= table_basic_size);
    std::memcpy(&word, table + table_header_size + index * table_basic_size + basic_mac_offset, sizeof(word));
    return be64_to_cpu(word) >> (8 * (sizeof(word) - mac_size));
}

// The beginning of a MAC, from its lower-case colon text, for comparing with the MACs of a table.
class mac_prefix {
public:
    explicit mac_prefix(const char (&text)[sizeof(sta_info_t::mac)]) {
        if (take_whole(text)) return;
        take_beginning(text);
    }

    // False for a text that cannot begin a MAC, and for an empty text, which would match the first entry.
    bool is_one() const { return mask_ != 0; }

    bool begins(std::uint64_t mac) const { return (mac & mask_) == mac_; }

    // Whether it is a whole MAC, and which.
    bool is_whole() const { return mask_ == whole; }
    std::uint64_t mac() const { return mac_; }

private:
    static constexpr std::uint64_t whole = (std::uint64_t{1} << 8 * mac_size) - 1;

    // More than 15 for a character that is not a digit.
    static unsigned value_of(char c) {
        const unsigned digit = static_cast<unsigned char>(c) - unsigned{'0'};
        const unsigned letter = static_cast<unsigned char>(c) - unsigned{'a'};
        return digit < 10 ? digit : letter < 6 ? letter + 10 : 16;
    }

    // What nearly every text is.
    bool take_whole(const char *text) {
        std::uint64_t mac = 0;
        unsigned wrong = 0;
        for (std::size_t i = 0; i < mac_size; ++i, text += 3) {
            const unsigned high = value_of(text[0]), low = value_of(text[1]);
            wrong |= ((high | low) & 16) | static_cast<unsigned>(text[2] ^ (i + 1 < mac_size ? ':' : '\0'));
            mac = mac << 8 | high << 4 | low;
        }
        if (wrong != 0) return false;
        mac_ = mac;
        mask_ = whole;
        return true;
    }
    void take_beginning(const char *text) {
        std::uint64_t mac = 0;
        unsigned digits = 0;
        for (; *text != '\0'; ++text) {
            const unsigned digit = value_of(*text);
            if (digit > 0xf || digits == mac_digits) return;
            mac = mac << 4 | digit;
            if (++digits % 2 == 0 && digits < mac_digits && text[1] != '\0' && *++text != ':') return;
        }
        const unsigned missing = 4 * (mac_digits - digits);
        mac_ = mac << missing;
        mask_ = whole >> missing << missing;
    }

    std::uint64_t mac_ = 0;
    std::uint64_t mask_ = 0;
};

// Where the search for a MAC begins among 2^n places, of which `last` is the last.
std::size_t home_of(std::uint64_t mac, std::size_t last) { return sta_spread(mac) & last; }

// The first of the entries whose MAC begins so, or as many as there are. `mac_of` gives the MAC of an entry.
template <class MacOf> std::size_t first_entry(const mac_prefix &prefix, std::size_t entries, MacOf mac_of) {
    std::size_t index = 0;
    while (index < entries && !prefix.begins(mac_of(index))) ++index;
    return index;
}

#define FIGURE(type, field, off) type field;
#define NO_TEXT(field, off, len)
// The figures of a basic entry: its texts are known from the station's event.
struct basic_figures {
    DRIVER_BASIC_FIELDS(FIGURE, NO_TEXT)
};
#undef FIGURE

void copy_basic(sta_info_t *sta, const std::uint8_t *entry) {
#define FIGURE(type, field, off) wire::get<type>(entry + (off)),
    const basic_figures from{DRIVER_BASIC_FIELDS(FIGURE, NO_TEXT)};
#undef FIGURE
    sta->time_delay = from.tx_time / 1000;
    sta->floornoise = from.floornoise;
    sta->utilization = from.utilization; // Deliberate: unscaled, unlike the event's
    sta->flow_rateup = static_cast<std::int32_t>(from.rx_rate * 1024U);
    sta->flow_ratedown = static_cast<std::int32_t>(from.tx_rate * 1024U);
    sta->wifi_up = from.rx_bytes;
    sta->wifi_down = from.tx_bytes;
    sta_take_place(sta, from);
    sta->rssi = from.rssi; // Deliberate: not clamped, unlike the event's
}

#define NO_NUMBER(type, field, off)
#define OFFSET(field, off, len) off,
constexpr std::size_t text_offsets[] = {DRIVER_EXTENDED_FIELDS(NO_NUMBER, OFFSET)};
#undef OFFSET
#define SAME_PLACE(field, off, len)                                                                          \
    static_assert((off)-text_offsets[0] ==                                                                   \
                      offsetof(sta_info_t, field) - offsetof(sta_info_t, ap_auth_req) &&                     \
                  (len) == sizeof(sta_info_t::field));
DRIVER_EXTENDED_FIELDS(NO_NUMBER, SAME_PLACE)
#undef SAME_PLACE

// True if taking the entry's texts would change nothing, as it is for as long as a station stays: the record has the same bytes, none
// begins a conversion, and none is behind the limit.
bool has_texts(const sta_info_t *sta, const std::uint8_t *entry) {
    const char *kept = reinterpret_cast<const char *>(sta) + offsetof(sta_info_t, ap_auth_req);
    constexpr std::size_t size = std::size(text_offsets) * sizeof(sta_info_t::ap_auth_req);
#define IS_CUT(field, off, len) &&sta->field[driver_text_limit] == '\0'
    return std::memcmp(kept, entry + text_offsets[0], size) == 0 &&
           !std::memchr(kept, '%', size) DRIVER_EXTENDED_FIELDS(NO_NUMBER, IS_CUT);
#undef IS_CUT
}

// An extended entry's fields are all the record's.
void copy_extended(sta_info_t *sta, const std::uint8_t *entry) {
#define TAKE_NUMBER(type, field, off) sta->field = wire::get<type>(entry + (off));
    DRIVER_EXTENDED_FIELDS(TAKE_NUMBER, NO_TEXT)
#undef TAKE_NUMBER
    if (has_texts(sta, entry)) return;
#define TAKE_TEXT(field, off, len)                                                                           \
    sta_put_expanded(sta->field, {text + (off), strnlen(text + (off), len)}, driver_text_limit);
    const char *text = reinterpret_cast<const char *>(entry);
    DRIVER_EXTENDED_FIELDS(NO_NUMBER, TAKE_TEXT)
#undef TAKE_TEXT
}
#undef NO_NUMBER
#undef NO_TEXT

// sta_sta_get_ioctl; `find` gives the entry of a MAC, or as many as there are.
template <class Find>
int read_station(sta_info_t *sta, sta_configuration &configuration, const std::uint8_t *table, unsigned mask,
                 int count, Find find) {
    constexpr const char *function = STA_NAME_OF(sta_sta_get_ioctl);
    if (!sta || !table) {
        STA_LOG_AS(function, "param is null!!\n");
        return 1;
    }
    const auto filled = static_cast<int>(wire::get<std::uint32_t>(table + table_num_offset));
    if (filled != count) STA_LOG_AS(function, "pMactab->Num:%d != sta_num:%d\n", filled, count);

    const mac_prefix prefix{sta->mac};
    if (!prefix.is_one()) return 1;
    const std::uint8_t *basic = table + table_header_size;
    const auto entries = static_cast<std::size_t>(count > 0 ? count : 0);
    const std::size_t index = find(prefix, entries);
    if (index == entries) return 1;

    copy_basic(sta, basic + index * table_basic_size);
    if (mask & table_extended)
        copy_extended(sta, basic + entries * table_basic_size + index * table_extended_size);
    sta_take_vlanid(sta, configuration);
    sta_take_power(sta, sta->rssi);
    STA_LOG_AS(function, "wifi_up = %llu flow_rateup = %ld channel = %d sta_power = %s txtime = %d\n",
               static_cast<unsigned long long>(sta->wifi_up), static_cast<long>(sta->flow_rateup),
               sta->channel, sta->power, sta->time_delay);
    return 0;
}

} // namespace

int sta_get_ioctl_stainfo(const sta_info_t *sta, std::uint8_t **table, const char *ifname, unsigned mask) {
    if (table) *table = nullptr;
    if (!sta || !table || !ifname) {
        STA_LOG("param is null\n");
        return 0;
    }
    // One byte more than the driver is told: its answer may fill the whole buffer.
    void *buffer = sta_malloc(driver_count_size + 1);
    if (!buffer || sta_driver_call(buffer, driver_count_size, ifname, driver_station_count) != 0) {
        STA_LOG("ifname:%s get sta num fail \n", ifname);
        sta_free(buffer);
        return 0;
    }
    const int count = sta_number(static_cast<const char *>(buffer));
    if (count <= 0) {
        STA_LOG("get_sta_num=%d is invalid \n", count);
        sta_free(buffer);
        return count;
    }
    const auto size = static_cast<std::size_t>(table_size(mask, static_cast<std::uint64_t>(count)));
    void *grown = is_believable(ifname, count) && size <= INT_MAX ? sta_realloc(buffer, size)
                                                                  : nullptr; // still the one counted block
    bool fetched = false;
    if (grown) {
        buffer = grown;
        auto *bytes = static_cast<std::uint8_t *>(buffer);
        std::memset(bytes, 0, size);
        wire::put(bytes + table_num_offset, static_cast<std::uint32_t>(count));
        wire::put(bytes + table_mask_offset, static_cast<std::uint32_t>(mask));
        fetched = sta_driver_call(buffer, static_cast<int>(size), ifname, driver_station_table) == 0;
    }
    if (!fetched) {
        STA_LOG("%s was ext ioctl get msg fail\n", ifname);
        sta_free(buffer);
        return count;
    }
    *table = static_cast<std::uint8_t *>(buffer);
    return count;
}

bool sta_driver_list(const char *ifname, unsigned mask, std::uint8_t **table,
                     std::uint32_t *entries) noexcept {
    *table = nullptr;
    *entries = 0;
    char answer[driver_count_size + 1] = "";
    if (sta_driver_call(answer, driver_count_size, ifname, driver_station_count) != 0) return false;
    if (answer[0] < '0' || answer[0] > '9') return false; // not a count
    const std::int32_t count = sta_number(answer);
    if (count == 0) return true;
    if (!is_believable(ifname, count)) return false;
    const std::uint64_t size = table_size(mask, static_cast<std::uint64_t>(count));
    if (size > INT_MAX) return false;
    auto *bytes = static_cast<std::uint8_t *>(sta_malloc(static_cast<std::uint32_t>(size)));
    if (!bytes) return false;
    wire::put(bytes + table_num_offset, static_cast<std::uint32_t>(count));
    wire::put(bytes + table_mask_offset, static_cast<std::uint32_t>(mask));
    if (sta_driver_call(bytes, static_cast<int>(size), ifname, driver_station_table) != 0) {
        sta_free(bytes);
        return false;
    }
    *table = bytes;
    *entries =
        std::min(wire::get<std::uint32_t>(bytes + table_num_offset), static_cast<std::uint32_t>(count));
    wire::put(bytes + table_num_offset,
              static_cast<std::uint32_t>(count)); // the extended entries begin after `count` basic ones
    return true;
}

int sta_sta_get_ioctl(sta_info_t *sta, const std::uint8_t *table, unsigned mask, int count) {
    sta_configuration configuration;
    return read_station(sta, configuration, table, mask, count,
                        [=](const mac_prefix &prefix, std::size_t entries) {
                            return first_entry(prefix, entries,
                                               [=](std::size_t index) { return mac_of_entry(table, index); });
                        });
}

sta_radio_tables::~sta_radio_tables() {
    for (const slot &one : slots) sta_free(one.table);
}

bool sta_radio_tables::fetch_for(const sta_info_t *sta) noexcept {
    if (!has_radio(sta) || slots[sta->radio_id].tried) return false;
    slot &mine = slots[sta->radio_id];
    mine.tried = true;
    mine.count = sta_get_ioctl_stainfo(sta, &mine.table, sta->ifname, mask);
    if (mine.table)
        mine.entries = std::min(wire::get<std::uint32_t>(mine.table + table_num_offset),
                                static_cast<std::uint32_t>(mine.count));
    return true;
}

void sta_radio_tables::slot::index() noexcept {
    indexed = true;
    const auto all = static_cast<std::size_t>(count);
    std::size_t room = 16;
    while (room < 4 * all) room *= 2;
    if (!macs.reserve(all) || !homes.assign(room, 0)) return;
    for (std::size_t i = 0; i < all; ++i) {
        const std::uint64_t mac = mac_of_entry(table, i);
        macs.push(mac);
        std::size_t home = home_of(mac, room - 1);
        while (homes[home] != 0 && macs[homes[home] - 1] != mac) home = (home + 1) & (room - 1);
        if (homes[home] == 0) homes[home] = static_cast<std::uint32_t>(i + 1); // else an earlier one has it
    }
}

int sta_radio_tables::update(sta_info_t *sta) noexcept {
    if (!has_radio(sta)) return 1;
    slot &mine = slots[sta->radio_id];
    if (mine.table && !mine.indexed) mine.index();
    if (mine.macs.size() == 0) return sta_sta_get_ioctl(sta, mine.table, mask, mine.count);
    return read_station(
        sta, configuration, mine.table, mask, mine.count, [&](const mac_prefix &prefix, std::size_t entries) {
            if (!prefix.is_whole())
                return first_entry(prefix, entries, [&](std::size_t index) { return mine.macs[index]; });
            const std::size_t last = mine.homes.size() - 1;
            std::size_t home = home_of(prefix.mac(), last);
            while (mine.homes[home] != 0 && mine.macs[mine.homes[home] - 1] != prefix.mac())
                home = (home + 1) & last;
            return mine.homes[home] != 0 ? mine.homes[home] - 1 : entries;
        });
}
