#include "wlan/removal.h"

#include "protocol/driver_request.h"
#include "tools/log.h"
#include "tools/memory.h"
#include "wlan/driver_call.h"

void sta_sta_delete_sta_by_roam(const sta_info_t *sta) {
    if (!sta) return;
    auto *request = static_cast<std::uint8_t *>(sta_malloc(roam_delete_size));
    if (!request) {
        STA_LOG("malloc failed !!!");
        return;
    }
    wire::put(request + roam_delete_radio_offset, sta->radio_id);
    std::memcpy(request, sta->mac, strnlen(sta->mac, roam_delete_mac_size));
    STA_LOG("msg:mac = %s, radio = %d", sta->mac, sta->radio_id);
    if (sta_driver_call(request, roam_delete_size, sta->ifname, driver_roam_delete) != 0)
        STA_LOG("%s was ext ioctl get msg fail\n", sta->ifname);
    sta_free(request);
}
