#include "life/driver_events.h"

#include "inputs/network.h"
#include "life/association.h"
#include "life/resync.h"
#include "outputs/backup.h"
#include "protocol/station_event.h"
#include "tools/health.h"
#include "tools/log.h"
#include "wlan/channel.h"
#include "wlan/station_change.h"

#include <sys/socket.h>

namespace {

constexpr const char *function = STA_NAME_OF(g_sta_recv_msg); // helpers log in its name
#define EVENT_LOG(...) STA_LOG_AS(function, __VA_ARGS__)

void handle_event(std::span<const std::uint8_t, station_event_size> bytes) {
    station_change change;
    station_change_decode(function, bytes, change);
    sta_configuration configuration;
    switch (change.kind) {
    case station_change_kind::comes: sta_associate(change, configuration); break;
    case station_change_kind::goes:
    case station_change_kind::moves: sta_disassociate(change, configuration); break;
    case station_change_kind::none: break;
    }
}

void watch(struct uloop_fd *watcher) { uloop_fd_add(watcher, ULOOP_READ | ULOOP_BLOCKING); }

} // namespace

void sta_nl_handle(std::span<const std::uint8_t> message, long received) {
    if (sta_nl_is_broken(message.data(), received)) {
        EVENT_LOG("The message contains an error.\n");
        ++sta_health.events_malformed;
        return;
    }
    if (sta_nl_is_event(message.data())) {
        ++sta_health.events_received;
        handle_event(message.subspan<station_event_offset, station_event_size>());
        return;
    }
    sta_nl_take_announcement(message.data(), static_cast<std::size_t>(received));
    EVENT_LOG("Creat a new g_sta.\n");
}

void g_sta_recv_msg(struct uloop_fd *watcher, unsigned int /*events*/) {
    const sta_turn turn{"driver event"};
    STA_LOG("Run in function g_sta_recv_msg\n");
    std::uint8_t message[sta_nl_message_max] = {};
    const ssize_t got = recv(sta_nl.socket, message, sizeof(message), 0);
    if (got < 0) {
        const int reason = errno;
        sta_backup_hold(false);
        STA_LOG("Recv msg error. %d [%d] [%s]\n", static_cast<int>(got), reason, std::strerror(reason));
        if (reason == ENOBUFS) {
            STA_NOTICE("events of the driver were lost: its socket was full\n");
            ++sta_health.overruns;
            sta_resync_request();
        }
        watch(watcher); // the loop stops watching a socket that has an error
        return;
    }
    if (!watcher->registered) watch(watcher);
    // A crowd that leaves at once: the backup file is written for all of those that wait behind one another.
    sta_backup_hold(true, sta_nl_has_more);
    sta_nl_handle(message, got);
    if (!sta_backup_holds_lines() || !sta_nl_has_more()) sta_backup_hold(false);
}
