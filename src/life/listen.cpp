#include "life/listen.h"

#include "life/driver_events.h"
#include "model/table.h"
#include "protocol/station_event.h"
#include "tools/log.h"
#include "wlan/channel.h"

struct uloop_fd sta_netlink_watcher = {};

int sta_netlink_init() {
    STA_LOG("sta netlink init\n");
    if (sta_nl_open() != 0) {
        STA_LOG("create socket failed.\n");
        return -1;
    }
    if (sta_nl.family > 0) {
        if (sta_nl_register(sta_max_num) != 0) {
            STA_LOG("send pid msg failed.\n");
            return -1;
        }
    } else {
        STA_LOG("get sta family id failed.\n");
        STA_NOTICE("no driver has announced the family %s yet: no station can be seen\n",
                   station_event_family);
    }
    sta_netlink_watcher.cb = g_sta_recv_msg;
    sta_netlink_watcher.fd = sta_nl.socket;
    uloop_fd_add(&sta_netlink_watcher, ULOOP_READ | ULOOP_BLOCKING);
    return 0;
}
