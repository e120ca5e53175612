// The input is what others send to the daemon on the bus, one message a piece; the tag says what it is: one of the three
// events, the DHCP monitor's notification, or its two answers.
#include "life.h"

#include "bus/events.h"
#include "compat/dhcp_check.h"
#include "model/table.h"
#include "outputs/bus_link.h"
#include "pieces.h"

namespace {

void tell(unsigned kind, blob_attr *message) {
    ubus_event_handler handler{};
    ubus_request request{};
    request.priv = sta_sta_peek(life::online);
    switch (kind) {
    case 0: return sta_sta_ip_change_event_cb(sta_ubus_ctx, &handler, "ip_change", message);
    case 1: return sta_sta_dhcp_update_event_cb(sta_ubus_ctx, &handler, "dhcp_client_update", message);
    case 2: return sta_sta_dev_mode_change_event_cb(sta_ubus_ctx, &handler, "dev_mode", message);
    case 3: sta_ubus_dhcpdump_notify_cb(sta_ubus_ctx, &sta_ubus_object, nullptr, "", message); return;
    case 4: return selfchk_dhcpmon_data_get_cb(&request, UBUS_MSG_DATA, message);
    case 5: return selfchk_dhcpmon_data_del_cb(&request, UBUS_MSG_DATA, message);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    life here;
    pieces messages(data, size);
    for (piece one; messages.next(one);) {
        bus_message message(one.bytes);
        tell(one.tag % 6, message.head());
        here.take_reports();
    }
    here.run_timers();
    return 0;
}
