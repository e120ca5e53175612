// commands.h - what the uci tool does for each of its commands.
#pragma once

#include "settings.h"

#include <uci.h>

namespace cli {

inline constexpr int wrong_usage = 255;

// Runs one command, argv[0] being its name in any case. The exit status, or wrong_usage for an unknown
// command and for a wrong number of arguments, about which nothing has been printed yet.
int run(uci_context *ctx, const settings &set, int argc, char **argv);

// Prints the library's last error, unless messages are switched off.
void complain(uci_context *ctx, const settings &set);

} // namespace cli
