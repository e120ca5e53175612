// commands.h - what the uci tool does for each of its commands.
#pragma once

#include <uci.h>

#include <cstdio>
#include <optional>

namespace cli {

struct settings {
    const char *program = "uci"; // prefix of messages
    const char *delimiter = " "; // between the items of a list
    FILE *input = stdin;         // of batch and import
    bool quiet = false;
    bool merge = false;      // import adds to what is there
    bool no_commit = false;  // changes stay in the delta folder
    bool real_names = false; // show generated section names, not @type[index]
};

inline constexpr int wrong_usage = 255;

// Runs one command, argv[0] being its name in any case. The exit status, or wrong_usage for an unknown
// command and for a wrong number of arguments, about which nothing has been printed yet.
int run(uci_context *ctx, const settings &set, int argc, char **argv);

// Prints the library's last error, unless messages are switched off.
void complain(uci_context *ctx, const settings &set);

} // namespace cli
