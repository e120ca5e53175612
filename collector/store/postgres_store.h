// postgres_store.h - the output that keeps what came in PostgreSQL. Any number of collectors share one database.
//
// Once:   a report is known by (day of its receipt, access point, boot, seq); one that comes again is not stored again. One
//         that came without an origin gets the run of this collector as boot, and its own number.
// Order:  reports are stored and told as committed first; stays are made of what is in the table afterwards, by whichever
//         collector finds them waiting.
// Away:   while the database is, take() waits with its batch and tries again. So the queue in front of it fills: a broker
//         then keeps what comes, the local socket's oldest is dropped there and counted.
// Refused: a report that cannot be stored is put into the table `refused` with the reason, counted and told; the others go on.
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
    // Connects and brings the tables up to date. store_error when the tables are those of a newer version; with files as
    // input, also when the database cannot be reached, for which others wait.
    postgres_store(store_options chosen, const session_rules &rules);

    void take(const message &one) override;
    void settle() override;
    int pulse() const override { return 50; }
    bool finish() override;

private:
    struct row {
        report_key key;
        std::string mac; // empty: a report that cannot be true, of no stay
        std::int32_t kind = 0;
        std::string image;
    };
    using clock = std::chrono::steady_clock;

    void add(const received &in);
    std::string trouble(const origin &from) const;
    bool write(std::chrono::milliseconds patience);
    void attempt();
    void insert(std::size_t first, std::size_t count);
    void refuse(const row &what, const std::string &seq, const std::string &why);
    void keep_house(bool wait);
    void open();
    void migrate();
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
    std::uint64_t ticket_ = 0;    // of the last message that was taken
    std::uint64_t committed_ = 0; // up to which one all is stored
    clock::time_point first_{};   // when the oldest of rows_ came
    clock::time_point folded_{};
    clock::time_point pruned_ = clock::now() - std::chrono::hours(1);
    clock::time_point came_{}; // when the newest report came
    moment newest_ = 0;        // its time of receipt
    std::uint64_t refused_ = 0, expired_ = 0;
    clock::time_point next_{}; // not to be tried before
    std::chrono::milliseconds delay_{0};
    bool failing_ = false;
};
