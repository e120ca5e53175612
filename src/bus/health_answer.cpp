#include "bus/health_answer.h"

#include "model/table.h"
#include "outputs/happenings.h"
#include "tools/health.h"
#include "tools/memory.h"
#include "wlan/channel.h"

#include <cstdint>
#include <cstring>

namespace {

struct figure {
    const char *section; // numbers of one section are adjacent
    const char *name;
    std::uint64_t value;
    bool wide = false; // 64 bits on the bus, else 32
};

std::uint32_t known_stations() {
    std::uint32_t count = 0;
    const struct list_head *entry = nullptr;
    list_for_each (entry, &g_sta_sta_master.list) ++count;
    return count;
}

} // namespace

void sta_put_health(struct blob_buf *buf) noexcept {
    const sta_health_numbers &h = sta_health;
    blobmsg_add_string(buf, "version", WSMD_VERSION);
    sta_put_sequence(buf);
    blobmsg_add_u32(buf, "uptime", static_cast<std::uint32_t>(sta_monotonic_seconds() - h.started));
    blobmsg_add_string(buf, "role", h.is_client ? "client" : "access-point");
    blobmsg_add_u8(buf, "family", sta_nl.family > 0 ? 1 : 0);
    const figure figures[] = {
        {"events", "received", h.events_received},
        {"events", "malformed", h.events_malformed},
        {"events", "overruns", h.overruns},
        {"events", "resyncs", h.resyncs},
        {"driver", "requests", h.driver_requests},
        {"driver", "failures", h.driver_failures},
        {"driver", "slowest_us", h.driver_slowest},
        {"reports", "sent", h.reports_sent},
        {"reports", "failed_socket", h.reports_without_socket},
        {"reports", "failed_bind", h.reports_not_bound},
        {"reports", "failed_connect", h.reports_not_connected},
        {"reports", "failed_write", h.reports_not_written},
        {"reports", "slowest_us", h.reports_slowest},
        {"stations", "known", known_stations()},
        {"stations", "online", static_cast<std::uint32_t>(g_sta_sta_master.online)},
        {"stations", "most", h.stations_most},
        {"stations", "limit", static_cast<std::uint32_t>(sta_max_num)},
        {"stations", "refused", h.stations_refused},
        {"neighbours", "received", h.neighbours_received},
        {"neighbours", "unusable", h.neighbours_unusable},
        {"neighbours", "unknown", h.neighbours_unknown},
        {"neighbours", "foreign", h.neighbours_foreign},
        {"neighbours", "malformed", h.neighbours_malformed},
        {"neighbours", "overruns", h.neighbours_overruns},
        {"neighbours", "dumps", h.neighbours_dumps},
        {"addresses", "kept", h.addresses_kept},
        {"addresses", "displaced", h.addresses_displaced},
        {"addresses", "refused", h.addresses_refused},
        {"lookups", "bus", h.bus_lookups},
        {"lookups", "configuration", h.configuration_lookups},
        {"lookups", "leases", h.lease_lookups},
        {"memory", "blocks", mem_total_cnt},
        {"memory", "bytes", mem_total_bytes, true},
        {"loop", "longest_us", h.longest_turn},
    };
    const char *section = nullptr;
    void *table = nullptr;
    for (const figure &each : figures) {
        if (!section || std::strcmp(section, each.section) != 0) {
            if (table) blobmsg_close_table(buf, table);
            table = blobmsg_open_table(buf, each.section);
            section = each.section;
        }
        if (each.wide)
            blobmsg_add_u64(buf, each.name, each.value);
        else
            blobmsg_add_u32(buf, each.name, static_cast<std::uint32_t>(each.value));
    }
    // The last section, "loop", has a text as well.
    if (h.longest_turn_of) blobmsg_add_string(buf, "what", h.longest_turn_of);
    blobmsg_close_table(buf, table);
}
