// Each test plays one thing that can happen to a client: it sends what kernel and hostapd send, in their order, and
// reads what the daemon is told.
#include "nl80211/station_life.h"

#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr mac_address client{{2, 0, 0, 0, 0, 1}};
constexpr mac_address everybody{{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}};
constexpr std::uint32_t network_a = 3, network_b = 4;
using told = std::vector<std::string>;

// Kernel and hostapd in one: their entries and their messages.
class station_life_of : public testing::Test {
protected:
    void SetUp() override {
        life.network(network_a, true, true);
        life.network(network_b, true, true);
    }

    // Lets time pass, and answers the requests of the life from the kernel's entries.
    void pass(std::int64_t ms) {
        const std::int64_t end = now_ms + ms;
        for (;;) {
            drain();
            const std::int64_t next = life.next_check();
            if (next == 0 || next > end) break;
            now_ms = std::max(now_ms, next);
            life.pass(now());
        }
        now_ms = end;
    }
    moment now() const { return {now_ms, now_ms + 1'700'000'000'000}; }

    void drain() {
        life_output what{};
        while (life.take(what)) {
            const std::string where = what.about.network == network_a ? "a" : "b";
            if (what.kind == life_output::ask && !kernel_answers) continue;
            if (what.kind == life_output::ask) {
                const auto there = entries.find(what.about.network);
                life.answered(what.about.network, client, there == entries.end() ? nullptr : &there->second,
                              now());
                continue;
            }
            if (what.kind == life_output::came) {
                said.push_back("on " + where);
                const auto there = entries.find(what.about.network);
                life.answered(what.about.network, client, there == entries.end() ? nullptr : &there->second,
                              now());
            } else {
                said.push_back("off " + where + " " + std::to_string(what.reason));
                final_bytes = what.about.last.rx_bytes;
            }
            last = what.about;
        }
    }
    told since() {
        drain();
        return std::exchange(said, {});
    }

    // What the kernel says.
    void added(std::uint32_t network) {
        entries[network] = {};
        life.entry_added(network, client, now());
        drain();
    }
    void removed(std::uint32_t network, std::uint32_t inactive_ms = 10) {
        entries.erase(network);
        station_figures final{};
        final.rx_bytes = 4711;
        final.inactive_ms = inactive_ms;
        life.entry_removed(network, client, final, now());
        drain();
    }
    void removed_silently(std::uint32_t network) { entries.erase(network); }
    void sent(std::uint32_t network, frame_subtype subtype, std::uint16_t reason = 0,
              mac_address to = client) {
        management_frame frame{};
        frame.subtype = subtype;
        frame.to = to;
        frame.reason = reason;
        life.frame_sent(network, frame, 5180, now());
        drain();
    }
    void key(std::uint32_t network, int number) { life.key_message_sent(network, client, number, now()); }
    // Changes the entry without a message of the kernel.
    void authorise(std::uint32_t network) {
        entries[network].authorized = entries[network].associated = true;
        entries[network].associated_at = static_cast<std::uint64_t>(now_ms) * 1'000'000;
    }
    // What hostapd says.
    void received(std::uint32_t network, frame_subtype subtype, std::uint16_t transaction = 1) {
        management_frame frame{};
        frame.subtype = subtype;
        frame.from = client;
        frame.transaction = transaction;
        life.frame_received(network, frame, 5180, now());
        drain();
    }
    void connected(std::uint32_t network) {
        life.connected(network, client, now());
        authorise(network);
        drain();
    }
    void disconnected(std::uint32_t network) {
        life.disconnected(network, client, now());
        drain();
    }

