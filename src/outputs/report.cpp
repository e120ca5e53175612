#include "outputs/report.h"

#include <type_traits>

namespace {

// Where pointers have 4 bytes and 64-bit words are aligned to 8 (a device), the record begins with the image.
#define REPORT_SAME(type, field, off)                                                                        \
    static_assert(sizeof(sta_info_t::field) == sizeof(type) &&                                               \
                      (sizeof(void *) != 4 || offsetof(sta_info_t, field) == (off)),                         \
                  #field " has moved or changed its size");
STATION_REPORT_FIELDS(REPORT_SAME)
#undef REPORT_SAME
static_assert(sizeof(void *) != 4 || offsetof(sta_info_t, protocol) <= station_report_size);

template <class Int> void take(Int &to, const Int &from) noexcept { to = from; }
void take(report_clock &to, const sta_clock &from) noexcept { to = {from.sec, from.nsec}; }
template <std::size_t N> void take(char (&to)[N], const char (&from)[N]) noexcept {
    std::memcpy(to, from, N);
}

} // namespace

station_report sta_report_of(const sta_info_t &sta) noexcept {
    station_report report;
#define REPORT_TAKE(type, field, off) take(report.field, sta.field);
    STATION_REPORT_FIELDS(REPORT_TAKE)
#undef REPORT_TAKE
    return report;
}
