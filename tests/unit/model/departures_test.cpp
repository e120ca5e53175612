// The ring of departures.
#include <gmock/gmock.h>

#include "support/house.h"

#include "model/departures.h"
#include "tools/text.h"

namespace {

using departures = House;

void leave(int number) {
    station_departure one = {};
    sta_put_number(one.mac, number);
    sta_departures_add(one);
}

// The numbers of those that are kept, the newest first.
std::vector<std::string> kept() {
    std::vector<std::string> found;
    while (const station_departure *one = sta_departures_newest(found.size())) found.emplace_back(one->mac);
    return found;
}

using texts = std::vector<std::string>;

TEST_F(departures, are_kept_up_to_128_the_newest_first) {
    for (int i = 0; i < 300; ++i) leave(i);
    EXPECT_EQ(sta_departures_total(), 300U);
    ASSERT_EQ(kept().size(), 128U);
    EXPECT_EQ(kept().front(), "299");
    EXPECT_EQ(kept().back(), "172");
}

TEST_F(departures, keep_the_newest_when_there_is_room_for_fewer) {
    sta_departures_keep(4);
    for (int i = 0; i < 6; ++i) leave(i); // the ring has wrapped around
    sta_departures_keep(3);
    EXPECT_EQ(kept(), (texts{"5", "4", "3"}));
    leave(6);
    EXPECT_EQ(kept(), (texts{"6", "5", "4"}));
}

TEST_F(departures, that_have_gone_round_keep_their_order_when_there_is_room_for_more) {
    sta_departures_keep(3);
    for (int i = 0; i < 5; ++i) leave(i);
    sta_departures_keep(5);
    EXPECT_EQ(kept(), (texts{"4", "3", "2"}));
    for (int i = 5; i < 8; ++i) leave(i);
    EXPECT_EQ(kept(), (texts{"7", "6", "5", "4", "3"}));
}

TEST_F(departures, of_a_ring_without_room_are_only_counted) {
    leave(1);
    sta_departures_keep(0);
    leave(2);
    EXPECT_EQ(kept(), texts{});
    EXPECT_EQ(sta_departures_total(), 2U);
    sta_departures_keep(2);
    leave(3);
    EXPECT_EQ(kept(), texts{"3"});
}

TEST_F(departures, have_room_for_4096_at_most) {
    sta_departures_keep(100000);
    for (int i = 0; i < 4100; ++i) leave(i);
    EXPECT_EQ(kept().size(), 4096U);
}

TEST_F(departures, without_memory_take_the_place_of_the_oldest) {
    fail_allocation(1);
    leave(1);
    EXPECT_TRUE(allocation_failed());
    EXPECT_EQ(kept(), texts{});
    for (int i = 2; i < 10; ++i) leave(i);
    EXPECT_EQ(kept().size(), 8U);
    fail_allocation(1); // no memory for a ninth
    leave(10);
    EXPECT_EQ(kept().size(), 8U);
    EXPECT_EQ(kept().front(), "10");
    EXPECT_EQ(kept().back(), "3");
    leave(11);
    EXPECT_EQ(kept(), (texts{"11", "10", "9", "8", "7", "6", "5", "4", "3"}));
}

TEST_F(departures, know_a_kick_once) {
    sta_departures_kick("02:00:00:00:00:01");
    EXPECT_FALSE(sta_departures_take_kick("02:00:00:00:00:02"));
    EXPECT_TRUE(sta_departures_take_kick("02:00:00:00:00:01"));
    EXPECT_FALSE(sta_departures_take_kick("02:00:00:00:00:01"));
}

TEST_F(departures, have_a_word_for_every_cause) {
    texts words;
    for (int cause = 0; cause <= static_cast<int>(departure_cause::swept) + 1; ++cause)
        words.emplace_back(departure_cause_name(static_cast<departure_cause>(cause)));
    EXPECT_EQ(words, (texts{"unknown", "station", "access-point", "idle", "kick", "roam", "unlisted", "swept",
                            "unknown"}));
}

} // namespace
