// ledger.h - a list of all reports and stays of a fleet, for comparing it with a store.
//
// Format: a line per report, "report AP BOOT SEQ", when it is made; at the end a line per stay,
//         "stay MAC AP BEGAN ENDED REPORTS", with times in seconds since 1970 and 0 for an open one.
#pragma once

#include <cstdint>
#include <cstdio>
#include <map>
#include <string>

class fleet_ledger {
public:
    // Throws std::runtime_error when the file cannot be written; an empty path keeps nothing.
    explicit fleet_ledger(const std::string &path);
    ~fleet_ledger();
    fleet_ledger(fleet_ledger &&) = delete;

    void report(const std::string &ap, const std::string &boot, std::uint64_t seq);
    // A report of this station: begins its stay, continues it, or ends it (`ended` is not 0).
    void station(const std::string &mac, const std::string &ap, std::int64_t began, std::int64_t ended);
    // Writes everything so far, so that others can read it.
    void flush();
    // False: something was not written.
    bool finish();

    std::uint64_t reports() const { return reports_; }

private:
    struct kept {
        std::string ap;
        std::int64_t began;
        std::int64_t ended;
        std::uint64_t reports;
    };
    std::FILE *file_ = nullptr;
    std::map<std::string, kept> stays_; // by MAC: each station of the fleet has one stay
    std::uint64_t reports_ = 0;
};