    // A whole association with a password.
    void joins(std::uint32_t network, frame_subtype request = frame_assoc_request) {
        received(network, frame_auth);
        added(network);
        pass(5);
        sent(network, frame_auth);
        pass(5);
        received(network, request);
        sent(network, request == frame_assoc_request ? frame_assoc_response : frame_reassoc_response);
        pass(10);
        key(network, 1);
        pass(20);
        key(network, 3);
        connected(network);
    }
    void is_on(std::uint32_t network) {
        joins(network);
        ASSERT_EQ(since(), told{network == network_a ? "on a" : "on b"});
        pass(60'000);
        ASSERT_EQ(since(), told{});
    }
    void list() {
        life.list_begin();
        for (const auto &[network, figures] : entries) life.listed(network, client, figures);
        life.list_end(now());
        drain();
    }

    station_life life;
    std::map<std::uint32_t, station_figures> entries;
    told said;
    station last{};
    std::uint64_t final_bytes = 0;
    std::int64_t now_ms = 1000;
    bool kernel_answers = true;
};

TEST_F(station_life_of, a_client_that_joins_is_on_once_with_its_steps) {
    joins(network_a);
    pass(60'000);
    EXPECT_EQ(since(), told{"on a"});
    EXPECT_FALSE(last.is_reassociation);
    EXPECT_EQ(last.cost_auth, 5U);
    EXPECT_EQ(last.cost_assoc, 10U);
    EXPECT_EQ(last.cost_key, 20U);
    EXPECT_EQ(last.auth_wall_ms, 1'700'000'001'000);
    EXPECT_EQ(last.assoc_wall_ms, 1'700'000'001'010);
    EXPECT_EQ(last.key_start_wall_ms, 1'700'000'001'020);
    EXPECT_EQ(last.key_end_wall_ms, 1'700'000'001'040);
}

TEST_F(station_life_of, the_second_exchange_of_sae_starts_nothing_new) {
    received(network_a, frame_auth, 1);
    added(network_a);
    pass(30);
    received(network_a, frame_auth, 2);
    pass(10);
    received(network_a, frame_assoc_request);
    connected(network_a);
    EXPECT_EQ(since(), told{"on a"});
    EXPECT_EQ(last.cost_assoc, 40U);
}

TEST_F(station_life_of, a_client_of_an_open_network_has_no_key_steps) {
    received(network_a, frame_auth);
    added(network_a);
    received(network_a, frame_assoc_request);
    connected(network_a);
    EXPECT_EQ(since(), told{"on a"});
    EXPECT_EQ(last.key_start_wall_ms, 0);
    EXPECT_EQ(last.key_end_wall_ms, 0);
}

TEST_F(station_life_of, a_repeated_association_request_is_no_departure) {
    joins(network_a);
    pass(10);
    removed(network_a);
    pass(38);
    added(network_a);
    authorise(network_a);
    pass(60'000);
    EXPECT_EQ(since(), told{"on a"});
}

TEST_F(station_life_of, without_hostapd_a_client_is_on_once_authorised) {
    life.network(network_a, false, false);
    added(network_a);
    pass(700);
    EXPECT_EQ(since(), told{});
    authorise(network_a);
    pass(2000);
    EXPECT_EQ(since(), told{"on a"});
    removed(network_a);
    pass(2000);
    EXPECT_EQ(since(), told{"off a 307"});
}

TEST_F(station_life_of, a_deauthentication_by_the_client_has_the_final_figures) {
    is_on(network_a);
    received(network_a, frame_deauth);
    disconnected(network_a);
    removed(network_a);
    pass(400);
    EXPECT_EQ(since(), told{"off a 307"});
    EXPECT_EQ(final_bytes, 4711U);
}

TEST_F(station_life_of, what_the_kernel_says_first_of_a_departure_is_told_the_same) {
    is_on(network_a);
    removed(network_a);
    pass(30);
    received(network_a, frame_deauth);
    disconnected(network_a);
    pass(2000);
    EXPECT_EQ(since(), told{"off a 307"});
}

TEST_F(station_life_of, a_disassociation_and_hostapds_clean_up_are_one_departure) {
    is_on(network_a);
    received(network_a, frame_disassoc);
    disconnected(network_a);
    removed(network_a);
    pass(1000);
    sent(network_a, frame_deauth, 2);
    pass(60'000);
    EXPECT_EQ(since(), told{"off a 308"});
}

TEST_F(station_life_of, who_is_sent_away_by_hostapd_has_its_reason) {
    is_on(network_a);
    sent(network_a, frame_deauth, 5);
    disconnected(network_a);
    removed(network_a);
    pass(1000);
    EXPECT_EQ(since(), told{"off a 309"});
    is_on(network_a);
    sent(network_a, frame_disassoc, 8);
    disconnected(network_a);
    removed(network_a);
    pass(1000);
    EXPECT_EQ(since(), told{"off a 310"});
}

TEST_F(station_life_of, who_is_sent_away_for_a_poor_link_has_that_reason) {
    is_on(network_a);
    sent(network_a, frame_disassoc, 34);
    disconnected(network_a);
    removed(network_a);
    pass(1000);
    EXPECT_EQ(since(), told{"off a 301"});
}

TEST_F(station_life_of, a_removal_without_a_frame_is_hostapds_when_it_says_so) {
    is_on(network_a);
    removed(network_a);
    disconnected(network_a);
    pass(2000);
    EXPECT_EQ(since(), told{"off a 309"});
}

TEST_F(station_life_of, without_the_clients_frames_a_removal_is_the_clients) {
    life.network(network_a, true, false);
    is_on(network_a);
    disconnected(network_a);
    removed(network_a);
    pass(2000);
    EXPECT_EQ(since(), told{"off a 307"});
}

TEST_F(station_life_of, a_removal_without_frame_or_message_is_another_programs) {
    is_on(network_a);
    removed(network_a);
    pass(900);
    EXPECT_EQ(since(), told{}) << "the word may still come";
    pass(200);
    EXPECT_EQ(since(), told{"off a 310"});
    pass(300'000); // hostapd's next look at it
    sent(network_a, frame_disassoc, 4);
    disconnected(network_a);
    pass(60'000);
    EXPECT_EQ(since(), told{});
}

TEST_F(station_life_of, everybody_sent_away_at_once_is_the_networks_end) {
    is_on(network_a);
    sent(network_a, frame_deauth, 3, everybody);
    disconnected(network_a);
    removed(network_a);
    pass(1000);
    EXPECT_EQ(since(), told{"off a 303"});
}

TEST_F(station_life_of, a_killed_hostapd_is_the_networks_end_too) {
    is_on(network_a);
    removed(network_a);
    pass(500);
    life.network_ended(network_a, now());
    pass(1000);
    EXPECT_EQ(since(), told{"off a 303"});
}

TEST_F(station_life_of, an_interface_that_is_gone_takes_its_clients_along) {
    is_on(network_a);
    removed_silently(network_a);
    life.network_ended(network_a, now());
    pass(2000);
    EXPECT_EQ(since(), told{"off a 303"});
}

TEST_F(station_life_of, who_vanishes_is_off_when_the_access_point_gives_it_up) {
    is_on(network_a);
    sent(network_a, frame_disassoc, 4);
    disconnected(network_a);
    pass(1000);
    EXPECT_EQ(since(), told{});
    sent(network_a, frame_deauth, 2);
    removed(network_a, 15'020);
    pass(1000);
    EXPECT_EQ(since(), told{"off a 300"});
}

TEST_F(station_life_of, who_comes_back_without_having_left_is_on_again) {
    is_on(network_a);
    received(network_a, frame_auth);
    disconnected(network_a);
    removed(network_a);
    pass(3);
    added(network_a);
    pass(200);
    received(network_a, frame_assoc_request);
    key(network_a, 1);
    pass(200);
    connected(network_a);
    pass(60'000);
    EXPECT_EQ(since(), told{"on a"}) << "with a new time, and no end before it";
}

TEST_F(station_life_of, a_client_that_comes_back_protected_stays_on) {
    is_on(network_a);
    received(network_a, frame_auth);
    received(network_a, frame_assoc_request); // answered with "try again later"
    pass(1000);
    received(network_a, frame_assoc_request);
    removed(network_a);
    pass(83);
    added(network_a);
    pass(100);
    key(network_a, 1);
    pass(100);
    authorise(network_a);
    pass(60'000);
    EXPECT_EQ(since(), told{});
}

TEST_F(station_life_of, a_roam_is_an_arrival_at_the_new_network_only) {
    is_on(network_a);
    received(network_b, frame_auth);
    added(network_b);
    received(network_b, frame_reassoc_request);
    sent(network_b, frame_reassoc_response);
    disconnected(network_a);
    key(network_b, 1);
    pass(100);
    connected(network_b);
    EXPECT_EQ(since(), told{"on b"});
    EXPECT_TRUE(last.is_reassociation);
    pass(2000);
    removed(network_a);
    pass(60'000);
    EXPECT_EQ(since(), told{});
    EXPECT_EQ(life.find_on(client)->network, network_b);
}

TEST_F(station_life_of, with_fast_transition_the_new_network_is_heard_first) {
    is_on(network_a);
    received(network_b, frame_auth);
    added(network_b);
    received(network_b, frame_reassoc_request);
    sent(network_b, frame_reassoc_response);
    connected(network_b);
    disconnected(network_a);
    pass(2000);
    removed(network_a);
    pass(60'000);
    EXPECT_EQ(since(), told{"on b"});
}

TEST_F(station_life_of, a_slow_roam_is_reported_in_the_same_order) {
    is_on(network_a);
    received(network_b, frame_auth);
    added(network_b);
    disconnected(network_a);
    pass(2000);
    removed(network_a);
    pass(2500);
    EXPECT_EQ(since(), told{});
    connected(network_b);
    pass(60'000);
    EXPECT_EQ(since(), told{"on b"});
}

TEST_F(station_life_of, who_roams_and_returns_at_once_is_where_it_is) {
    is_on(network_a);
    joins(network_b, frame_reassoc_request);
    pass(500);
    received(network_a, frame_auth);
    removed(network_a);
    added(network_a);
    received(network_a, frame_reassoc_request);
    connected(network_a);
    pass(2000);
    removed(network_b);
    pass(60'000);
    EXPECT_EQ(since(), (told{"on b", "on a"}));
    EXPECT_EQ(life.find_on(client)->network, network_a);
}

TEST_F(station_life_of, a_roam_that_fails_is_a_departure) {
    is_on(network_a);
    received(network_b, frame_auth);
    added(network_b);
    disconnected(network_a);
    pass(2000);
    removed(network_a);
    pass(1000);
    removed(network_b);
    pass(10'000);
    EXPECT_EQ(since(), told{"off a 309"});
}

TEST_F(station_life_of, an_old_network_that_keeps_its_entry_does_not_get_it_back) {
    is_on(network_a);
    joins(network_b, frame_reassoc_request);
    EXPECT_EQ(since(), told{"on b"});
    for (int i = 0; i < 5; ++i) {
        list(); // both networks have it, as authorised
        pass(60'000);
    }
    EXPECT_EQ(since(), told{});
    EXPECT_EQ(life.find_on(client)->network, network_b);
}

TEST_F(station_life_of, a_wrong_password_is_no_station) {
    received(network_a, frame_auth);
    added(network_a);
    received(network_a, frame_assoc_request);
    sent(network_a, frame_assoc_response);
    entries[network_a].associated = true;
    entries[network_a].associated_at = 5;
    for (int i = 0; i < 4; ++i) {
        key(network_a, 1);
        pass(1000);
    }
    sent(network_a, frame_deauth, 15);
    removed(network_a);
    pass(60'000);
    EXPECT_EQ(since(), told{});
    EXPECT_EQ(life.size(), 0U) << "and is forgotten";
}

TEST_F(station_life_of, strangers_who_only_authenticate_are_forgotten) {
    for (std::uint8_t i = 0; i < 16; ++i) {
        management_frame frame{};
        frame.subtype = frame_auth;
        frame.from = {{2, 9, 9, 9, 9, i}};
        life.frame_received(network_a, frame, 5180, now());
        life.entry_added(network_a, frame.from, now());
    }
    EXPECT_EQ(life.size(), 16U);
    pass(60'000);
    for (std::uint8_t i = 0; i < 16; ++i) life.entry_removed(network_a, {{2, 9, 9, 9, 9, i}}, {}, now());
    pass(60'000);
    EXPECT_EQ(since(), told{});
    EXPECT_EQ(life.size(), 0U);
}

TEST_F(station_life_of, a_group_address_is_no_station) {
    life.entry_added(network_a, everybody, now());
    life.connected(network_a, everybody, now());
    EXPECT_EQ(since(), told{});
    EXPECT_EQ(life.size(), 0U);
}

TEST_F(station_life_of, who_was_there_before_is_found_in_the_list_once) {
    authorise(network_a);
    list();
    EXPECT_EQ(since(), told{"on a"});
    EXPECT_TRUE(last.found);
    list();
    pass(60'000);
    EXPECT_EQ(since(), told{});
}

TEST_F(station_life_of, who_is_in_two_lists_is_at_the_network_that_it_came_to_last) {
    authorise(network_a);
    now_ms += 100;
    authorise(network_b);
    list();
    EXPECT_EQ(since(), told{"on b"});
}

TEST_F(station_life_of, who_left_unheard_is_missed_by_the_next_list) {
    is_on(network_a);
    removed_silently(network_a);
    list();
    pass(1000);
    EXPECT_EQ(since(), told{"off a 310"});
}

TEST_F(station_life_of, a_client_gone_without_an_answer_is_queried_after_a_list) {
    is_on(network_a);
    kernel_answers = false;
    received(network_a, frame_deauth);
    removed(network_a);
    pass(60'000);
    kernel_answers = true;
    since();
    list();
    pass(1000);
    EXPECT_EQ(since(), told{"off a 307"});
}

TEST_F(station_life_of, a_missed_arrival_is_found_by_the_next_list) {
    is_on(network_a);
    removed_silently(network_a);
    authorise(network_b);
    list();
    pass(60'000);
    EXPECT_EQ(since(), told{"on b"});
}

TEST_F(station_life_of, a_forged_farewell_is_forgotten) {
    is_on(network_a);
    received(network_a, frame_deauth); // unprotected, while the client's frames are protected: ignored
    pass(60'000);
    EXPECT_EQ(since(), told{});
    sent(network_a, frame_disassoc, 34);
    disconnected(network_a);
    removed(network_a);
    pass(1000);
    EXPECT_EQ(since(), told{"off a 301"}) << "its true end has its own reason";
}

TEST_F(station_life_of, a_word_that_comes_after_the_end_is_put_right) {
    joins(network_a);
    EXPECT_EQ(since(), told{"on a"});
    removed_silently(network_a);
    pass(3000);
    EXPECT_EQ(since(), told{"off a 310"});
}

TEST_F(station_life_of, a_repeater_is_one_from_its_arrival_on) {
    received(network_a, frame_auth);
    added(network_a);
    received(network_a, frame_assoc_request);
    life.is_repeater(network_a, client, now());
    connected(network_a);
    EXPECT_EQ(since(), told{"on a"});
    EXPECT_TRUE(last.repeater);
}

TEST_F(station_life_of, a_client_found_to_be_a_repeater_is_reported_again) {
    is_on(network_a);
    EXPECT_FALSE(last.repeater);
    for (int i = 0; i < 2; ++i) life.is_repeater(network_a, client, now());
    EXPECT_EQ(since(), told{"on a"});
    EXPECT_TRUE(last.repeater);
}

TEST_F(station_life_of, who_leaves_and_joins_again_before_it_is_seen_is_off_and_on) {
    is_on(network_a);
    received(network_a, frame_deauth);
    disconnected(network_a);
    removed(network_a);
    pass(20);
    joins(network_a);
    EXPECT_EQ(since(), (told{"off a 307", "on a"}));
}

TEST_F(station_life_of, a_client_reported_before_a_restart_is_not_reported_again) {
    is_on(network_a);
    station_life before;
    before.restore(*life.find(network_a, client));
    before.list_begin();
    before.listed(network_a, client, entries[network_a]);
    before.list_end(now());
    life_output what{};
    EXPECT_FALSE(before.take(what));
    EXPECT_NE(before.find_on(client), nullptr);
}

TEST_F(station_life_of, a_client_reported_before_a_restart_and_gone_is_off) {
    is_on(network_a);
    const station known = *life.find(network_a, client);
    entries.clear();
    life.restore(known);
    list();
    pass(1000);
    EXPECT_EQ(since(), told{"off a 310"});
}

} // namespace
