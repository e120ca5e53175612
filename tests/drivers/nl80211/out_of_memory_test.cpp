// The first allocation fails, then the second, and so on: nothing breaks, and the next list corrects what was lost.
#include "channel/event_channel.h"
#include "nl80211/networks.h"
#include "nl80211/station_life.h"

#include <gtest/gtest.h>
#include <linux/nl80211.h>

namespace {

int allocations_left = -1; // before one fails; -1: none does

bool fails() {
    if (allocations_left < 0) return false;
    return allocations_left-- == 0;
}

} // namespace

extern "C" {
// The linker's names for the functions and their stand-ins (--wrap).
// NOLINTBEGIN(bugprone-reserved-identifier)
void *__real_malloc(std::size_t size);
void *__real_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *old, std::size_t size);
void *__wrap_malloc(std::size_t size) { return fails() ? nullptr : __real_malloc(size); }
void *__wrap_calloc(std::size_t count, std::size_t size) {
    return fails() ? nullptr : __real_calloc(count, size);
}
void *__wrap_realloc(void *old, std::size_t size) { return fails() ? nullptr : __real_realloc(old, size); }
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

constexpr mac_address client{{2, 0, 0, 0, 0, 1}};

// Whether the daemon was last told that the client has joined.
bool drain(station_life &life, bool on) {
    life_output what{};
    while (life.take(what)) {
        if (what.kind == life_output::came) on = true;
        if (what.kind == life_output::gone) on = false;
    }
    return on;
}

TEST(out_of_memory, costs_a_station_no_more_than_the_time_to_the_next_list) {
    station_figures there{};
    there.authorized = there.associated = true;
    there.associated_at = 5;
    for (int nth = 0; nth < 6; ++nth) {
        allocations_left = nth;
        station_life life;
        life.network(3, true, true);
        management_frame frame{};
        frame.subtype = frame_auth;
        frame.from = client;
        life.frame_received(3, frame, 5180, {1, 1});
        life.entry_added(3, client, {2, 2});
        life.connected(3, client, {3, 3});
        bool on = drain(life, false);
        allocations_left = -1;
        for (int i = 0; i < 2; ++i) {
            life.list_begin();
            life.listed(3, client, there);
            life.list_end({1000, 1000});
            on = drain(life, on);
        }
        EXPECT_TRUE(on) << nth;
        EXPECT_NE(life.find_on(client), nullptr) << nth;
    }
}

TEST(out_of_memory, leaves_the_networks_that_are_known_as_they_are) {
    for (int nth = 0; nth < 4; ++nth) {
        networks::settings how{};
        how.control_folder = "/nowhere";
        how.ended = [](void *, std::uint32_t) {};
        networks all(how);
        kernel_message message{};
        message.type = NL80211_IFTYPE_AP;
        allocations_left = nth;
        for (std::uint32_t i = 1; i <= 2; ++i) {
            message.ifindex = i;
            message.ifname[0] = static_cast<char>('a' + i);
            all.take(message);
        }
        allocations_left = -1;
        for (std::uint32_t i = 1; i <= 2; ++i) { // the next list
            message.ifindex = i;
            message.ifname[0] = static_cast<char>('a' + i);
            all.take(message);
            ASSERT_NE(all.find(i), nullptr) << nth;
            EXPECT_NE(all.find(i)->control, nullptr) << nth;
        }
    }
}

TEST(out_of_memory, leaves_an_array_as_it_was) {
    array<int> numbers;
    for (int i = 0; i < 8; ++i) ASSERT_TRUE(numbers.push(i));
    allocations_left = 0;
    EXPECT_FALSE(numbers.push(8));
    allocations_left = -1;
    EXPECT_EQ(numbers.size(), 8U);
    EXPECT_EQ(numbers[7], 7);
    EXPECT_TRUE(numbers.push(8));
}

} // namespace
