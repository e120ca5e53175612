// What the daemon reports of a station: the whole record.
#include <gtest/gtest.h>

#include <cstring>

#include "outputs/report.h"

namespace {

TEST(report_of_a_station, has_every_field_of_the_record) {
    sta_info_t sta;
    std::memset(static_cast<void *>(&sta), 0xee, sizeof(sta));
    int value = 0;
#define FILL(type, field, off) std::memset(&sta.field, ++value, sizeof(sta.field));
    STATION_REPORT_FIELDS(FILL)
#undef FILL
    ASSERT_EQ(value, 66);
    const station_report report = sta_report_of(sta);
#define COMPARE(type, field, off)                                                                            \
    EXPECT_EQ(std::memcmp(&report.field, &sta.field, sizeof(sta.field)), 0) << #field;
    STATION_REPORT_FIELDS(COMPARE)
#undef COMPARE
}

} // namespace
