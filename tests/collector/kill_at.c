/* Preloaded: the process is killed just before its Nth call that changes a file, N from the environment variable KILL_AT.
 * Without it the calls are counted, and their number is written to the file that KILL_COUNT names when the process ends. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <stdatomic.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/types.h>
#include <unistd.h>

static atomic_int calls;

static void count(void) {
    const char *at = getenv("KILL_AT");
    int number = atomic_fetch_add(&calls, 1) + 1;
    if (at && number == atoi(at)) kill(getpid(), SIGKILL);
}

__attribute__((destructor)) static void tell(void) {
    const char *name = getenv("KILL_COUNT");
    FILE *file = name ? fopen(name, "w") : NULL;
    if (!file) return;
    fprintf(file, "%d", atomic_load(&calls));
    fclose(file);
}

#define NEXT(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))

ssize_t pwrite(int fd, const void *from, size_t size, off_t at) {
    return count(), NEXT(pwrite)(fd, from, size, at);
}
ssize_t pwrite64(int fd, const void *from, size_t size, off64_t at) {
    return count(), NEXT(pwrite64)(fd, from, size, at);
}
ssize_t write(int fd, const void *from, size_t size) { return count(), NEXT(write)(fd, from, size); }
int ftruncate(int fd, off_t size) { return count(), NEXT(ftruncate)(fd, size); }
int ftruncate64(int fd, off64_t size) { return count(), NEXT(ftruncate64)(fd, size); }
int fsync(int fd) { return count(), NEXT(fsync)(fd); }
int fdatasync(int fd) { return count(), NEXT(fdatasync)(fd); }
int unlink(const char *path) { return count(), NEXT(unlink)(path); }
int rename(const char *from, const char *to) { return count(), NEXT(rename)(from, to); }
void *mmap(void *at, size_t size, int how, int flags, int fd, off_t offset) {
    if (fd >= 0) count(); /* the shared index of the write-ahead log */
    return NEXT(mmap)(at, size, how, flags, fd, offset);
}
