#include "tools/stop.h"

#include "base/cxx/ubox.h"

#include <csignal>

bool sta_stop_pending() {
    sigset_t held;
    sigemptyset(&held);
    sigpending(&held);
    return uloop_cancelled || sigismember(&held, SIGINT) == 1 || sigismember(&held, SIGTERM) == 1;
}
