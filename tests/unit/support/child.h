// child.h - a function in a process of its own: for what ends the process.
#pragma once

#include <functional>
#include <string>
#include <sys/types.h>

struct child_end {
    bool exited = false; // false: killed by a signal
    int status = 0;      // exit status, or the signal
    std::string output;  // standard output and error
};

// Runs `function` in a forked process, which exits with status 0 when it returns, and waits for its end. The
// recorded log is then the process's. The test fails when the process had blocks of the counting allocator that
// nobody owned when it exited.
child_end run_in_child(const std::function<void()> &function);
