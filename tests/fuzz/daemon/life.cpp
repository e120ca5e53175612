#include "life.h"

#include "life/pass.h"
#include "life/sweep.h"
#include "model/table.h"
#include "outputs/bus_link.h"
#include "support/driver_tables.h"
#include "support/places.h"
#include "tools/memory.h"
#include "tools/text.h"

#include <algorithm>
#include <sstream>

namespace {

ubus_context g_bus{};

void configure() {
    write_file("/etc/config/wifiinfo", "config wifiinfo 'global'\n\toption sdk 'mtk'\n");
    write_file("/etc/config/sysinfo", "config sysinfo\n\toption forwardMode 'AP'\n");
    write_file("/etc/config/wireless", "config wifi-iface\n\toption ifname 'ath0'\n\toption network 'lan'\n"
                                       "config wifi-iface\n\toption ifname 'ath1'\n\toption network 'guest'\n"
                                       "\toption vlanid '30'\n");
    write_file("/proc/tk_sys/sys_mac", "02:00:00:00:00:01\n");
}

void put_placed_station(const char *mac, std::uint16_t status, int radio, bool repeats) {
    sta_info_t *sta = put_station(mac, status);
    sta->radio_id = radio;
    sta->repeater_type = repeats ? 1 : 0;
    sta_put_text(sta->ifname, radio == 0 ? "ath0" : "ath1");
    sta_put_text(sta->ip, status == sta_status_online ? "0.0.0.0" : "");
    sta->name = sta_strdup("phone");
}

void list_stations() {
    driver_lists({{"ath0", {table_entry(life::online).basic8(125, -40).basic_text(16, "net")}},
                  {"ath1", {table_entry(life::added).basic8(125, -60).extended_text(64, "100%%")}}});
}

void expect_whole_lines() {
    std::istringstream lines(read_file("/tmp/sta_sta.info"));
    for (std::string line; std::getline(lines, line);)
        EXPECT_EQ(std::count(line.begin(), line.end(), ' '), 23) << testing::PrintToString(line);
}

} // namespace

// Before the engine starts threads: a process with threads could not enter the namespaces.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    GTEST_FLAG_SET(throw_on_failure, true); // nothing catches it
    enter_places();
    return 0;
}

life::life() {
    configure();
    list_stations();
    sta_ubus_ctx = &g_bus;
    put_placed_station(online, sta_status_online, 0, false);
    put_placed_station(added, sta_status_added, 1, false);
    put_placed_station(repeater, sta_status_online, 0, true);
}

life::~life() {
    take_reports();
    expect_whole_lines();
    std::int32_t on_line = 0;
    for (const sta_info_t *sta : stations()) on_line += sta->status == sta_status_online;
    EXPECT_EQ(g_sta_sta_master.online, on_line);
    uloop_timeout_cancel(&sta_restored_sweep_timer);
    sta_ubus_ctx = nullptr;
}

void life::run_timers() {
    sta_sta_flow_count_proc();
    for (int pass = 0; pass < 3; ++pass) sta_sta_single_log_up_proc();
    take_reports();
    sta_sta_log_up_proc();
    take_reports();
}

void life::take_reports() {
    for (const collected_report &one : listener.reports()) EXPECT_EQ(one.image.size(), 696U);
}

bus_message::bus_message(std::span<const std::uint8_t> content) : bytes(4 + content.size()) {
    const auto length = static_cast<std::uint32_t>(bytes.size()); // of the attribute, its header included
    for (std::size_t i = 0; i < 4; ++i) bytes[i] = static_cast<std::uint8_t>(length >> (24 - 8 * i));
    std::ranges::copy(content, bytes.begin() + 4);
}
