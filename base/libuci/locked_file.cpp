#include "locked_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace uci {
namespace {

// Opens path with the lock, and opens it again if a commit has replaced the file while we waited.
int open_with_lock(const char *path, int flags, mode_t mode, lock kind, file_ptr *file) {
    for (;;) {
        const int fd = open(path, flags | O_CLOEXEC | O_NONBLOCK, mode);
        if (fd < 0) return errno == ENOENT ? UCI_ERR_NOTFOUND : UCI_ERR_IO;
        file_ptr opened(fdopen(fd, (flags & O_ACCMODE) == O_RDWR ? "r+" : "r"));
        if (!opened) {
            (void)close(fd);
            return UCI_ERR_MEM;
        }
        while (flock(fd, kind == lock::shared ? LOCK_SH : LOCK_EX) != 0) {
            if (errno != EINTR) return UCI_ERR_IO;
        }
        struct stat ours, there;
        if (fstat(fd, &ours) != 0) return UCI_ERR_IO;
        if (!S_ISREG(ours.st_mode)) return UCI_ERR_NOTFOUND;
        if (stat(path, &there) == 0 && there.st_ino == ours.st_ino && there.st_dev == ours.st_dev) {
            *file = std::move(opened);
            return UCI_OK;
        }
    }
}

} // namespace

bool is_regular(const char *path) {
    struct stat st;
    return stat(path, &st) == 0 && S_ISREG(st.st_mode);
}

text_ptr join_path(const char *dir, const char *name) {
    char *path = nullptr;
    return text_ptr(asprintf(&path, "%s/%s", dir, name) < 0 ? nullptr : path);
}

int open_locked(const char *path, lock kind, file_ptr *file) {
    if (!is_regular(path)) return UCI_ERR_NOTFOUND;
    return open_with_lock(path, kind == lock::shared ? O_RDONLY : O_RDWR, 0, kind, file);
}

int create_locked(const char *path, mode_t mode, file_ptr *file) {
    return open_with_lock(path, O_RDWR | O_CREAT, mode, lock::exclusive, file);
}

mode_t mode_of(const char *path, mode_t otherwise) {
    struct stat st;
    return stat(path, &st) == 0 ? st.st_mode & 0777 : otherwise;
}

} // namespace uci
