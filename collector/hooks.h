// hooks.h - the output that runs a program when a station joins, roams or leaves. No shell: values are in its environment.
//
// Bounds: `most_at_once` programs, each for `most_seconds`; then it is killed with its children.
#pragma once

#include "collector/names.h"
#include "collector/output.h"

#include <chrono>
#include <memory>
#include <string>
#include <sys/types.h>
#include <vector>

class hooks : public output {
public:
    hooks(std::string program, std::shared_ptr<const station_names> names, int most_seconds = 10)
        : program_(std::move(program)), names_(std::move(names)), most_seconds_(most_seconds) {}

    void take(const message &one) override;
    void settle() override;
    int pulse() const override { return 200; }
    bool finish() override;

private:
    struct child {
        pid_t pid;
        std::chrono::steady_clock::time_point due;
    };
    static constexpr std::size_t most_at_once = 4;
    void start(const change &what);

    std::string program_;
    std::shared_ptr<const station_names> names_;
    int most_seconds_;
    std::vector<child> running_;
    std::uint64_t failed_ = 0;
};
