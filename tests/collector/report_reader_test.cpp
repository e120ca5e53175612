// The JSON in which reports are published, read back.
#include "collector/report_reader.h"
#include "collector/report_writer.h"
#include "collector/times.h"
#include "reports.h"

#include <gtest/gtest.h>
#include <random>

namespace {

const std::string topic = "wsm/report/02:54:4b:00:00:01";

std::string published(const station_report &report, moment at, const std::string &more = "") {
    std::string json = report_json(report, at);
    json.back() = ',';
    return json + R"("boot":"00c0ffee","seq":7,"booted":null)" + more + "}";
}

std::string replaced(std::string text, const std::string &from, const std::string &to) {
    return text.replace(text.find(from), from.size(), to);
}

TEST(report_reader, reads_what_was_written) {
    station_report report = make_report({.up = ~0ULL, .ip = "10.0.0.7"});
    set_text(report.ssid, "a\"\n\\\xff\xc3\xbc \x01");
    report.online_clock = {5000, 1};
    received out;
    EXPECT_EQ(read_report(published(report, noon + 1), topic, out), "");
    EXPECT_EQ(image_of(*out.report), image_of(report));
    EXPECT_EQ(out.at, noon + 1);
    EXPECT_EQ(out.from->access_point, "02:54:4b:00:00:01");
    EXPECT_EQ(out.from->boot, "00c0ffee");
    EXPECT_EQ(out.from->seq, 7U);
}

TEST(report_reader, a_report_has_one_time_however_often_it_comes) {
    received with, without;
    ASSERT_EQ(read_report(published(make_report({}), noon + 1), topic, with), "");
    EXPECT_EQ(with.from->told, noon + 1);
    station_report report = make_report({});
    report.online_ts = {1'700'000'000, 5};
    report.oltime = 60;
    ASSERT_EQ(read_report(published(report, 0), topic, without), "");
    EXPECT_EQ(without.from->told, 1'700'000'060 * second);
}

TEST(report_reader, a_time_counts_unless_it_cannot_be) {
    constexpr moment clock = 1'700'000'000 * second;
    EXPECT_EQ(sound_time(clock - 40 * 86400 * second, clock), clock - 40 * 86400 * second);
    EXPECT_EQ(sound_time(clock + 60 * second, clock), clock + 60 * second);
    EXPECT_EQ(sound_time(clock + 60 * second + 1, clock), clock);
    EXPECT_EQ(sound_time(1'420'070'400 * second, clock), 1'420'070'400 * second) << "2015";
    EXPECT_EQ(sound_time(1'420'070'400 * second - 1, clock), clock) << "a clock that was never set";
    EXPECT_EQ(sound_time(-5, clock), clock);
}

TEST(report_reader, reads_back_every_image_there_can_be) {
    std::mt19937 random(1); // NOLINT: the same each time
    for (int round = 0; round < 2000; ++round) {
        std::uint8_t image[station_report_size];
        for (std::uint8_t &byte : image) byte = static_cast<std::uint8_t>(random());
        station_report report;
        station_report_decode(image, report);
        report.online_clock.sec &= 0x7fffffff;
        report.online_clock.nsec = static_cast<std::int32_t>(random() % 1'000'000'000U);
        report.online_ts = {static_cast<std::int32_t>(random() >> 1), 999'999'999};
        report.offline_ts = {};
        received out;
        ASSERT_EQ(read_report(published(report, 0), "wsm/report/unknown", out), "") << report_json(report, 0);
        ASSERT_EQ(image_of(*out.report), image_of(report)) << report_json(report, 0);
        ASSERT_EQ(out.at, 0);
    }
}

TEST(report_reader, a_clock_that_is_none_is_told_alike_again) {
    for (const report_clock clock : {report_clock{-5, 300'000'000},
                                     {5, 2'000'000'000},
                                     {0, -1},
                                     {-7, -1'999'999'999},
                                     {INT32_MAX, INT32_MAX},
                                     {INT32_MIN, INT32_MIN},
                                     {INT32_MIN, INT32_MAX}}) {
        station_report report = make_report({});
        report.online_clock = clock;
        const std::string json = published(report, noon);
        received out;
        ASSERT_EQ(read_report(json, topic, out), "") << json;
        EXPECT_EQ(published(*out.report, noon), json);
    }
}

TEST(report_reader, says_why_something_is_no_report) {
    const std::string good = published(make_report({}), noon);
    const auto why = [](const std::string &json, const std::string &at = topic) {
        received out;
        return read_report(json, at, out);
    };
    EXPECT_EQ(why(good), "");
    EXPECT_EQ(why(replaced(good, "}", R"(,"new":[1]})")), "") << "what a later version adds";
    EXPECT_EQ(why(""), "no JSON object");
    EXPECT_EQ(why("[]"), "no JSON object");
    EXPECT_EQ(why("{}"), "ssid is missing");
    EXPECT_EQ(why(good + "x"), "no JSON object");
    EXPECT_EQ(why(good.substr(0, good.size() - 1)), "no JSON object");
    EXPECT_EQ(why(std::string(most_report_json + 1, ' ')), "longer than any report");
    EXPECT_EQ(why(std::string(100, '{')), "no JSON object");
    EXPECT_EQ(why(replaced(good, R"("rssi":-50)", R"("rssi":-129)")), "rssi has no value that it can have");
    EXPECT_EQ(why(replaced(good, R"("rssi":-50)", R"("rssi":"-50")")), "rssi has no value that it can have");
    EXPECT_EQ(why(replaced(good, R"("rssi":-50)", R"("rssi":-50.5)")), "rssi has no value that it can have");
    EXPECT_EQ(why(replaced(good, R"("rssi":-50)", R"("rss":-50)")), "rssi is missing");
    EXPECT_EQ(why(replaced(good, "Lobby", std::string(128, 'x'))), "ssid has no value that it can have");
    EXPECT_EQ(why(replaced(good, "Lobby", "\\\\x00")), "ssid has no value that it can have");
    EXPECT_EQ(why(replaced(good, "Lobby", "\\u0000")), "ssid has no value that it can have");
    EXPECT_EQ(why(replaced(good, "Lobby", "\\\\q")), "ssid has no value that it can have");
    EXPECT_EQ(why(replaced(good, "Lobby", "\xff")), "no JSON object");
    EXPECT_EQ(why(replaced(good, "Lobby", "\\\xc3\xa9")), "no JSON object")
        << "an escaped letter beyond ASCII";
    EXPECT_EQ(why(replaced(good, R"("rssi":-50)", "\"rssi\":-50,\xc3\xa9")), "no JSON object");
    EXPECT_EQ(why(replaced(good, "Lobby", "Lob\\nby")), "ssid has no value that it can have");
    // Not every release of the JSON library refuses these itself.
    for (const char *line_feed : {"Lob\nby", "Caf\xc3\xa9\nbar"})
        EXPECT_NE(why(replaced(good, "Lobby", line_feed)), "");
    EXPECT_EQ(why(replaced(good, R"("received":1700000000.000000)", R"("received":-1.000000)")),
              "no time of receipt");
    EXPECT_EQ(why(replaced(good, R"("boot":"00c0ffee")", R"("boot":"a b")")), "no boot");
    EXPECT_EQ(why(replaced(good, R"("seq":7)", R"("seq":0)")), "no seq");
    EXPECT_EQ(why(replaced(good, R"("seq":7)", R"("seq":-1)")), "no seq");
    EXPECT_EQ(why(good, "wsm/report/02:54:4b:00:00:02"), "not of the access point that its topic names");
    EXPECT_EQ(why(good, "wsm/02:54:4b:00:00:01/report/02:54:4b:00:00:01"), "");
    EXPECT_EQ(why(good, "wsm/02:54:4b:00:00:02/report/02:54:4b:00:00:01"),
              "not of the access point that its topic names");
    EXPECT_EQ(why(good, "wsm/report/unknown"), "not of the access point that its topic names");
}

} // namespace
