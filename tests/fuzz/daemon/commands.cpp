// The commands that a restore runs, without a shell: starting processes out of an instrumented one takes a hundred times
// as long as all that an input does otherwise. Other commands are not there.
#include "support/files.h"
#include "tools/command.h"

#include <string_view>

extern "C" {
int __wrap_sta_execute(const char *format, ...); // the linker leads the daemon's calls here (--wrap)

int __wrap_sta_execute(const char *format, ...) {
    constexpr int not_found = 127;
    const std::string_view command = format;
    if (command == "cp /tmp/sta_sta.info /tmp/sta_tmp.info")
        write_file("/tmp/sta_tmp.info", read_file("/tmp/sta_sta.info"));
    else if (command == "cat /dev/null > /tmp/sta_sta.info")
        write_file("/tmp/sta_sta.info", "");
    else
        return not_found;
    return 0;
}
}
