// sqlite_store.h - the output that keeps stays, events and time series in a database file.
//
// It writes in batches: a power cut loses only what came since the last batch. A damaged file is renamed to
// FILE.damaged-TIME and a new one is begun. When the disk is full, up to `most_pending` samples and events are kept, and
// further ones are dropped and counted; stays are never dropped, and are written when there is space again.
#pragma once

#include "collector/output.h"
#include "collector/store/sqlite.h"
#include "collector/store/store_options.h"

#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

class sqlite_store : public output {
public:
    // Opens or makes the file. Throws sqlite_error when neither is possible.
    explicit sqlite_store(store_options chosen);
    ~sqlite_store() override;

    // The stays that were open when the file was last written, and the number for the next one.
    std::vector<stay> open_stays();
    std::int64_t next_stay();

    void take(const message &one) override;
    void settle() override;
    int pulse() const override { return 500; }
    bool finish() override;

private:
    struct sample {
        moment at;
        std::int64_t stay;
        int signal; // 0: none
        std::int64_t up, down;
        int rate_up, rate_down;
    };
    struct event {
        change_kind kind;
        moment at;
        std::int64_t stay;
        std::string ap;
        int radio;
        std::string from_ap;
        int from_radio;
    };
    struct air {
        moment at = 0;
        int noise = 0;
        int utilization = 0;
        bool fresh = false;
    };
    struct statements;
    using place = std::pair<std::string, int>;

    void open();
    void open_anew(const std::string &why);
    bool write();
    void tell();
    void write_batch();
    void write_stay(const stay &one);
    void prune();
    bool prune_once();

    store_options chosen_;
    std::unique_ptr<database> db_;
    std::unique_ptr<statements> made_;
    std::unordered_map<std::int64_t, stay> dirty_;
    std::deque<sample> samples_;
    std::deque<event> events_;
    std::deque<std::pair<place, std::tuple<moment, int, int, int>>> airs_;
    std::unordered_map<std::int64_t, moment> sampled_; // open stays
    std::map<place, air> radios_;
    std::map<place, int> population_;
    std::unordered_map<std::int64_t, place> where_;
    std::uint64_t dropped_ = 0;
    std::uint64_t ticket_ = 0; // of the last message taken
    std::uint64_t told_ = 0;   // everything up to it is stored
    bool failing_ = false;
    moment clock_ = 0; // of the messages
    std::chrono::steady_clock::time_point written_ = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point pruned_{};
};
