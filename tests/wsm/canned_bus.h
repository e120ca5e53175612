// canned_bus.h - a bus of the test's own: it keeps what the tool asks, and gives the answers that were laid ready. The functions
// of the bus library that the tool calls are defined here, and so found before the library's.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "wsm/lists.h"

// The content of a message, as it came from a socket: any bytes.
using content = std::vector<std::uint8_t>;

// The members of a JSON text.
content content_of(const char *json);

struct canned_bus {
    canned_bus();
    ~canned_bus();
    canned_bus(const canned_bus &) = delete;

    struct notification {
        std::string kind;
        content message;
    };

    std::vector<content> answers;            // one a call; when there are no more, the daemon is silent
    std::vector<notification> notifications; // then the daemon goes
    int status = 0;                          // of each call with an answer
    int object = 0;                          // status of the look-up of an object

    // What was asked: "OBJECT METHOD ARGUMENTS", the arguments as JSON.
    std::vector<std::string> asked() const;

    struct ubus_context *context() {
        return &here;
    }

    struct question {
        std::string method;
        content arguments;
    };
    std::vector<question> questions;

private:
    struct ubus_context here = {};
};

// What a piece of work has written to standard output and standard error, in a locale of UTF-8.
struct shown {
    exit_status status;
    std::string out, error;
};
shown screen_of(const std::function<exit_status()> &work);

// The first thing in a text that must not reach a terminal: a control character, one that turns the direction of writing, what is
// no UTF-8. Empty: it is fit.
std::string unfit_for_a_terminal(const std::string &text);

// Columns of the widest line.
int widest_line(const std::string &text);
