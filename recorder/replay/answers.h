// answers.h - finding the recorded driver's answer to a daemon's request.
#pragma once

#include "record/recording.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

// One request of the daemon.
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
        bool is_next;       // false: the last one again, since the daemon asks more often
    };
    // The next answer to the same question that was recorded about `now`, otherwise the one before it; nothing if
    // the question was never recorded.
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
