// A station's identity: its addresses and names, their origins and times, and which are displaced first.
#include <gmock/gmock.h>

#include "support/house.h"

#include "model/identity.h"
#include "model/members.h"
#include "tools/health.h"
#include "tools/text.h"

#include <ctime>

static int ahead = 0; // seconds of the monotonic clock

extern "C" {
int __real_clock_gettime(clockid_t clock, timespec *now);
int __wrap_clock_gettime(clockid_t clock, timespec *now) {
    if (clock != CLOCK_MONOTONIC) return __real_clock_gettime(clock, now);
    *now = {1000 + ahead, 0};
    return 0;
}
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using texts = std::vector<std::string>;

struct identity : House {
    identity() { ahead = 0; }
    sta_info_t *sta = put_station("02:00:00:00:00:01");

    texts addresses(const sta_info_t *of = nullptr) {
        texts found;
        for (const station_address &one : sta_identity_addresses(of ? of : sta)) {
            char text[station_address_text_size];
            sta_address_write(one, text);
            found.push_back(std::string{text} + " " + station_origin_name(one.origin) + " " +
                            std::to_string(one.since - 1000) + " " + std::to_string(one.seen - 1000));
        }
        return found;
    }
    texts names() {
        texts found;
        for (const station_name &one : sta_identity_names(sta))
            found.push_back(std::string{one.text} + " " + station_origin_name(one.origin) + " " +
                            std::to_string(one.since - 1000) + " " + std::to_string(one.seen - 1000));
        return found;
    }
    // A neighbour's address, the `number`-th, seen at `second`.
    bool neighbour(int number, int second) const {
        station_address one;
        EXPECT_TRUE(sta_address_read(("2001:db8::" + std::to_string(number)).c_str(), one));
        one.origin = station_origin::neighbour;
        one.seen = 1000 + second;
        return sta_identity_add(sta, one);
    }
};

TEST_F(identity, of_a_station_of_which_nothing_is_known_is_empty) {
    EXPECT_THAT(addresses(), IsEmpty());
    EXPECT_THAT(names(), IsEmpty());
}

TEST_F(identity, has_addresses_of_both_kinds_with_how_and_when) {
    sta_identity_add_address(sta, "192.168.1.20", station_origin::lease);
    ahead = 5;
    sta_identity_add_address(sta, "2001:0db8:0:0::A", station_origin::event);
    EXPECT_THAT(addresses(), ElementsAre("192.168.1.20 lease 0 0", "2001:db8::a event 5 5"));
    EXPECT_EQ(sta_health.addresses_kept, 2U);
}

TEST_F(identity, an_address_that_is_seen_again_keeps_its_beginning_and_the_better_origin) {
    sta_identity_add_address(sta, "10.0.0.1", station_origin::neighbour);
    ahead = 7;
    sta_identity_add_address(sta, "10.0.0.1", station_origin::lease);
    ahead = 9;
    sta_identity_add_address(sta, "10.0.0.1", station_origin::restored);
    EXPECT_THAT(addresses(), ElementsAre("10.0.0.1 lease 0 9"));
}

TEST_F(identity, an_old_sight_does_not_make_an_address_older) {
    EXPECT_TRUE(neighbour(1, 5));
    EXPECT_FALSE(neighbour(1, 3));
    EXPECT_THAT(addresses(), ElementsAre("2001:db8::1 neighbour 5 5"));
}

TEST_F(identity, of_nine_addresses_the_one_unseen_for_longest_goes) {
    for (int i = 1; i <= 8; ++i) {
        ahead = i;
        sta_identity_add_address(sta, ("10.0.0." + std::to_string(i)).c_str(), station_origin::event);
    }
    ahead = 10;
    sta_identity_add_address(sta, "10.0.0.1", station_origin::event);
    sta_identity_add_address(sta, "10.0.0.9", station_origin::event);
    EXPECT_THAT(addresses(), ElementsAre("10.0.0.1 event 1 10", "10.0.0.3 event 3 3", "10.0.0.4 event 4 4",
                                         "10.0.0.5 event 5 5", "10.0.0.6 event 6 6", "10.0.0.7 event 7 7",
                                         "10.0.0.8 event 8 8", "10.0.0.9 event 10 10"));
    EXPECT_EQ(sta_health.addresses_displaced, 1U);
    EXPECT_EQ(sta_health.addresses_kept, 8U);
}

TEST_F(identity, who_claims_a_thousand_addresses_is_believed_eight_in_a_minute) {
    sta_identity_add_address(sta, "10.0.0.1", station_origin::lease);
    int believed = 0;
    for (int i = 1; i <= 1000; ++i) believed += neighbour(i, 0) ? 1 : 0;
    EXPECT_EQ(believed, 8);
    EXPECT_EQ(addresses().size(), station_addresses_max);
    EXPECT_EQ(sta_health.addresses_refused, 992U);
    ahead = 59;
    EXPECT_FALSE(neighbour(2000, 59));
    ahead = 60;
    EXPECT_TRUE(neighbour(2000, 60));
    EXPECT_FALSE(neighbour(8, 60)) << "known since the first minute";
}

TEST_F(identity, what_the_lease_file_says_is_believed_at_any_time) {
    for (int i = 1; i <= 20; ++i) neighbour(i, 0);
    ahead = 1;
    sta_identity_add_address(sta, "10.0.0.1", station_origin::lease);
    EXPECT_EQ(addresses().back(), "10.0.0.1 lease 1 1");
}

TEST_F(identity, a_text_that_is_no_address_of_a_station_is_not_taken) {
    for (const char *text :
         {"", "-", "0.0.0.0", "0.1.2.3", "127.0.0.1", "224.0.0.1", "255.255.255.255", "1.2.3", "1.2.3.4 ",
          "1.2.3.256", "::", "::1", "ff02::1", "::ffff:10.0.0.1", "fe80::1%ath0", "2001:db8::x", "phone"})
        sta_identity_add_address(sta, text, station_origin::event);
    EXPECT_THAT(addresses(), IsEmpty());
    sta_identity_add_address(sta, "fe80::1", station_origin::event);
    sta_identity_add_address(sta, "169.254.1.1", station_origin::event);
    EXPECT_EQ(addresses().size(), 2U);
}

TEST_F(identity, has_four_names_and_the_one_unseen_for_longest_goes) {
    for (int i = 0; i < 5; ++i) {
        ahead = i;
        sta_identity_add_name(sta, ("name" + std::to_string(i)).c_str(), station_origin::event);
        sta_identity_add_name(sta, "name0", station_origin::lease);
    }
    for (const char *none : {"", "-"}) sta_identity_add_name(sta, none, station_origin::event);
    sta_identity_add_name(sta, nullptr, station_origin::event);
    EXPECT_THAT(names(),
                ElementsAre("name0 lease 0 4", "name2 event 2 2", "name3 event 3 3", "name4 event 4 4"));
}

TEST_F(identity, goes_with_its_station_and_leaves_the_others) {
    std::vector<sta_info_t *> others;
    for (int i = 0; i < 40; ++i) {
        others.push_back(put_station(("02:00:00:00:01:" + std::to_string(10 + i)).c_str()));
        sta_identity_add_address(others.back(), ("10.0.0." + std::to_string(10 + i)).c_str(),
                                 station_origin::lease);
        sta_identity_add_name(others.back(), "phone", station_origin::lease);
    }
    for (std::size_t i = 0; i < 40; i += 2) {
        sta_members_unlink(others[i]);
        sta_sta_free(others[i]);
    }
    EXPECT_EQ(sta_health.addresses_kept, 20U);
    for (std::size_t i = 1; i < 40; i += 2)
        EXPECT_THAT(addresses(others[i]), ElementsAre("10.0.0." + std::to_string(10 + i) + " lease 0 0"));
}

TEST_F(identity, without_memory_is_as_it_was) {
    for (unsigned nth = 1;; ++nth) {
        fail_allocation(nth);
        sta_identity_add_address(sta, "10.0.0.1", station_origin::lease);
        sta_identity_add_address(sta, "10.0.0.2", station_origin::lease);
        sta_identity_add_name(sta, "phone", station_origin::lease);
        const bool failed = allocation_failed();
        fail_allocation(0);
        const texts known = addresses();
        EXPECT_EQ(known.size() == 2 && names().size() == 1, !failed);
        for (const std::string &one : known) EXPECT_TRUE(one.starts_with("10.0.0.")) << one;
        EXPECT_EQ(sta_health.addresses_kept, known.size());
        sta_identity_forget(sta);
        if (!failed) break;
    }
}

} // namespace
