#include "model/table.h"

#include "model/station_index.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <sys/sysinfo.h>

struct sta_sta_master g_sta_sta_master = {LIST_HEAD_INIT(g_sta_sta_master.list), 0, {}};
std::int32_t sta_max_num = 0;
pthread_mutex_t g_sta_server_mutex = PTHREAD_MUTEX_INITIALIZER;

namespace {

void put_repeater_name(const sta_info_t *sta, char *name) {
    const bool whole = strnlen(sta->mac, sizeof(sta->mac)) >= 17;
    const char *mac = whole ? sta->mac : "00:00:00:00:00:00"; // a restored MAC may be incomplete
    std::snprintf(name, sta_name_size, "wireless_repeater_%c%c%c%c", mac[12], mac[13], mac[15], mac[16]);
}

} // namespace

void list_init(struct list_head *head) { INIT_LIST_HEAD(head); }

sta_info_t *sta_sta_peek(const char *mac) noexcept {
    char wanted[sizeof(sta_info_t::mac)];
    if (!mac || std::strlen(mac) >= sizeof(wanted)) return nullptr;
    sta_put_text(wanted, mac);
    return sta_index_find(&g_sta_sta_master.list, wanted);
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
