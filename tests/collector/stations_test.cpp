// The list of stations as the interface gives it: which stations, in which order, and how many.
#include "collector/http/api.h"
#include "reports.h"

#include <gtest/gtest.h>

namespace {

stay made(const std::string &mac) {
    stay one;
    one.mac = mac;
    one.ap = "02:54:4b:00:00:01";
    one.ssid = "Lobby";
    one.channel = 6;
    one.began = noon;
    return one;
}

class list_of_stations : public ::testing::Test {
protected:
    list_of_stations() {
        from_.view = std::make_shared<live_view>();
        from_.outputs = [] { return std::vector<output_figures>(); };
        named("");
    }

    void named(const std::string &file) {
        from_.names = std::make_shared<const station_names>(station_names::parse(file));
    }

    // The last digits of the MACs, in the order of the answer; "400 why" of a refusal.
    std::string macs(const std::vector<stay> &here, const api_arguments &arguments) {
        from_.view->begin_with(here);
        const api_answer answer = answer_api(from_, "/api/v1/stations", arguments);
        if (answer.status != 200) return std::to_string(answer.status) + " " + answer.body;
        std::string all;
        constexpr std::string_view member = R"("mac":")";
        for (auto at = answer.body.find(member); at != std::string::npos;
             at = answer.body.find(member, at + 1))
            all += answer.body[at + member.size() + 16];
        return all;
    }

    std::vector<stay> three_{made("02:00:00:00:00:01"), made("02:00:00:00:00:02"), made("02:00:00:00:00:03")};
    api_sources from_;
};

TEST_F(list_of_stations, without_arguments_is_all_of_them_in_order_of_their_macs) {
    EXPECT_EQ(macs({three_[2], three_[0], three_[1]}, {}), "123");
    EXPECT_EQ(macs(three_, {{"direction", "descending"}}), "321");
    EXPECT_EQ(macs(three_, {{"search", ""}, {"ssid", ""}, {"limit", "3"}, {"sort", ""}}), "123");
}

TEST_F(list_of_stations, has_as_many_as_are_asked_for) {
    EXPECT_EQ(macs(three_, {{"limit", "2"}}), "12");
    EXPECT_EQ(macs(three_, {{"limit", "1"}, {"direction", "descending"}}), "3");
    EXPECT_EQ(macs(three_, {{"limit", "10000"}}), "123");
}

TEST_F(list_of_stations, that_nobody_fits_is_empty) {
    EXPECT_EQ(answer_api(from_, "/api/v1/stations", {{"search", "anna"}}).body, "[]");
}

TEST_F(list_of_stations, those_without_a_signal_are_below_the_weakest) {
    three_[0].signal = {-80, -80, -80, -80, 1};
    three_[2].signal = {-40, -40, -40, -40, 1};
    EXPECT_EQ(macs(three_, {{"sort", "signal"}}), "213");
    EXPECT_EQ(macs(three_, {{"sort", "signal"}, {"direction", "descending"}, {"limit", "2"}}), "31");
}

TEST_F(list_of_stations, those_with_a_name_are_first_and_digits_count_as_numbers) {
    named("02:00:00:00:00:01 Printer 10\n02:00:00:00:00:02 printer 9\n");
    EXPECT_EQ(macs(three_, {{"sort", "name"}}), "213");
    EXPECT_EQ(macs(three_, {{"sort", "name"}, {"direction", "descending"}}), "312");
    named("02:00:00:00:00:01 a007\n02:00:00:00:00:02 A7\n02:00:00:00:00:03 a\n");
    EXPECT_EQ(macs(three_, {{"sort", "name"}}), "312") << "leading zeros and capitals make no difference";
}

TEST_F(list_of_stations, is_ordered_by_sums_of_both_directions) {
    three_[0].rate_up = 300;
    three_[1].rate_down = 200;
    three_[1].rate_up = 200;
    three_[2].rate_down = 100;
    EXPECT_EQ(macs(three_, {{"sort", "rate"}}), "312");
    three_[0].up.total = UINT64_MAX;
    three_[0].down.total = UINT64_MAX;
    three_[1].down.total = 7;
    three_[2].up.total = 8;
    EXPECT_EQ(macs(three_, {{"sort", "bytes"}}), "231") << "a sum beyond 64 bits is the largest";
}

