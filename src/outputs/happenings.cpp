#include "outputs/happenings.h"

#include "model/departures.h"
#include "model/identity.h"
#include "outputs/bus_link.h"
#include "outputs/station_view.h"

#include <sys/random.h>

namespace {

std::uint32_t sequence = 0;

// Sixteen hexadecimal digits that identify this start of the daemon.
const char *boot() {
    static char text[17] = "";
    if (text[0] == '\0') {
        std::uint64_t number = 0;
        if (getrandom(&number, sizeof(number), GRND_NONBLOCK) != static_cast<ssize_t>(sizeof(number))) {
            timespec now{}; // an access point that has just started has no randomness yet
            clock_gettime(CLOCK_REALTIME, &now);
            number = static_cast<std::uint64_t>(now.tv_sec) << 32 ^ static_cast<std::uint64_t>(now.tv_nsec) ^
                     static_cast<std::uint64_t>(getpid()) << 24;
        }
        (void)std::snprintf(text, sizeof(text), "%016llx", static_cast<unsigned long long>(number));
    }
    return text;
}

void put_text(struct blob_buf *buf, const char *key, const char *text) {
    if (*text != '\0') blobmsg_add_string(buf, key, text);
}
void put_number(struct blob_buf *buf, const char *key, std::int32_t number) {
    blobmsg_add_u32(buf, key, static_cast<std::uint32_t>(number));
}

// One event: always numbered; the message is made and sent only if there are subscribers.
class happening {
public:
    happening(const char *kind, const char *mac) noexcept : name(kind) {
        ++sequence;
        if (!sta_ubus_ctx || !sta_wsmd_object.has_subscribers) return;
        whole = blob_buf_init(&buf, 0) == 0 && sta_bus_make_room(&buf);
        if (!whole) return;
        sta_put_sequence(&buf);
        if (mac) blobmsg_add_string(&buf, "mac", mac);
    }
    ~happening() {
        constexpr int no_wait = -1;
        if (whole) ubus_notify(sta_ubus_ctx, &sta_wsmd_object, name, buf.head, no_wait);
        blob_buf_free(&buf);
    }
    happening(const happening &) = delete;
    happening &operator=(const happening &) = delete;

    // Null: there are no subscribers, or no memory.
    struct blob_buf *message() noexcept {
        return whole ? &buf : nullptr;
    }

private:
    const char *name;
    struct blob_buf buf = {};
    bool whole = false;
};

void put_place(struct blob_buf *buf, const char *key, const char *ifname, std::int32_t radio) {
    void *table = blobmsg_open_table(buf, key);
    put_text(buf, "interface", ifname);
    put_number(buf, "radio", radio);
    blobmsg_close_table(buf, table);
}

void tell_change(const sta_info_t *sta, const char *what, const char *value, station_origin origin) {
    happening changed{"changed", sta->mac};
    if (!changed.message()) return;
    blobmsg_add_string(changed.message(), what, value);
    blobmsg_add_string(changed.message(), "origin", station_origin_name(origin));
}

} // namespace

void sta_tell_joined(const sta_info_t *sta, bool again) noexcept {
    happening joined{"joined", sta->mac};
    struct blob_buf *buf = joined.message();
    if (!buf) return;
    blobmsg_add_u8(buf, "again", again ? 1 : 0);
    void *table = blobmsg_open_table(buf, "station");
    sta_view_put(buf, sta, sta_view_all(), station_clock{});
    blobmsg_close_table(buf, table);
}

void sta_tell_left(const station_departure &departure) noexcept {
    happening left{"left", departure.mac};
    struct blob_buf *buf = left.message();
    if (!buf) return;
    void *table = blobmsg_open_table(buf, "departure");
    sta_put_departure(buf, departure);
    blobmsg_close_table(buf, table);
}

void sta_tell_roamed(const sta_info_t *sta, const char *old_ifname, std::int32_t old_radio) noexcept {
    happening roamed{"roamed", sta->mac};
    if (!roamed.message()) return;
    put_place(roamed.message(), "from", old_ifname, old_radio);
    put_place(roamed.message(), "to", sta->ifname, sta->radio_id);
}

void sta_tell_address(const sta_info_t *sta, const char *address, station_origin origin) noexcept {
    tell_change(sta, "address", address, origin);
}

void sta_tell_name(const sta_info_t *sta, const char *name, station_origin origin) noexcept {
    tell_change(sta, "name", name, origin);
}

void sta_learn_address(const sta_info_t *sta, const char *address, station_origin origin) noexcept {
    sta_identity_add_address(sta, address, origin);
    sta_tell_address(sta, address, origin);
}

void sta_learn_name(const sta_info_t *sta, const char *name, station_origin origin) noexcept {
    sta_identity_add_name(sta, name, origin);
    sta_tell_name(sta, name, origin);
}

void sta_tell_resync(std::uint32_t arrived, std::uint32_t departed) noexcept {
    happening resync{"resync", nullptr};
    if (!resync.message()) return;
    blobmsg_add_u32(resync.message(), "arrived", arrived);
    blobmsg_add_u32(resync.message(), "departed", departed);
}

void sta_put_sequence(struct blob_buf *buf) noexcept {
    blobmsg_add_string(buf, "boot", boot());
    blobmsg_add_u32(buf, "seq", sequence);
}

void sta_put_departure(struct blob_buf *buf, const station_departure &departure) noexcept {
    blobmsg_add_string(buf, "mac", departure.mac);
    put_text(buf, "name", departure.name);
    put_text(buf, "ip", departure.ip);
    put_text(buf, "ssid", departure.ssid);
    put_text(buf, "interface", departure.ifname);
    put_number(buf, "radio", departure.radio_id);
    if (departure.channel != 0) put_number(buf, "channel", departure.channel);
    if (departure.came > 0) blobmsg_add_u64(buf, "came", static_cast<std::uint64_t>(departure.came));
    blobmsg_add_u64(buf, "left", static_cast<std::uint64_t>(departure.left));
    if (departure.lasted >= 0) put_number(buf, "lasted", departure.lasted);
    blobmsg_add_string(buf, "ended_by", departure_cause_name(departure.ended_by));
    blobmsg_add_string(buf, "known_from", departure_known_from(departure));
    if (departure.reason_code != 0) {
        put_number(buf, "reason_code", departure.reason_code);
        blobmsg_add_string(buf, "reason", departure.reason);
    }
    if (departure.signal != 0) put_number(buf, "signal", departure.signal);
    blobmsg_add_u64(buf, "rx_bytes", departure.rx_bytes);
    blobmsg_add_u64(buf, "tx_bytes", departure.tx_bytes);
}
