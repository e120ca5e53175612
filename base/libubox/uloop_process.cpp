// Child processes: a list in the order of their ids.
#include "uloop_internal.h"

#include <cerrno>
#include <sys/wait.h>

namespace {

LIST_HEAD(processes);

// Calls back all watchers of the child that has died.
void report(pid_t pid, int status) {
    // On a list of their own, from which a callback can still delete them, so that one that is added again
    // for a new child with that id is not called for this one.
    LIST_HEAD(watchers);
    uloop_process *p;
    uloop_process *next;
    list_for_each_entry_safe (p, next, &processes, list) {
        if (p->pid > pid) break;
        if (p->pid == pid) list_move_tail(&p->list, &watchers);
    }
    while (!list_empty(&watchers)) {
        p = list_first_entry(&watchers, uloop_process, list);
        uloop_process_delete(p);
        if (p->cb) p->cb(p, status);
    }
}

} // namespace

int uloop_process_add(uloop_process *p) {
    if (p->pending) return -1;
    list_head *place = &processes;
    uloop_process *other;
    list_for_each_entry_reverse(other, &processes, list) {
        if (other->pid <= p->pid) break;
        place = &other->list;
    }
    list_add_tail(&p->list, place);
    p->pending = true;
    return 0;
}

int uloop_process_delete(uloop_process *p) {
    if (!p->pending) return -1;
    list_del(&p->list);
    p->pending = false;
    return 0;
}

void uloop_processes_reap() {
    int status;
    pid_t pid;
    while ((pid = waitpid(-1, &status, WNOHANG)) > 0 || (pid < 0 && errno == EINTR)) {
        if (pid > 0) report(pid, status);
    }
}

void uloop_processes_clear() {
    uloop_process *p;
    uloop_process *next;
    list_for_each_entry_safe (p, next, &processes, list) uloop_process_delete(p);
}
