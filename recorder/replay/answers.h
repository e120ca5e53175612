// answers.h - what the recorded driver answered, found again for a daemon that asks.
#pragma once

#include "record/recording.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

// One request as the daemon makes it.
struct driver_question {
    int cmd;
    int arg;
    std::string_view ifname;
    recorded::bytes asked; // the whole buffer
};

class recorded_answers {
public:
    // The recording must outlive this.
    explicit recorded_answers(const recording &whole);

    struct found {
        const recorded::request *request;
        std::uint64_t time; // when it was recorded
        bool is_next;       // false: the one given last, because the daemon asks more often than it did
    };
    // The next answer to this very question that was recorded about `now`, else the one before it; nothing when
    // it was never asked.
    std::optional<found> find(const driver_question &question, std::uint64_t now);

private:
    struct answer {
        std::uint64_t time;
        const recorded::request *request;
    };
    struct series {
        std::vector<answer> answers;
        std::size_t next = 0;
    };
    std::map<std::string, series> by_question_;
};
