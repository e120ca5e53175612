// The functions through which a daemon receives data. They replace those of the C library and of libwas: each calls the
// real one and records its result.
#include "record/recorder.h"
#include "record/watched_files.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <linux/netlink.h>
#include <sys/socket.h>

namespace {

template <class Function> Function *next(Function *&real, const char *name) {
    if (!real) real = reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
    return real;
}

using recv_function = ssize_t(int, void *, std::size_t, int);
using request_function = int(void *, int, const char *, int, int);
recv_function *real_recv = nullptr;
request_function *real_request = nullptr;

bool is_generic_netlink(int fd) {
    int domain = 0, protocol = -1;
    socklen_t size = sizeof(domain);
    if (getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0 || domain != AF_NETLINK) return false;
    size = sizeof(protocol);
    return getsockopt(fd, SOL_SOCKET, SO_PROTOCOL, &protocol, &size) == 0 && protocol == NETLINK_GENERIC;
}

void record_received(const void *buffer, std::size_t size, ssize_t got, int error) {
    if (got < 0 && (error == EINTR || error == EAGAIN)) return; // the daemon calls again
    watched_files_look();
    const std::uint64_t now = recorder_now();
    if (got >= 0) {
        recorder_write(record_message, now,
                       {recorder_part(buffer, std::min(size, static_cast<std::size_t>(got)))});
        return;
    }
    std::uint8_t number[sizeof(std::int32_t)];
    wire::put<std::int32_t>(number, error);
    recorder_write(record_receive_error, now, {recorder_part(number, sizeof(number))});
}

std::size_t without_zeros(const std::uint8_t *bytes, std::size_t size) {
    while (size > 0 && bytes[size - 1] == 0) --size;
    return size;
}

// A copy of the request, which the answer overwrites. Most of its bytes are zero.
struct request_copy {
    std::uint8_t room[64];
    std::uint8_t *bytes = room;
    std::size_t size;

    request_copy(const void *buffer, std::size_t whole)
        : size(without_zeros(static_cast<const std::uint8_t *>(buffer), whole)) {
        if (size > sizeof(room)) bytes = static_cast<std::uint8_t *>(std::malloc(size));
        if (bytes)
            std::copy_n(static_cast<const std::uint8_t *>(buffer), size, bytes);
        else
            size = 0;
    }
    ~request_copy() {
        if (bytes != room) std::free(bytes);
    }
    request_copy(request_copy &&) = delete;
};

} // namespace

#pragma GCC visibility push(default)

// Declared under another name, since the headers may define the real one inline.
extern "C" ssize_t recorded_recv(int fd, void *buffer, std::size_t size, int flags) __asm__("recv");
extern "C" ssize_t recorded_recv_chk(int fd, void *buffer, std::size_t size, std::size_t room,
                                     int flags) __asm__("__recv_chk");

extern "C" ssize_t recorded_recv(int fd, void *buffer, std::size_t size, int flags) {
    recv_function *real = next(real_recv, "recv");
    const ssize_t got = real(fd, buffer, size, flags);
    const int error = errno;
    if (recorder_runs() && !(flags & MSG_PEEK) && is_generic_netlink(fd))
        record_received(buffer, size, got, error);
    errno = error;
    return got;
}

// The C library's hardening calls this instead of recv() where the compiler knows the buffer's size.
extern "C" ssize_t recorded_recv_chk(int fd, void *buffer, std::size_t size, std::size_t room, int flags) {
    if (size > room) std::abort();
    return recorded_recv(fd, buffer, size, flags);
}

extern "C" int was_ext_ioctl_msg(void *buffer, int size, const char *ifname, int cmd, int arg) {
    request_function *real = next(real_request, "was_ext_ioctl_msg");
    if (!real) return -1;
    const std::size_t whole = buffer && size > 0 ? static_cast<std::size_t>(size) : 0;
    if (!recorder_runs() || whole > request_size_max) return real(buffer, size, ifname, cmd, arg);
    watched_files_look();
    const request_copy asked(buffer, whole);
    const std::uint64_t begin = recorder_now();
    const int result = real(buffer, size, ifname, cmd, arg);
    const int error = errno;
    const std::uint64_t took = recorder_now() - begin;

    std::uint8_t header[request_header] = {};
    wire::put<std::int32_t>(header + request_cmd_offset, cmd);
    wire::put<std::int32_t>(header + request_arg_offset, arg);
    wire::put<std::int32_t>(header + request_result_offset, result);
    wire::put(header + request_took_offset,
              static_cast<std::uint32_t>(std::min<std::uint64_t>(took, UINT32_MAX)));
    wire::put(header + request_size_offset, static_cast<std::uint32_t>(whole));
    wire::put(header + request_asked_offset, static_cast<std::uint32_t>(asked.size));
    if (ifname) std::memcpy(header + request_ifname_offset, ifname, strnlen(ifname, request_ifname_size));
    // After a failure the buffer's content is undefined.
    const std::size_t answered =
        result == 0 ? without_zeros(static_cast<const std::uint8_t *>(buffer), whole) : 0;
    recorder_write(record_request, begin,
                   {recorder_part(header, sizeof(header)), recorder_part(asked.bytes, asked.size),
                    recorder_part(buffer, answered)});
    errno = error;
    return result;
}

#pragma GCC visibility pop
