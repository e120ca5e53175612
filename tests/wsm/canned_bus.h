// canned_bus.h - a bus of the test's own: it records the tool's calls, and gives prepared answers. The functions of the bus
// library that the tool calls are defined here, and so found before the library's.
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

    std::vector<content> answers;            // one per call; when none is left the daemon does not answer
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

// What a function has written to standard output and standard error, in a UTF-8 locale.
struct shown {
    exit_status status;
    std::string out, error;
};
shown screen_of(const std::function<exit_status()> &work);

// The first part of a text that must not reach a terminal: a control character, one that changes the direction of writing, or
// bytes that are not UTF-8. Empty: there is none.
std::string unfit_for_a_terminal(const std::string &text);

// Columns of the widest line.
int widest_line(const std::string &text);
