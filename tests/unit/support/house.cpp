#include "support/house.h"

#include "core/init.h"
#include "core/log_settings.h"
#include "inputs/dhcpmon_list.h"
#include "inputs/network.h"
#include "life/listen.h"
#include "life/neighbours.h"
#include "life/resync.h"
#include "life/timers.h"
#include "model/departures.h"
#include "model/identity.h"
#include "model/members.h"
#include "model/table.h"
#include "outputs/bus_link.h"
#include "support/places.h"
#include "tools/health.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "wlan/channel.h"

namespace {

void free_everything() {
    for (sta_info_t *sta : stations()) {
        sta_members_unlink(sta);
        sta_sta_free(sta);
    }
    sta_sta_empty_dhcpmon_list();
}

void set_globals() {
    INIT_LIST_HEAD(&g_sta_sta_master.list);
    g_sta_sta_master.online = 0;
    for (std::int32_t &count : g_sta_sta_master.device_count) count = 0;
    INIT_LIST_HEAD(&dhcpmon_list);
    mem_total_cnt = 0;
    sta_departures_forget();
    sta_identity_forget_all();
    sta_resync_forget();
    sta_health = {};
    sta_max_num = 512;
    std::snprintf(g_path, sizeof(g_path), "/etc/config/wireless");
    sta_mode = 1;
    g_main_id = 0;
    sta_log_update_period = 60;
    sta_log = {0, 0, 5, 1, 6, 65536, "/tmp/sta.log"};
    sta_nl = {-1, -1, 0};
    sta_netlink_watcher = {};
    sta_flow_count_timeout = {};
    sta_log_up_timeout = {};
    sta_single_log_up_timeout = {};
}

} // namespace

House::House() {
    empty_places();
    forget_calls();
    set_search_path();
    set_globals();
    forget_log();
    forget_driver();
    fail_allocation(0);
    uloop_init();
}

House::~House() {
    fail_allocation(0);
    EXPECT_EQ(unowned_blocks(), 0) << "blocks of the counting allocator, beyond those that the lists own";
    free_everything();
    stop_bus();
    sta_neighbours_forget();
    uloop_done();
    if (sta_nl.socket > 2) close(sta_nl.socket);
}

int unowned_blocks() {
    int owned = 0;
    for (const sta_info_t *sta : stations()) owned += sta->name ? 2 : 1;
    list_head *entry = nullptr;
    list_for_each (entry, &dhcpmon_list) ++owned;
    return static_cast<int>(mem_total_cnt) - owned;
}

std::vector<sta_info_t *> stations() {
    std::vector<sta_info_t *> found;
    sta_info_t *sta = nullptr;
    list_for_each_entry (sta, &g_sta_sta_master.list, list) found.push_back(sta);
    return found;
}

sta_info_t *put_station(const char *mac, std::uint16_t status) {
    sta_info_t *sta = sta_sta_new(mac, "net");
    sta->status = status;
    if (status == sta_status_online) ++g_sta_sta_master.online;
    sta_members_link(sta);
    return sta;
}
