// settings.h - what the options of the command line ask for.
#pragma once

#include <cstdio>

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

} // namespace cli