TEST_F(list_of_stations, is_ordered_by_network_place_and_time) {
    three_[0].ssid = "lobby 2";
    three_[1].ssid = "Guests";
    three_[2].ssid = "Lobby 10";
    EXPECT_EQ(macs(three_, {{"sort", "ssid"}}), "213");
    three_[0].radio = 1;
    three_[1].ap = "02:54:4b:00:00:00";
    EXPECT_EQ(macs(three_, {{"sort", "ap"}}), "231");
    three_[0].began = noon - 50 * second;
    three_[1].began = noon + 50 * second;
    EXPECT_EQ(macs(three_, {{"sort", "time"}}), "231") << "who came last is here for the shortest time";
}

TEST_F(list_of_stations, each_word_of_a_search_is_in_one_of_the_texts) {
    named("02:00:00:00:00:01 Anna's phone\n");
    three_[1].addresses = {{"10.0.0.7", 0, 0}, {"10.0.0.8", 0, 0}};
    three_[2].version = "11ax";
    EXPECT_EQ(macs(three_, {{"search", "ANNA lobby"}}), "1");
    EXPECT_EQ(macs(three_, {{"search", "\t10.0.0.8  02:00 "}}), "2");
    EXPECT_EQ(macs(three_, {{"search", "10.0.0.7"}}), "") << "it has that address no more";
    EXPECT_EQ(macs(three_, {{"search", "11AX"}}), "3");
    EXPECT_EQ(macs(three_, {{"search", "02:54:4b anna printer"}}), "");
}

TEST_F(list_of_stations, choices_leave_those_who_fit_all_of_them) {
    three_[0].state = presence::leaving;
    three_[1].ap = "02:54:4b:00:00:0a";
    three_[2].ssid = "Guests";
    three_[2].state = presence::moving;
    EXPECT_EQ(macs(three_, {{"ssid", "Lobby"}}), "12");
    EXPECT_EQ(macs(three_, {{"ssid", "lobby"}}), "") << "a network's name is that one alone";
    EXPECT_EQ(macs(three_, {{"ap", "02:54:4B:00:00:0A"}}), "2");
    EXPECT_EQ(macs(three_, {{"state", "leaving"}, {"ssid", "Lobby"}}), "1");
    EXPECT_EQ(macs(three_, {{"state", "moving"}, {"ssid", "Lobby"}}), "");
    EXPECT_EQ(macs(three_, {{"state", "here"}}), "2");
}

TEST_F(list_of_stations, the_channel_tells_the_band) {
    three_[0].channel = 14;
    three_[1].channel = 177;
    three_[2].channel = 233;
    EXPECT_EQ(macs(three_, {{"band", "2.4"}}), "1");
    EXPECT_EQ(macs(three_, {{"band", "5"}}), "2");
    EXPECT_EQ(macs(three_, {{"band", "6"}}), "3");
    three_[0].channel = 0;
    EXPECT_EQ(macs(three_, {{"band", "2.4"}}), "");
}

TEST_F(list_of_stations, a_wrong_question_is_refused_with_the_reason) {
    const std::pair<api_arguments, const char *> refused[] = {
        {{{"limit", "0"}}, "limit is not a number from 1 to 10000"},
        {{{"limit", "10001"}}, "limit is not a number from 1 to 10000"},
        {{{"limit", "-1"}}, "limit is not a number from 1 to 10000"},
        {{{"limit", "5 "}}, "limit is not a number from 1 to 10000"},
        {{{"limit", ""}}, "limit is not a number from 1 to 10000"},
        {{{"sort", "colour"}}, "sort is not mac, name, ssid, ap, signal, rate, bytes or time"},
        {{{"direction", "up"}}, "direction is not ascending or descending"},
        {{{"band", "5 GHz"}}, "band is not 2.4, 5 or 6"},
        {{{"state", "gone"}}, "state is not here, leaving or moving"},
        {{{"ap", "lobby"}}, "ap is not a MAC"},
        {{{"search", std::string(257, 'x')}}, "search has more than 256 bytes"},
        {{{"colour", "red"}}, "unknown argument colour"},
    };
    for (const auto &[arguments, why] : refused)
        EXPECT_EQ(macs(three_, arguments), std::string(R"(400 {"error":")") + why + "\"}");
    EXPECT_EQ(macs(three_, {{"search", std::string(256, 'x')}}), "");
}

} // namespace
