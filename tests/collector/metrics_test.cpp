// Metrics: all values of one scrape are of the same moment.
#include "collector/http/api.h"
#include "reports.h"

#include <gtest/gtest.h>
#include <thread>

namespace {

// The sum of the values of a family's lines that have `label` in them.
std::uint64_t sum(const std::string &text, const std::string &name, const std::string &label = "") {
    std::uint64_t all = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = text.find('\n', at);
        const std::string line = text.substr(at, end - at);
        if (line.starts_with(name + "{") || line.starts_with(name + " "))
            if (line.find(label) != std::string::npos) all += std::stoull(line.substr(line.rfind(' ') + 1));
        at = end + 1;
    }
    return all;
}

TEST(a_scrape, tells_of_stations_counters_and_reports_at_the_same_moment) {
    api_sources from;
    from.view = std::make_shared<live_view>();
    from.names = std::make_shared<const station_names>();
    from.outputs = [] { return std::vector<output_figures>(); };
    pipeline road({.grace = 0, .silence = 900 * second, .most_stays = 100});
    road.add("live", std::make_unique<live_output>(from.view), 100);
    std::jthread life([&](const std::stop_token &over) { // one comes and goes, again and again
        for (int at = 0; !over.stop_requested(); ++at) {
            const bool leaves = at % 2 == 1;
            const told what{.kind = leaves ? report_offline : report_online,
                            .since = at - at % 2,
                            .left = leaves ? at : 0};
            road.feed(take_message(image_of(make_report(what)), noon + at * second));
            if (leaves) road.feed(take_message("short", noon + at * second));
        }
    });
    int different = 0;
    for (std::uint64_t last = 0; different < 50;) {
        const std::string text = write_metrics(from);
        const std::uint64_t reports = sum(text, "wsm_collector_reports_total");
        const std::uint64_t joined = sum(text, "wsm_changes_total", "kind=\"joined\""),
                            left = sum(text, "wsm_changes_total", "kind=\"left\"");
        ASSERT_EQ(sum(text, "wsm_stations"), joined - left) << text;
        ASSERT_EQ(sum(text, "wsm_departures_total"), left) << text;
        ASSERT_LE(joined + left, reports + 1) << text;
        ASSERT_GE(2 * joined, reports - std::min<std::uint64_t>(reports, 1)) << text;
        ASSERT_LE(sum(text, "wsm_collector_refused_total", "cause=\"size\""), reports / 2) << text;
        if (reports != last) ++different;
        last = reports;
    }
    life.request_stop();
    life.join();
    std::vector<std::string> dropped;
    EXPECT_EQ(road.finish(std::chrono::seconds(30), dropped), worker::ending::done);
}

TEST(a_scrape, and_the_status_tell_what_waits_for_somebody_who_is_away) {
    api_sources from;
    from.view = std::make_shared<live_view>();
    from.names = std::make_shared<const station_names>();
    from.outputs = [] {
        return std::vector<output_figures>{{"print", 1, 2, 3}, {"mqtt", 4, 5, 6, backlog{70, 8000, 9, 10}}};
    };
    const std::string text = write_metrics(from);
    for (const char *line : {"wsm_collector_spool_messages{output=\"mqtt\"} 70\n",
                             "wsm_collector_spool_bytes{output=\"mqtt\"} 8000\n",
                             "wsm_collector_spool_unwritten{output=\"mqtt\"} 9\n",
                             "wsm_collector_spool_dropped_total{output=\"mqtt\"} 10\n"})
        EXPECT_NE(text.find(line), std::string::npos) << text;
    EXPECT_EQ(text.find("spool_messages{output=\"print\"}"), std::string::npos);
    const std::string status = answer_api(from, "/api/v1/status", {}).body;
    EXPECT_NE(status.find(R"({"name":"print","taken":1,"dropped":2,"waiting":3},)"
                          R"({"name":"mqtt","taken":4,"dropped":5,"waiting":6,"spool":)"
                          R"({"waiting":70,"bytes":8000,"unwritten":9,"dropped":10}})"),
              std::string::npos)
        << status;
}

} // namespace
