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

// The loop forgets a stop signal that arrives before it runs, so signals are blocked until its first turn.
void release_signals(struct uloop_timeout * /*timer*/) { hold_signals(SIG_UNBLOCK); }

struct uloop_timeout release_timer = {};

// Large blocks, which a walk over the table needs, go back to the system when the walk ends. By default the C library moves
// its limit up after the first such block is freed and then keeps them in the heap, between the records of stations; the heap
// becomes half as large again.
void give_large_blocks_back() {
#ifdef __GLIBC__
    constexpr int large = 32 * 1024;
    mallopt(M_MMAP_THRESHOLD, large);
    mallopt(M_TRIM_THRESHOLD, large);
    mallopt(M_TOP_PAD, large);
#endif
}

// If a standard descriptor is closed, the next file that is opened gets its number, and printed text would go into that file.
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
    std::signal(SIGPIPE, SIG_IGN); // again: the library's set-up may have changed it
    sta_init();
    release_timer.cb = release_signals;
    uloop_timeout_set(&release_timer, 0);
    uloop_run();
    hold_signals(SIG_BLOCK); // uloop_done restores the defaults: a second one would kill before the clean-up
    uloop_done();
    sta_deinit();
}
