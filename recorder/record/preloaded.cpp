// The recorder as a library that is loaded before the daemon: it begins and ends with the process.
#include "record/recorder.h"
#include "record/watched_files.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

// Restores the environment: removes our library, the last one in the list of preloaded ones.
void leave_environment() {
    unsetenv("WSM_RECORD");
    const char *preloaded = std::getenv("LD_PRELOAD");
    const char *ours = preloaded ? std::strrchr(preloaded, ':') : nullptr;
    char *others = ours ? strndup(preloaded, static_cast<std::size_t>(ours - preloaded)) : nullptr;
    if (others)
        setenv("LD_PRELOAD", others, 1);
    else
        unsetenv("LD_PRELOAD");
    std::free(others);
}

__attribute__((constructor)) void start() {
    const char *order = std::getenv("WSM_RECORD");
    int fd = -1;
    std::uint64_t limit = 0;
    if (!order || std::sscanf(order, "%d %" SCNu64, &fd, &limit) != 2) return;
    leave_environment();
    if (fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) return;
    recorder_begin(fd, limit);
    watched_files_take_all();
}

__attribute__((destructor)) void finish() {
    if (recorder_runs()) recorder_write(record_end, recorder_now(), {});
}

} // namespace

// Lets wsm-record, which is linked with the library, find the library's file.
extern "C" __attribute__((visibility("default"))) void wsm_recorder(void);
extern "C" void wsm_recorder(void) {}
