#include "driver/report_image.h"

#include <iterator>

namespace {

struct report_slot {
    std::size_t off, len;
};
#define REPORT_SLOT(field, off, len) report_slot{off, len},
constexpr report_slot report_slots[] = {STA_REPORT_FIELDS(REPORT_SLOT)};
#undef REPORT_SLOT

constexpr bool slots_in_order() {
    std::size_t end = 0;
    for (const report_slot &slot : report_slots) {
        if (slot.off < end || slot.off + slot.len > sta_report_size) return false;
        end = slot.off + slot.len;
    }
    return true;
}
static_assert(slots_in_order(), "report fields overlap or leave the image");

// Where pointers have 4 bytes and 64-bit words are aligned to 8 (a device), the record itself is the image.
// On 32-bit x86 64-bit words are aligned to 4: same offsets, no padding at the end.
#define REPORT_SAME(field, off, len)                                                                         \
    static_assert(sizeof(sta_info_t::field) == (len) &&                                                      \
                      (sizeof(void *) != 4 || offsetof(sta_info_t, field) == (off)),                         \
                  #field " has moved or changed its size");
STA_REPORT_FIELDS(REPORT_SAME)
#undef REPORT_SAME
static_assert(sizeof(void *) != 4 || alignof(sta_info_t) != 8 || sizeof(sta_info_t) == sta_report_size);

template <class Int> void write_field(std::uint8_t *at, const Int &value) noexcept {
    wire::put<Int>(at, value);
}
void write_field(std::uint8_t *at, const sta_clock &clock) noexcept {
    wire::put(at, clock.sec);
    wire::put(at + sizeof(clock.sec), clock.nsec);
}
template <std::size_t N> void write_field(std::uint8_t *at, const char (&text)[N]) noexcept {
    std::memcpy(at, text, N);
}

template <class Int> void read_field(const std::uint8_t *at, Int &value) noexcept {
    value = wire::get<Int>(at);
}
void read_field(const std::uint8_t *at, sta_clock &clock) noexcept {
    clock.sec = wire::get<std::int32_t>(at);
    clock.nsec = wire::get<std::int32_t>(at + sizeof(clock.sec));
}
template <std::size_t N> void read_field(const std::uint8_t *at, char (&text)[N]) noexcept {
    wire::get_text(text, at);
}

} // namespace

void sta_report_encode(const sta_info_t *sta, std::span<std::uint8_t, sta_report_size> image) noexcept {
    std::memset(image.data(), 0, image.size());
#define REPORT_WRITE(field, off, len) write_field(image.data() + (off), sta->field);
    STA_REPORT_FIELDS(REPORT_WRITE)
#undef REPORT_WRITE
}

void sta_report_decode(std::span<const std::uint8_t, sta_report_size> image, sta_info_t *sta) noexcept {
    *sta = {};
#define REPORT_READ(field, off, len) read_field(image.data() + (off), sta->field);
    STA_REPORT_FIELDS(REPORT_READ)
#undef REPORT_READ
}
