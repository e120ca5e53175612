// The input is the DHCP monitor's client list as it is notified, a JSON text. Stations then take what it says of them.
#include "life.h"

#include "bus/events.h"
#include "inputs/dhcpmon_list.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    life here;
    sta_ubus_json_parse(std::string(as_text(data, size)).c_str());
    for (sta_info_t *sta : stations()) sta_sta_get_ip_hostname_by_dhcpmon_list(sta);
    sta_sta_display_dhcpmon_list();
    here.run_timers();
    return 0;
}
