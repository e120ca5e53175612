// A station's status, and who is counted: every step from every status, as docs/architecture.md shows it.
#include <fstream>
#include <gtest/gtest.h>
#include <string>

#include "support/house.h"

#include "model/state.h"
#include "model/table.h"

namespace {

struct named_step {
    const char *name;
    station_step step;
};
constexpr named_step steps[] = {
    {"associated", station_step::associated},
    {"restored", station_step::restored},
    {"completed", station_step::completed},
    {"returned", station_step::returned},
    {"left", station_step::left},
};

const char *name_of(std::uint16_t status) {
    return status == sta_status_online ? "online" : status == sta_status_added ? "waiting" : "-";
}

// A row of the document's table: the result of one step for a record with this status.
std::string row_of(const named_step &taken, std::uint16_t before) {
    sta_info_t sta{}, incoming{};
    sta.status = before;
    sta.restored = 1;
    sta.third_flag = 1;
    sta_state_move(&incoming, station_step::associated);
    g_sta_sta_master.online = 5;
    sta_state_move(&sta, taken.step, &incoming);
    const int counted = g_sta_sta_master.online - 5;
    return std::string("| ") + taken.name + " | " + name_of(before) + " | " +
           (taken.step == station_step::left ? "-" : name_of(sta.status)) + " | " +
           (counted > 0   ? "+1"
            : counted < 0 ? "-1"
                          : "") +
           " | " + (sta.restored != 0 ? "yes" : "no") + " |\n";
}

// The rows of that table, read before a test hides the folders that the tree may be in.
std::string documented_rows() {
    std::ifstream page(WSMD_GOLDEN_DIR "/../../docs/architecture.md");
    std::string text, line;
    while (std::getline(page, line))
        for (const named_step &one : steps)
            if (line.rfind(std::string("| ") + one.name + " | ", 0) == 0) text += line + "\n";
    return text;
}
const std::string documented = documented_rows();

using state = House;

TEST_F(state, moves_as_the_document_shows) {
    std::string rows;
    constexpr std::uint16_t all[] = {0, sta_status_added, sta_status_online};
    for (const std::uint16_t before : all)
        for (const named_step &one : steps) {
            const bool begins = one.step == station_step::associated || one.step == station_step::restored;
            if (begins != (before == 0)) continue;
            if (one.step == station_step::completed && before == sta_status_online)
                continue; // no pass does it twice
            rows += row_of(one, before);
        }
    EXPECT_EQ(rows, documented);
}

TEST_F(state, of_a_restored_station_is_confirmed_by_its_return) {
    sta_info_t known{}, incoming{};
    sta_state_move(&known, station_step::restored);
    EXPECT_EQ(known.restored, 1);
    sta_state_move(&incoming, station_step::associated);
    sta_state_move(&known, station_step::returned, &incoming);
    EXPECT_EQ(known.restored, 0);
}

TEST_F(state, counts_a_station_that_returns_and_completes_again_once) {
    sta_info_t known{}, incoming{};
    sta_state_move(&known, station_step::associated);
    sta_state_move(&known, station_step::completed);
    sta_state_move(&incoming, station_step::associated);
    sta_state_move(&known, station_step::returned, &incoming);
    EXPECT_EQ(g_sta_sta_master.online, 0);
    sta_state_move(&known, station_step::completed);
    EXPECT_EQ(g_sta_sta_master.online, 1);
    sta_state_move(&known, station_step::left);
    EXPECT_EQ(g_sta_sta_master.online, 0);
}

TEST_F(state, of_a_table_that_begins_has_nobody_on_line) {
    g_sta_sta_master.online = 7;
    sta_state_begin();
    EXPECT_EQ(g_sta_sta_master.online, 0);
}

} // namespace
