// postgres_store.h - the output that keeps reports and stays in PostgreSQL. Any number of collectors share one database.
//
// Once:   (day of its own time, access point, boot, seq) identifies a report; the same report is stored once. A report without
//         an origin gets this collector's run as boot, and a number of its own.
// Order:  reports are stored and reported as committed first. Stays are made from the table afterwards, by any collector.
// Away:   while the database is away, take() waits with its batch and tries again. The queue before it fills: a broker then
//         keeps new messages; for the local socket the oldest is dropped and counted.
// Refused: a report that cannot be stored, or is older than what is kept, is put into the table `refused` with the reason, counted
//         and printed; the others go on.
#pragma once

#include "collector/output.h"
#include "collector/store/postgres_days.h"
#include "collector/store/postgres_stays.h"
#include "collector/store/store_options.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

class postgres_store : public output {
public:
    // Connects and brings the tables up to date. Throws store_error when the tables are of a newer version. If the database
    // cannot be reached, it also throws with files as input; with other inputs it waits.
    postgres_store(store_options chosen, const session_rules &rules);

    void take(const message &one) override;
    void settle() override;
    int pulse() const override { return 50; }
    bool finish() override;

private:
    struct row {
        report_key key;       // its place among the reports of its station
        std::int64_t day = 0; // since 1970; with access point, run and number the key in the table
        std::string why;      // not empty: it is refused, and why
        std::string mac;      // empty: an impossible report, in no stay
        std::int32_t kind = 0;
        std::string image;
    };
    using clock = std::chrono::steady_clock;

    void add(const received &in);
    std::string trouble(const row &of) const;
    bool write(std::chrono::milliseconds patience);
    void attempt();
    void insert(std::size_t first, std::size_t count);
    static void refuse(copy_rows &to, const row &what, const std::string &why);
    void count_refused(const std::string &why, std::uint64_t count);
    void keep_house(bool wait);
    void open();
    moment time() const;
    moment horizon() const;
    template <class Work> bool tried(Work work, std::chrono::milliseconds patience);

    store_options chosen_;
    std::string boot_;
    std::uint64_t seq_ = 0;
    std::unique_ptr<postgres> db_;
    postgres_days days_;
    postgres_stays stays_;
    std::vector<row> rows_;
    std::uint64_t ticket_ = 0;    // of the last message taken
    std::uint64_t committed_ = 0; // everything up to it is stored
    clock::time_point first_{};   // receipt of the oldest of rows_
    clock::time_point folded_{};
    clock::time_point pruned_ = clock::now() - std::chrono::hours(1);
    clock::time_point came_{}; // receipt of the newest report
    moment newest_ = 0;        // its own time of receipt
    std::uint64_t refused_ = 0;
    clock::time_point next_{}; // time of the next attempt
    std::chrono::milliseconds delay_{0};
    bool failing_ = false;
};
