// One block for several objects, directories with their parents, ring buffers.
#include <libubox/utils.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>

namespace {

constexpr std::size_t aligned(std::size_t n) {
    return (n + sizeof(std::size_t) - 1) & ~(sizeof(std::size_t) - 1);
}

bool is_directory(const char *path) {
    struct stat st;
    return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
}

int make_directory(const char *path, mode_t mask) {
    if (mkdir(path, mask) == 0) return 0;
    return errno == EEXIST && is_directory(path) ? 0 : -1;
}

} // namespace

void *__calloc_a(std::size_t len, ...) {
    std::size_t total = aligned(len);
    bool overflow = total < len;

    std::va_list parts;
    va_start(parts, len);
    while (va_arg(parts, void **)) {
        const std::size_t part = va_arg(parts, std::size_t);
        overflow |= aligned(part) < part || __builtin_add_overflow(total, aligned(part), &total);
    }
    va_end(parts);
    if (overflow) {
        errno = ENOMEM;
        return nullptr;
    }

    char *const block = static_cast<char *>(std::calloc(1, std::max<std::size_t>(total, 1)));
    if (!block) return nullptr;

    char *next = block + aligned(len);
    va_start(parts, len);
    while (void **part = va_arg(parts, void **)) {
        *part = next;
        next += aligned(va_arg(parts, std::size_t));
    }
    va_end(parts);
    return block;
}

int mkdir_p(char *dir, mode_t mask) {
    for (char *slash = std::strchr(dir, '/'); slash; slash = std::strchr(slash + 1, '/')) {
        if (slash == dir) continue; // the root is there
        *slash = 0;
        const int ret = make_directory(dir, mask);
        *slash = '/';
        if (ret < 0) return -1;
    }
    return make_directory(dir, mask);
}

void *cbuf_alloc(unsigned int order) {
    const std::size_t size = cbuf_size(order);
    const int fd = memfd_create("cbuf", MFD_CLOEXEC);
    if (fd < 0) return nullptr;

    // The first mapping only reserves a free range of twice the size; the two real mappings replace it.
    void *range = MAP_FAILED;
    if (ftruncate(fd, static_cast<off_t>(size)) == 0)
        range = mmap(nullptr, 2 * size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (range != MAP_FAILED) {
        for (char *half : {static_cast<char *>(range), static_cast<char *>(range) + size}) {
            if (mmap(half, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd, 0) != MAP_FAILED)
                continue;
            munmap(range, 2 * size);
            range = MAP_FAILED;
            break;
        }
    }
    close(fd);
    return range == MAP_FAILED ? nullptr : range;
}

void cbuf_free(void *ptr, unsigned int order) {
    if (ptr) munmap(ptr, 2 * cbuf_size(order));
}
