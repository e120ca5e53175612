// wsmd - station management daemon of a wireless access point. No arguments, no environment.

#include "base/cxx/ubox.h"
#include "core/init.h"
#include "core/lock.h"

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

namespace {

void hold_signals(int how) {
    sigset_t stop;
    sigemptyset(&stop);
    sigaddset(&stop, SIGINT);
    sigaddset(&stop, SIGTERM);
    sigprocmask(how, &stop, nullptr);
}

// The loop forgets a stop that comes before it runs: such signals wait for its first turn.
void release_signals(struct uloop_timeout * /*timer*/) { hold_signals(SIG_UNBLOCK); }

struct uloop_timeout release_timer = {};

// What a walk over the table needs goes back to the system when the walk ends. Left to itself the C library keeps large blocks
// in the heap once it has seen one given back, between the records of stations: half as much again as those.
void give_large_blocks_back() {
#ifdef __GLIBC__
    constexpr int large = 32 * 1024;
    mallopt(M_MMAP_THRESHOLD, large);
    mallopt(M_TRIM_THRESHOLD, large);
    mallopt(M_TOP_PAD, large);
#endif
}

// A missing standard descriptor would be the number of the next file that is opened, and what is printed would go there.
void open_standard_descriptors() {
    for (int fd = open("/dev/null", O_RDWR); fd >= 0; fd = open("/dev/null", O_RDWR)) {
        if (fd <= STDERR_FILENO) continue;
        close(fd);
        return;
    }
}

} // namespace

int main() {
    give_large_blocks_back();
    open_standard_descriptors();
    std::signal(SIGPIPE, SIG_IGN);
    if (!sta_file_lock()) return -1;
    hold_signals(SIG_BLOCK);
    uloop_init();
    std::signal(SIGPIPE, SIG_IGN); // whatever the library's own set-up made of it
    sta_init();
    release_timer.cb = release_signals;
    uloop_timeout_set(&release_timer, 0);
    uloop_run();
    hold_signals(SIG_BLOCK); // a second one would find the defaults again, and kill before the clean-up
    uloop_done();
    sta_deinit();
}
