/* A clock that tests can move: preloaded into the daemon, it adds the offsets in "/tmp/clock" to the kernel's time, and it
 * can skip time while the daemon has nothing to do. The daemon itself is unchanged. A process without such a file at its
 * start has the kernel's time. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <stdint.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

/* The file, in host order. Only `skipped` is written here. */
struct clock_file {
    int64_t monotonic; /* seconds added to the time since boot */
    int64_t wall;      /* seconds added to the time of day */
    int64_t allowed;   /* milliseconds in all that idle waiting may skip; 0: none */
    int64_t skipped;   /* milliseconds skipped so far, added to both clocks */
};

static struct clock_file kernel_time;
static struct clock_file *shared = &kernel_time;

__attribute__((constructor)) static void map_file(void) {
    const int fd = open("/tmp/clock", O_RDWR | O_CLOEXEC);
    if (fd < 0) return;
    void *there = mmap(NULL, sizeof(struct clock_file), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (there != MAP_FAILED) shared = there;
    close(fd);
}

static int64_t get(const int64_t *value) { return __atomic_load_n(value, __ATOMIC_ACQUIRE); }

int clock_gettime(clockid_t id, struct timespec *now) {
    const int64_t skipped = get(&shared->skipped);
    const int result = (int)syscall(SYS_clock_gettime, id, now);
    if (result != 0 || (id != CLOCK_REALTIME && id != CLOCK_MONOTONIC)) return result;
    now->tv_sec += get(id == CLOCK_REALTIME ? &shared->wall : &shared->monotonic) + skipped / 1000;
    now->tv_nsec += skipped % 1000 * 1000000;
    if (now->tv_nsec >= 1000000000) {
        now->tv_nsec -= 1000000000;
        ++now->tv_sec;
    }
    return 0;
}

time_t time(time_t *out) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (out) *out = now.tv_sec;
    return now.tv_sec;
}

int gettimeofday(struct timeval *restrict now, void *restrict zone) {
    struct timespec precise;
    (void)zone;
    clock_gettime(CLOCK_REALTIME, &precise);
    now->tv_sec = precise.tv_sec;
    now->tv_usec = precise.tv_nsec / 1000;
    return 0;
}

int sysinfo(struct sysinfo *info) {
    const int result = (int)syscall(SYS_sysinfo, info);
    if (result == 0) info->uptime += get(&shared->monotonic) + get(&shared->skipped) / 1000;
    return result;
}

/* If nothing is ready, the rest of the allowance passes at once, up to the time that the caller would wait. A later
 * allowance does not wake us, so the remaining time is waited for in short pieces. */
int epoll_wait(int fd, struct epoll_event *events, int max, int timeout) {
    static int (*wait)(int, struct epoll_event *, int, int);
    if (!wait) wait = (int (*)(int, struct epoll_event *, int, int))dlsym(RTLD_NEXT, "epoll_wait");
    if (timeout == 0 || get(&shared->allowed) == 0) return wait(fd, events, max, timeout);
    for (int piece = 0;;) {
        const int ready = wait(fd, events, max, piece);
        if (ready != 0) return ready;
        if (timeout > 0) timeout -= piece;
        const int64_t left = get(&shared->allowed) - get(&shared->skipped);
        const int64_t step = timeout >= 0 && timeout < left ? timeout : left;
        if (step > 0) {
            __atomic_add_fetch(&shared->skipped, step, __ATOMIC_RELEASE);
            if (timeout > 0) timeout -= (int)step;
        }
        if (timeout == 0) return 0;
        piece = 1;
    }
}
