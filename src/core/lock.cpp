#include "core/lock.h"

#include <fcntl.h>
#include <unistd.h>

bool sta_file_lock() {
    const int fd = open("/tmp/.sta_file_lockpath", O_RDWR | O_CREAT | O_CLOEXEC, 0700);
    if (fd < 0) return false;
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (fcntl(fd, F_SETLK, &whole) == 0) return true;
    close(fd);
    return false;
}
