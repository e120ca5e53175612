// descriptor.h - a file descriptor with an owner.
#pragma once

#include <unistd.h>

// Closes the descriptor it was given; a negative number is none.
class descriptor {
public:
    explicit descriptor(int number) noexcept : fd(number) {}
    ~descriptor() {
        if (fd >= 0) close(fd);
    }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    int get() const noexcept { return fd; }

private:
    int fd;
};
