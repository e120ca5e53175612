// An output's queue: a slow output loses its own messages, and no other waits for it.
#include "collector/pipeline.h"
#include "reports.h"

#include <future>
#include <gmock/gmock.h>

namespace {

using namespace std::chrono_literals;

// Records the number of each message, and waits as long as a gate is closed.
class gated : public output {
public:
    struct seen {
        std::vector<int> numbers;
        std::promise<void> open;
        std::promise<void> entered;
        bool closed = false;
        bool finished = false;
    };
    explicit gated(seen &kept) : seen_(kept) {}
    void take(const message &one) override {
        if (seen_.closed) {
            seen_.entered.set_value();
            seen_.open.get_future().wait();
            seen_.closed = false;
        }
        seen_.numbers.push_back(one.in->report->oltime);
    }
    bool finish() override { return seen_.finished = true; }

private:
    seen &seen_;
};

received numbered(int number) {
    station_report report = make_report({});
    report.oltime = number;
    return take_message(image_of(report), noon);
}

TEST(a_slow_output, loses_its_own_oldest_messages_and_no_other_output_notices) {
    gated::seen slow, quick;
    slow.closed = true;
    pipeline road({});
    road.add("slow", std::make_unique<gated>(slow), 100);
    road.add("quick", std::make_unique<gated>(quick), 100'000);
    road.take(numbered(0));
    slow.entered.get_future().wait(); // it is at the first message
    for (int number = 1; number <= 1000; ++number) road.take(numbered(number));
    EXPECT_EQ(road.counters().reports, 1001u) << "nobody had to wait";
    EXPECT_EQ(road.figures()[0].waiting, 100u);
    EXPECT_EQ(road.figures()[0].dropped, 900u);
    slow.open.set_value();
    std::vector<std::string> dropped;
    EXPECT_EQ(road.finish(30s, dropped), worker::ending::done);
    EXPECT_THAT(dropped, testing::ElementsAre("slow: 900 messages dropped"));
    ASSERT_EQ(slow.numbers.size(), 101u);
    EXPECT_EQ(slow.numbers[1], 901) << "the newest are kept";
    EXPECT_EQ(slow.numbers.back(), 1000);
    EXPECT_EQ(quick.numbers.size(), 1001u);
    EXPECT_TRUE(slow.finished && quick.finished);
}

TEST(a_slow_output, holds_up_what_comes_from_files_instead_of_losing_it) {
    gated::seen kept;
    pipeline road({});
    road.add("slow", std::make_unique<gated>(kept), 2);
    for (int number = 0; number < 1000; ++number) road.feed(numbered(number));
    std::vector<std::string> dropped;
    EXPECT_EQ(road.finish(30s, dropped), worker::ending::done);
    EXPECT_THAT(dropped, testing::IsEmpty());
    EXPECT_EQ(kept.numbers.size(), 1000u);
}

TEST(a_stuck_output, does_not_keep_the_program_from_ending) {
    static gated::seen stuck; // its thread outlives the test
    stuck.closed = true;
    pipeline road({});
    road.add("stuck", std::make_unique<gated>(stuck), 100);
    road.take(numbered(0));
    stuck.entered.get_future().wait();
    for (int number = 1; number < 10; ++number) road.take(numbered(number));
    std::vector<std::string> dropped;
    EXPECT_EQ(road.finish(10ms, dropped), worker::ending::stuck);
    EXPECT_THAT(dropped, testing::ElementsAre("stuck: 10 messages dropped"));
    stuck.open.set_value();
}

TEST(messages, carry_their_own_change_and_those_of_time_come_before_them) {
    struct recorder : output {
        explicit recorder(std::vector<std::string> &kept) : kinds(kept) {}
        void take(const message &one) override {
            kinds.push_back((one.in ? "report " : "time ") +
                            std::string(one.what ? change_name(one.what->kind) : "-"));
        }
        std::vector<std::string> &kinds;
    };
    std::vector<std::string> kinds;
    pipeline road({});
    road.add("recorder", std::make_unique<recorder>(kinds), 100);
    const auto say = [&road](int seconds, const told &what) {
        road.take(take_message(image_of(make_report(what)), noon + seconds * second));
    };
    say(0, {.kind = report_online});
    say(10, {.kind = report_offline, .left = 10});
    say(50, {.kind = report_online, .since = 50});
    say(51, {.mac = "no MAC"});
    road.take(take_message("short", noon));
    std::vector<std::string> dropped;
    road.finish(30s, dropped);
    EXPECT_THAT(kinds, testing::ElementsAre("report joined", "report leaving", "time left", "report joined",
                                            "report -", "report -"));
    const input_counters counted = road.counters();
    EXPECT_EQ(counted.reports, 4u);
    EXPECT_EQ(counted.wrong_size, 1u);
    EXPECT_EQ(counted.impossible, 1u);
    EXPECT_EQ(counted.stations, 1u);
}

} // namespace
