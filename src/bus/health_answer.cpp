#include "bus/health_answer.h"

#include "model/table.h"
#include "outputs/happenings.h"
#include "tools/health.h"
#include "tools/memory.h"
#include "wlan/channel.h"

namespace {

struct section {
    struct blob_buf *buf;
    void *table;
    section(struct blob_buf *to, const char *name) : buf(to), table(blobmsg_open_table(to, name)) {}
    ~section() { blobmsg_close_table(buf, table); }
    section(const section &) = delete;
    section &operator=(const section &) = delete;
    void number(const char *key, std::uint32_t value) const { blobmsg_add_u32(buf, key, value); }
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
    {
        const section events{buf, "events"};
        events.number("received", h.events_received);
        events.number("malformed", h.events_malformed);
        events.number("overruns", h.overruns);
        events.number("resyncs", h.resyncs);
    }
    {
        const section driver{buf, "driver"};
        driver.number("requests", h.driver_requests);
        driver.number("failures", h.driver_failures);
        driver.number("slowest_us", h.driver_slowest);
    }
    {
        const section reports{buf, "reports"};
        reports.number("sent", h.reports_sent);
        reports.number("failed_socket", h.reports_without_socket);
        reports.number("failed_bind", h.reports_not_bound);
        reports.number("failed_connect", h.reports_not_connected);
        reports.number("failed_write", h.reports_not_written);
        reports.number("slowest_us", h.reports_slowest);
    }
    {
        const section stations{buf, "stations"};
        stations.number("known", known_stations());
        stations.number("online", static_cast<std::uint32_t>(g_sta_sta_master.online));
        stations.number("most", h.stations_most);
        stations.number("limit", static_cast<std::uint32_t>(sta_max_num));
        stations.number("refused", h.stations_refused);
    }
    {
        const section neighbours{buf, "neighbours"};
        neighbours.number("received", h.neighbours_received);
        neighbours.number("unusable", h.neighbours_unusable);
        neighbours.number("unknown", h.neighbours_unknown);
        neighbours.number("foreign", h.neighbours_foreign);
        neighbours.number("malformed", h.neighbours_malformed);
        neighbours.number("overruns", h.neighbours_overruns);
        neighbours.number("dumps", h.neighbours_dumps);
    }
    {
        const section addresses{buf, "addresses"};
        addresses.number("kept", h.addresses_kept);
        addresses.number("displaced", h.addresses_displaced);
        addresses.number("refused", h.addresses_refused);
    }
    {
        const section lookups{buf, "lookups"};
        lookups.number("bus", h.bus_lookups);
        lookups.number("configuration", h.configuration_lookups);
        lookups.number("leases", h.lease_lookups);
    }
    {
        const section memory{buf, "memory"};
        memory.number("blocks", mem_total_cnt);
        blobmsg_add_u64(buf, "bytes", mem_total_bytes);
    }
    const section loop{buf, "loop"};
    loop.number("longest_us", h.longest_turn);
    if (h.longest_turn_of) blobmsg_add_string(buf, "what", h.longest_turn_of);
}
