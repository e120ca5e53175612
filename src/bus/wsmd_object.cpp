#include "bus/wsmd_object.h"

#include "bus/arguments.h"
#include "bus/health_answer.h"
#include "inputs/network.h"
#include "model/departures.h"
#include "model/table.h"
#include "outputs/bus_link.h"
#include "outputs/happenings.h"
#include "outputs/station_view.h"
#include "protocol/driver_request.h"
#include "tools/array.h"
#include "tools/health.h"
#include "tools/log.h"
#include "tools/text.h"
#include "wlan/tables.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr std::uint32_t page_default = 64;
constexpr std::uint32_t page_max = 256; // with the longest texts these still fit a message of 1 MiB

enum { STATIONS_AFTER, STATIONS_LIMIT, STATIONS_FIELDS, STATIONS_MAX };
constexpr struct blobmsg_policy stations_policy[STATIONS_MAX] = {
    {"after", BLOBMSG_TYPE_STRING}, {"limit", BLOBMSG_TYPE_INT32}, {"fields", BLOBMSG_TYPE_ARRAY}};

enum { STATION_MAC, STATION_MAX };
constexpr struct blobmsg_policy station_policy[STATION_MAX] = {{"mac", BLOBMSG_TYPE_STRING}};

enum { DEPARTED_LIMIT, DEPARTED_MAX };
constexpr struct blobmsg_policy departed_policy[DEPARTED_MAX] = {{"limit", BLOBMSG_TYPE_INT32}};

constexpr struct ubus_method wsmd_methods[] = {
    {"stations", sta_wsmd_stations, 0, 0, stations_policy, STATIONS_MAX},
    {"station", sta_wsmd_station, 0, 0, station_policy, STATION_MAX},
    {"departed", sta_wsmd_departed, 0, 0, departed_policy, DEPARTED_MAX},
    {"health", sta_wsmd_health, 0, 0, nullptr, 0},
};
struct ubus_object_type wsmd_type = {"wsmd", 0, wsmd_methods, std::size(wsmd_methods)};

// An answer in a buffer of its own.
class answer {
public:
    answer() noexcept : whole(blob_buf_init(&buf, 0) == 0) {}
    ~answer() { blob_buf_free(&buf); }
    answer(const answer &) = delete;
    answer &operator=(const answer &) = delete;

    // Makes room for one more station, or for anything else of that size, so that the appends after it cannot fail.
    bool make_room() noexcept { return whole && sta_bus_make_room(&buf); }
    int send(struct ubus_context *ctx, struct ubus_request_data *req) noexcept {
        if (!whole || !sta_bus_can_carry(&buf)) return UBUS_STATUS_NO_MEMORY;
        ubus_send_reply(ctx, req, buf.head);
        return UBUS_STATUS_OK;
    }
    struct blob_buf buf = {};

private:
    bool whole;
};

// The argument as a MAC in the table's spelling. False if it is not a MAC.
bool take_mac(struct blob_attr *argument, char (&mac)[18]) {
    const char *text = blobmsg_get_string(argument);
    std::uint8_t octets[6];
    if (!sta_read_mac(text, octets)) return false;
    sta_put_text(mac, text);
    return sta_tolower(mac, mac) == 0;
}

// The members that the array names. Returns null, or the first name that is not a member.
const char *take_fields(struct blob_attr *array, station_fields &fields) {
    fields = 0;
    struct blob_attr *entry = nullptr;
    std::size_t rest = 0;
    blobmsg_for_each_attr (entry, array, rest) {
        if (blobmsg_type(entry) != BLOBMSG_TYPE_STRING) return "fields";
        const station_fields one = sta_view_field(blobmsg_get_string(entry));
        if (one == 0) return blobmsg_get_string(entry);
        fields |= one;
    }
    return nullptr;
}

// The page size, if it is given. False if it is out of range.
bool take_limit(struct blob_attr *argument, std::uint32_t &limit) {
    if (argument) limit = blobmsg_get_u32(argument);
    return limit >= 1 && limit <= page_max;
}

// Compares two pointers to records, for qsort.
int by_mac(const void *left, const void *right) {
    const sta_info_t *a = nullptr, *b = nullptr;
    std::memcpy(&a, left, sizeof(a));
    std::memcpy(&b, right, sizeof(b));
    return std::strcmp(a->mac, b->mac);
}

// Brings the figures of a station up to date, if they are asked for.
void refresh(sta_radio_tables &tables, sta_info_t *sta, station_fields fields) {
    if ((fields & sta_view_figures()) == 0) return;
    tables.fetch_for(sta);
    if (sta_radio_tables::has_radio(sta)) tables.update(sta);
}

constexpr unsigned all_sections = table_basic | table_extended;

} // namespace

void sta_wsmd_publish() noexcept {
    sta_wsmd_object = {};
    sta_wsmd_object.name = "wsmd";
    sta_wsmd_object.type = &wsmd_type;
    sta_wsmd_object.methods = wsmd_methods;
    sta_wsmd_object.n_methods = std::size(wsmd_methods);
    wsmd_type.id = 0; // the number may be from an earlier broker
    if (ubus_add_object(sta_ubus_ctx, &sta_wsmd_object) != UBUS_STATUS_OK)
        STA_NOTICE("the broker refuses the object wsmd\n");
}

