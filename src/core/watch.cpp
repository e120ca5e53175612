#include "core/watch.h"

#include "base/cxx/ubox.h"
#include "tools/command.h"
#include "tools/health.h"

namespace {

constexpr int poll_ms = 10000;

struct file_watcher {
    const char *path;
    void (*copy)(void); // run on a change, before the callback
    void (*callback)(void);
    std::time_t seen; // modification time, seconds; 0 at first
    uloop_timeout timer;
};

void copy_snoop() { sta_execute("cp -a /tmp/snoop_ip /tmp/snoop_ip_bak"); }

file_watcher wsmd_watcher = {"/etc/config/wsmd", nullptr, nullptr, 0, {}};
file_watcher dhcp_watcher = {"/tmp/dhcp.leases", nullptr, nullptr, 0, {}};
file_watcher snoop_watcher = {"/tmp/snoop_ip", copy_snoop, nullptr, 0, {}};

bool has_changed(file_watcher &watcher) {
    struct stat now {};
    if (stat(watcher.path, &now) != 0 || now.st_mtime == watcher.seen) return false;
    watcher.seen = now.st_mtime; // before the callback, so that a change made by the callback is seen
    if (watcher.copy) watcher.copy();
    return true;
}

void poll_file(uloop_timeout *timer) {
    const sta_turn turn{"file watch"};
    file_watcher &watcher = *container_of(timer, file_watcher, timer);
    if (watcher.callback && has_changed(watcher)) watcher.callback();
    timer->cb = poll_file;
    uloop_timeout_set(timer, poll_ms);
}

void start(file_watcher &watcher, void (*callback)(void)) {
    watcher.callback = callback;
    uloop_timeout_cancel(&watcher.timer);
    poll_file(&watcher.timer);
}

} // namespace

void sta_control_wsmd_init(void (*callback)(void)) { start(wsmd_watcher, callback); }

void sta_control_dhcp_init(void (*callback)(void)) { start(dhcp_watcher, callback); }

void sta_control_snoop_init(void (*callback)(void)) { start(snoop_watcher, callback); }
