// The index finds what a walk over the list finds, whatever has happened to the list.
#include "support/house.h"

#include "model/members.h"
#include "model/table.h"
#include "tools/text.h"

#include <random>

namespace {

std::string mac_of(unsigned number) {
    char mac[18];
    std::snprintf(mac, sizeof(mac), "02:00:00:00:%02x:%02x", number >> 8 & 0xff, number & 0xff);
    return mac;
}

sta_info_t *walked_to(const std::string &mac) {
    for (sta_info_t *sta : stations())
        if (mac == sta->mac) return sta;
    return nullptr;
}

class station_index : public House {
protected:
    static void all_are_found(unsigned numbers, const std::string &what) {
        for (unsigned i = 0; i < numbers; ++i)
            EXPECT_EQ(sta_sta_peek(mac_of(i).c_str()), walked_to(mac_of(i))) << what << ", " << mac_of(i);
    }
    static void drop(sta_info_t *sta) {
        sta_members_unlink(sta);
        sta_sta_free(sta);
    }
};

TEST_F(station_index, finds_what_a_walk_finds_through_5000_comings_and_goings) {
    std::mt19937 random(20251122); // a fixed row of numbers
    constexpr unsigned numbers = 150;
    for (int step = 0; step < 5000 && !HasFailure(); ++step) {
        const std::string mac = mac_of(static_cast<unsigned>(random() % numbers));
        // Crowds come and go in turn, so that it is full and empty at times.
        if (random() % 1000 < (step / 500 % 2 == 0 ? 800U : 200U)) {
            if (!walked_to(mac)) put_station(mac.c_str());
        } else if (sta_info_t *sta = walked_to(mac)) {
            drop(sta);
        }
        EXPECT_EQ(sta_sta_peek(mac.c_str()), walked_to(mac)) << "step " << step;
        if (step % 100 == 0) all_are_found(numbers, "step " + std::to_string(step));
    }
}

TEST_F(station_index, finds_a_record_that_was_linked_by_hand_at_either_side_of_the_others) {
    for (const unsigned by_hand : {0U, 1U, 2U}) {
        for (unsigned i = 0; i < 3; ++i) {
            if (i == by_hand)
                list_add_tail(&sta_sta_new(mac_of(i).c_str(), "net")->list, &g_sta_sta_master.list);
            else
                put_station(mac_of(i).c_str());
            all_are_found(4, "by hand " + std::to_string(by_hand));
        }
        for (sta_info_t *sta : stations()) drop(sta);
        EXPECT_EQ(sta_sta_peek(mac_of(by_hand).c_str()), nullptr);
    }
}

TEST_F(station_index, finds_no_record_that_was_taken_out_by_hand) {
    sta_info_t *gone = put_station(mac_of(0).c_str());
    put_station(mac_of(1).c_str());
    list_del_init(&gone->list);
    all_are_found(2, "without the first");
    list_add_tail(&gone->list, &g_sta_sta_master.list);
    all_are_found(2, "with the first at the end");
}

TEST_F(station_index, finds_the_first_of_two_with_one_mac_and_then_the_other) {
    sta_info_t *first = put_station(mac_of(0).c_str());
    sta_info_t *second = put_station(mac_of(0).c_str());
    EXPECT_EQ(sta_sta_peek(mac_of(0).c_str()), first);
    drop(first);
    EXPECT_EQ(sta_sta_peek(mac_of(0).c_str()), second);
}

TEST_F(station_index, finds_an_empty_mac_and_one_of_19_characters) {
    sta_info_t *empty = put_station("");
    sta_info_t *full = put_station("0123456789abcdefghi");
    EXPECT_EQ(sta_sta_peek(""), empty);
    EXPECT_EQ(sta_sta_peek("0123456789abcdefghi"), full);
    EXPECT_EQ(sta_sta_peek("0123456789abcdefghij"), nullptr);
}

TEST_F(station_index, finds_all_without_memory_to_grow) {
    for (unsigned i = 0; i < 200; ++i) {
        sta_info_t *sta = sta_sta_new(mac_of(i).c_str(), "net");
        fail_allocation(1); // when it has to grow
        sta_members_link(sta);
        fail_allocation(0);
    }
    all_are_found(201, "unable to grow");
    while (!stations().empty()) drop(stations().front());
    put_station(mac_of(7).c_str());
    all_are_found(9, "after all have left");
}

} // namespace
