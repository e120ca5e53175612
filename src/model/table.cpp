#include "model/table.h"

#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <sys/sysinfo.h>

struct sta_sta_master g_sta_sta_master = {LIST_HEAD_INIT(g_sta_sta_master.list), 0, {}};
std::int32_t sta_max_num = 0;
pthread_mutex_t g_sta_server_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

// Whole words, inline: the search of the table is a third of an event's cost.
bool same_field(const char (&a)[20], const char (&b)[20]) {
    std::uint64_t words[4];
    std::uint32_t last[2];
    std::memcpy(words, a, 16);
    std::memcpy(words + 2, b, 16);
    std::memcpy(last, a + 16, 4);
    std::memcpy(last + 1, b + 16, 4);
    return ((words[0] ^ words[2]) | (words[1] ^ words[3]) | (last[0] ^ last[1])) == 0;
}

void put_repeater_name(const sta_info_t *sta, char *name) {
    const bool whole = strnlen(sta->mac, sizeof(sta->mac)) >= 17;
    const char *mac = whole ? sta->mac : "00:00:00:00:00:00"; // a restored MAC can be short
    std::snprintf(name, sta_name_size, "wireless_repeater_%c%c%c%c", mac[12], mac[13], mac[15], mac[16]);
}

} // namespace

void list_init(struct list_head *head) { INIT_LIST_HEAD(head); }

sta_info_t *sta_sta_peek(const char *mac) noexcept {
    // Whole fields are compared, not characters: behind its text every record's field is zero.
    char wanted[sizeof(sta_info_t::mac)];
    if (!mac || std::strlen(mac) >= sizeof(wanted)) return nullptr;
    sta_put_text(wanted, mac);
    sta_info_t *sta = nullptr;
    list_for_each_entry (sta, &g_sta_sta_master.list, list) {
        if (same_field(sta->mac, wanted)) return sta;
    }
    return nullptr;
}

sta_info_t *sta_sta_find_usr(const char *mac) {
    sta_info_t *sta = sta_sta_peek(mac);
    if (sta) STA_LOG("find user, status=%d, ip=%s, mac=%s.\n", sta->status, sta->ip, sta->mac);
    return sta;
}

std::int32_t sta_monotonic_seconds() noexcept {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::int32_t>(now.tv_sec);
}

std::int32_t sta_uptime_seconds() noexcept {
    struct sysinfo system {};
    sysinfo(&system);
    return static_cast<std::int32_t>(system.uptime);
}

void sta_take_name(sta_info_t *sta, const char *host_name) noexcept {
    auto *name = static_cast<char *>(sta_malloc(sta_name_size));
    if (!name) return;
    sta_free(sta->name);
    sta->name = name;
    if (sta->repeater_type == 1)
        put_repeater_name(sta, name);
    else
        std::snprintf(name, sta_name_size, "%s", host_name);
}
