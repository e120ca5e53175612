// commands.h - the commands of the `ubus` program.
//
// A command gets the arguments after its name and returns what becomes the exit status (its low byte): 0, a
// status of the bus (which main() also prints), or a negative number. bad_usage makes main() print the usage.
#ifndef UBUS_COMMANDS_H
#define UBUS_COMMANDS_H

#include <cstddef>
#include <cstdint>
#include <span>

#include <libubus.h>

namespace ubus_cli {

struct options {
    int timeout; // seconds; negative = not given
    bool simple; // for scripts
    bool verbose;
    unsigned types; // monitor: bit per message type; 0 = all
    char direction; // monitor: 'r', 't' or 0 = both
};

inline constexpr int failed = -1;
inline constexpr int bad_usage = -2;
inline constexpr int default_timeout = 30; // seconds

using arguments = std::span<char *const>;
using command = int (*)(ubus_context *ctx, const options &opt, arguments args);

int list(ubus_context *ctx, const options &opt, arguments args);
int call(ubus_context *ctx, const options &opt, arguments args);
int send(ubus_context *ctx, const options &opt, arguments args);
int listen(ubus_context *ctx, const options &opt, arguments args);
int subscribe(ubus_context *ctx, const options &opt, arguments args);
int wait_for(ubus_context *ctx, const options &opt, arguments args);
int monitor(ubus_context *ctx, const options &opt, arguments args);

// Bit of a message type for options.types, by its name; 0 if there is none.
unsigned message_type(const char *name);

// Runs the loop until a signal ends it, or for opt.timeout seconds if that is positive.
void run_loop(ubus_context *ctx, const options &opt);
// Prints fields as `{ "name": {...} }` on a line of its own.
void print_event(const char *name, blob_attr *fields);

} // namespace ubus_cli

#endif
