// Which listeners the channel knows, whatever a reading of the kernel's table leaves out or has twice.
#include "channel/event_channel.h"

#include <gtest/gtest.h>
#include <initializer_list>
#include <vector>

namespace {

using reading = std::vector<netlink_listener>;

constexpr netlink_listener daemon_socket{4711, 188532}, other{4712, 188540};

class event_channel_looking : public testing::Test {
protected:
    // Looks as often as it takes to read the table with these results.
    void look(std::initializer_list<reading> readings) {
        for (const reading &next : readings) to_come.push_back(next);
        while (!to_come.empty()) channel.look();
    }

    std::vector<reading> to_come;
    std::vector<netlink_listener> came;
    event_channel channel{{
        .family = 0,
        .queue_max = 0,
        .came =
            [](void *test, const netlink_listener &one) {
                static_cast<event_channel_looking *>(test)->came.push_back(one);
            },
        .owner = this,
        .find = find,
    }};

private:
    void SetUp() override { running = this; }

    static bool find(std::uint32_t, array<netlink_listener> &found) noexcept {
        std::vector<reading> &readings = running->to_come;
        if (readings.empty()) return false;
        for (const netlink_listener &one : readings.front()) EXPECT_TRUE(found.push(one));
        readings.erase(readings.begin());
        return true;
    }

    static inline event_channel_looking *running;
};

TEST_F(event_channel_looking, keeps_a_listener_that_two_readings_leave_out) {
    look({{daemon_socket, other}, {other}, {other}, {daemon_socket, other}});
    EXPECT_EQ(channel.listeners(), 2U);
    EXPECT_EQ(came, (reading{daemon_socket, other}));
}

TEST_F(event_channel_looking, forgets_a_listener_that_three_readings_in_a_row_leave_out) {
    look({{daemon_socket, other}, {other}, {other}, {other}});
    ASSERT_EQ(channel.listeners(), 1U);
    EXPECT_EQ(channel.port(0), other.port);
}

TEST_F(event_channel_looking, greets_a_listener_once_that_one_reading_has_twice) {
    look({{daemon_socket, daemon_socket}});
    EXPECT_EQ(channel.listeners(), 1U);
    EXPECT_EQ(came, reading{daemon_socket});
}

TEST_F(event_channel_looking, greets_a_new_listener_with_the_port_of_an_old_one) {
    const netlink_listener next{daemon_socket.port, 188600};
    look({{daemon_socket}, {next}, {next}, {next}});
    EXPECT_EQ(channel.listeners(), 1U);
    EXPECT_EQ(came, (reading{daemon_socket, next}));
}

} // namespace
