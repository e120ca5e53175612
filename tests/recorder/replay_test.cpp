// The parts of a replay that need no daemon: answers, family numbers; and what stays out of a recording.
#include "record/uci_options.h"
#include "replay/answers.h"
#include "replay/families.h"

#include <array>
#include <gmock/gmock.h>

namespace {

constexpr std::uint64_t second = 1'000'000;

recorded::bytes bytes_of(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()};
}

struct asked_station_counts : testing::Test {
    asked_station_counts() {
        for (const auto &[time, answer] : {std::pair(1 * second, "1"), {2 * second, "2"}, {3 * second, "3"}})
            whole.records.push_back({time, recorded::request{.cmd = 5,
                                                             .arg = 0,
                                                             .result = 0,
                                                             .took = 0,
                                                             .size = 16,
                                                             .ifname = "ath0",
                                                             .asked = {},
                                                             .answer = bytes_of(answer)}});
        answers.emplace(whole);
    }

    // The answer, with a mark when it is the one before; "none" when there is none.
    std::string ask(std::uint64_t now, int cmd = 5, std::string_view ifname = "ath0", std::size_t size = 16) {
        const std::vector<std::uint8_t> buffer(size);
        const auto found = answers->find({cmd, 0, ifname, buffer}, now);
        if (!found) return "none";
        const auto &text = found->request->answer;
        return std::string(text.begin(), text.end()) + (found->is_next ? "" : " again");
    }

    recording whole;
    std::optional<recorded_answers> answers;
};

TEST_F(asked_station_counts, are_answered_one_after_the_other_at_their_times) {
    EXPECT_EQ(ask(1 * second), "1");
    EXPECT_EQ(ask(2 * second + 300'000), "2");
    EXPECT_EQ(ask(3 * second - 300'000), "3");
}

TEST_F(asked_station_counts, more_often_than_recorded_get_the_answer_before) {
    EXPECT_EQ(ask(1 * second), "1");
    EXPECT_EQ(ask(1 * second + 100'000), "1 again");
    EXPECT_EQ(ask(2 * second), "2");
    EXPECT_EQ(ask(3 * second), "3");
    EXPECT_EQ(ask(60 * second), "3 again");
}

TEST_F(asked_station_counts, more_seldom_than_recorded_get_the_one_of_their_time) {
    EXPECT_EQ(ask(1 * second), "1");
    EXPECT_EQ(ask(3 * second), "3");
}

TEST_F(asked_station_counts, before_any_was_recorded_get_the_first) {
    EXPECT_EQ(ask(0), "1 again");
    EXPECT_EQ(ask(2 * second), "2");
}

TEST_F(asked_station_counts, of_which_none_was_recorded_get_none) {
    EXPECT_EQ(ask(1 * second, 1), "none");
    EXPECT_EQ(ask(1 * second, 5, "ath1"), "none");
    EXPECT_EQ(ask(1 * second, 5, "ath0", 17), "none");
}

// One message: length, type, flags, sequence, port; command, version; then attributes.
std::vector<std::uint8_t> message(std::uint16_t type, std::uint8_t cmd,
                                  const std::vector<std::uint8_t> &rest = {}) {
    std::vector<std::uint8_t> out(20 + rest.size());
    std::memcpy(out.data() + 4, &type, sizeof(type));
    out[16] = cmd;
    std::copy(rest.begin(), rest.end(), out.begin() + 20);
    const auto length = static_cast<std::uint32_t>(out.size());
    std::memcpy(out.data(), &length, sizeof(length));
    return out;
}

std::vector<std::uint8_t> announcement(std::uint16_t family) {
    std::vector<std::uint8_t> rest = {0, 0, 0, 0, 'T', 'K', '_', 'S', 'T', 'A', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const auto put = [&rest](std::size_t at, std::uint16_t number) {
        std::memcpy(&rest[at], &number, sizeof(number));
    };
    put(0, 11);
    put(2, 2);
    put(12, 6);
    put(14, 1);
    put(16, family);
    return message(16, 1, rest);
}

TEST(replayed_family, has_the_labs_number_in_its_announcement_and_its_messages) {
    replayed_families families(1000);
    EXPECT_EQ(families.translate(announcement(31)), announcement(1000));
    EXPECT_EQ(families.translate(message(31, 2)), message(1000, 2));
}

TEST(replayed_family, that_comes_under_another_number_gets_another_number) {
    replayed_families families(1000);
    EXPECT_EQ(families.translate(announcement(31)), announcement(1000));
    EXPECT_EQ(families.translate(announcement(32)), announcement(1001));
    EXPECT_EQ(families.translate(message(31, 2)), message(1000, 2));
    EXPECT_EQ(families.translate(message(1000, 2)), message(1002, 2)) << "another family, and stays one";
}

TEST(replayed_family, leaves_the_controllers_other_words_as_they_are) {
    replayed_families families(1000);
    auto other = announcement(31);
    other[24] = 'X';
    auto swapped = announcement(31); // the daemon does not understand it either
    swapped[34] = 2;
    auto gone = announcement(31);
    gone[16] = 2;
    for (const auto &one :
         {other, swapped, gone, message(16, 1), message(3, 0), std::vector<std::uint8_t>(15, 7)})
        EXPECT_EQ(families.translate(one), one);
    for (std::size_t length = 1; length < 38; ++length) {
        auto cut = announcement(31);
        cut.resize(length);
        EXPECT_EQ(families.translate(cut), cut) << length;
    }
}

TEST(replayed_family, is_not_sent_the_kernels_answers_to_the_daemon) {
    replayed_families families(1000);
    EXPECT_EQ(families.translate(message(2, 0)), std::nullopt);
    EXPECT_EQ(families.translate({}), std::nullopt);
}

std::string kept(std::string text) {
    text.resize(keep_known_options(text.data(), text.size()));
    return text;
}

TEST(recorded_configuration, is_without_passphrases_and_all_that_the_daemon_does_not_read) {
    EXPECT_EQ(kept("# secret\n"
                   "config wifi-iface 'guest'\n"
                   "\toption ssid 'My Net'\n"
                   "\toption key 'secret'\n"
                   "\toption\t'key1' \"secret\"\n"
                   "\tlist 'network' 'lan'\n"
                   "\toption 'ifname' 'ath0'\r\n"
                   "\toption sae_password 'two\n"
                   "secret lines'\n"
                   "\toption vlanid '7'"),
              "config wifi-iface 'guest'\n"
              "\toption ssid 'My Net'\n"
              "\tlist 'network' 'lan'\n"
              "\toption 'ifname' 'ath0'\r\n"
              "\toption vlanid '7'");
}

TEST(recorded_configuration, of_any_text_is_never_longer) {
    for (const char *text :
         {"", "\n", "option", "option ", "option 'ssid", "'", "\"", "config", "  \t", "option ssidx 1\n"})
        EXPECT_LE(kept(text).size(), std::strlen(text)) << text;
    EXPECT_EQ(kept("option ssidx 1\noption 'ssid"), "option 'ssid");
}

} // namespace