int sta_wsmd_stations(struct ubus_context *ctx, struct ubus_object * /*obj*/, struct ubus_request_data *req,
                      const char * /*method*/, struct blob_attr *msg) {
    const sta_turn turn{"wsmd stations"};
    struct blob_attr *found[STATIONS_MAX];
    if (const char *bad = sta_arguments_read(stations_policy, STATIONS_MAX, found, msg))
        return sta_arguments_refuse(ctx, req, "bad argument", bad);
    char after[18] = "";
    if (found[STATIONS_AFTER] && !take_mac(found[STATIONS_AFTER], after))
        return sta_arguments_refuse(ctx, req, "no MAC address", "after");
    std::uint32_t limit = page_default;
    if (!take_limit(found[STATIONS_LIMIT], limit))
        return sta_arguments_refuse(ctx, req, "not 1 to 256", "limit");
    station_fields fields = sta_view_page();
    if (found[STATIONS_FIELDS])
        if (const char *unknown = take_fields(found[STATIONS_FIELDS], fields))
            return sta_arguments_refuse(ctx, req, "unknown field", unknown);

    // In the order of their MACs, so that an arrival or departure between two pages moves no other station.
    sta_array<sta_info_t *> behind;
    std::uint32_t total = 0;
    sta_info_t *sta = nullptr;
    list_for_each_entry (sta, &g_sta_sta_master.list, list) {
        if (!sta_view_has_mac(sta)) continue;
        ++total;
        if (std::strcmp(sta->mac, after) > 0 && !behind.push(sta)) return UBUS_STATUS_NO_MEMORY;
    }
    const std::size_t page = std::min<std::size_t>(behind.size(), limit);
    if (page > 0) std::qsort(behind.data(), behind.size(), sizeof(behind[0]), by_mac);

    sta_configuration configuration;
    sta_radio_tables tables{all_sections, configuration};
    const station_clock clock;
    answer reply;
    if (!reply.make_room()) return UBUS_STATUS_NO_MEMORY;
    sta_put_sequence(&reply.buf);
    blobmsg_add_u32(&reply.buf, "total", total);
    void *array = blobmsg_open_array(&reply.buf, "stations");
    for (std::size_t i = 0; i < page; ++i) {
        if (!reply.make_room()) return UBUS_STATUS_NO_MEMORY;
        void *table = blobmsg_open_table(&reply.buf, nullptr);
        refresh(tables, behind[i], fields);
        sta_view_put(&reply.buf, behind[i], fields, clock);
        blobmsg_close_table(&reply.buf, table);
    }
    blobmsg_close_array(&reply.buf, array);
    if (page < behind.size()) blobmsg_add_string(&reply.buf, "next", behind[page - 1]->mac);
    return reply.send(ctx, req);
}

int sta_wsmd_station(struct ubus_context *ctx, struct ubus_object * /*obj*/, struct ubus_request_data *req,
                     const char * /*method*/, struct blob_attr *msg) {
    const sta_turn turn{"wsmd station"};
    struct blob_attr *found[STATION_MAX];
    if (const char *bad = sta_arguments_read(station_policy, STATION_MAX, found, msg))
        return sta_arguments_refuse(ctx, req, "bad argument", bad);
    char mac[18];
    if (!found[STATION_MAC] || !take_mac(found[STATION_MAC], mac))
        return sta_arguments_refuse(ctx, req, "no MAC address", "mac");
    sta_info_t *sta = sta_sta_peek(mac);
    if (!sta) return UBUS_STATUS_NOT_FOUND;
    sta_configuration configuration;
    sta_radio_tables tables{all_sections, configuration};
    answer reply;
    if (!reply.make_room()) return UBUS_STATUS_NO_MEMORY;
    refresh(tables, sta, sta_view_all());
    sta_view_put(&reply.buf, sta, sta_view_all(), station_clock{});
    return reply.send(ctx, req);
}

int sta_wsmd_departed(struct ubus_context *ctx, struct ubus_object * /*obj*/, struct ubus_request_data *req,
                      const char * /*method*/, struct blob_attr *msg) {
    const sta_turn turn{"wsmd departed"};
    struct blob_attr *found[DEPARTED_MAX];
    if (const char *bad = sta_arguments_read(departed_policy, DEPARTED_MAX, found, msg))
        return sta_arguments_refuse(ctx, req, "bad argument", bad);
    std::uint32_t limit = page_default;
    if (!take_limit(found[DEPARTED_LIMIT], limit))
        return sta_arguments_refuse(ctx, req, "not 1 to 256", "limit");
    answer reply;
    if (!reply.make_room()) return UBUS_STATUS_NO_MEMORY;
    sta_put_sequence(&reply.buf);
    blobmsg_add_u32(&reply.buf, "total", sta_departures_total());
    void *array = blobmsg_open_array(&reply.buf, "departed");
    for (std::size_t i = 0; i < limit; ++i) {
        const station_departure *one = sta_departures_newest(i);
        if (!one) break;
        if (!reply.make_room()) return UBUS_STATUS_NO_MEMORY;
        void *table = blobmsg_open_table(&reply.buf, nullptr);
        sta_put_departure(&reply.buf, *one);
        blobmsg_close_table(&reply.buf, table);
    }
    blobmsg_close_array(&reply.buf, array);
    return reply.send(ctx, req);
}

int sta_wsmd_health(struct ubus_context *ctx, struct ubus_object * /*obj*/, struct ubus_request_data *req,
                    const char * /*method*/, struct blob_attr *msg) {
    if (const char *bad = sta_arguments_read(nullptr, 0, nullptr, msg))
        return sta_arguments_refuse(ctx, req, "bad argument", bad);
    answer reply;
    if (!reply.make_room()) return UBUS_STATUS_NO_MEMORY;
    sta_put_health(&reply.buf);
    return reply.send(ctx, req);
}
