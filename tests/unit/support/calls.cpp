#include "support/calls.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <linux/genetlink.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/sysinfo.h>

std::function<long(const byte_vector &bytes)> answer_sendto;
std::function<long(void *buffer, std::size_t size)> answer_recv;
int fail_socket = 0;
int fail_bind = 0;
int fail_getsockname = 0;

std::vector<sent_message> &sent_messages() {
    static std::vector<sent_message> all;
    return all;
}

namespace {
int failed(int reason) {
    errno = reason;
    return -1;
}

// The number in `size` bytes, lowest first, before or after their order is reversed.
std::size_t turn(byte_vector &message, std::size_t offset, std::size_t size, bool typed) {
    if (offset + size > message.size()) return 0;
    std::size_t number = 0;
    const auto begin = message.begin() + static_cast<long>(offset), end = begin + static_cast<long>(size);
    if (!typed) std::reverse(begin, end);
    for (std::size_t i = size; i-- > 0;) number = number << 8 | message[offset + i];
    if (typed) std::reverse(begin, end);
    return number;
}
} // namespace

byte_vector turned(byte_vector message, bool typed) {
    if constexpr (std::endian::native == std::endian::little) return message;
    turn(message, offsetof(nlmsghdr, nlmsg_len), 4, typed);
    const std::size_t type = turn(message, offsetof(nlmsghdr, nlmsg_type), 2, typed);
    turn(message, offsetof(nlmsghdr, nlmsg_flags), 2, typed);
    turn(message, offsetof(nlmsghdr, nlmsg_seq), 4, typed);
    turn(message, offsetof(nlmsghdr, nlmsg_pid), 4, typed);
    for (std::size_t at = sizeof(nlmsghdr) + sizeof(genlmsghdr); at + sizeof(nlattr) <= message.size();) {
        const std::size_t length = turn(message, at, 2, typed), attribute = turn(message, at + 2, 2, typed);
        if (type == GENL_ID_CTRL && attribute == CTRL_ATTR_FAMILY_ID)
            turn(message, at + sizeof(nlattr), 2, typed);
        at += (std::max(length, sizeof(nlattr)) + 3) / 4 * 4; // each begins on a multiple of four
    }
    return message;
}

extern "C" {
int __real_socket(int domain, int type, int protocol);
int __real_bind(int fd, const sockaddr *address, socklen_t size);
int __real_getsockname(int fd, sockaddr *address, socklen_t *size);
ssize_t __real_sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *address,
                      socklen_t length);
ssize_t __real_recv(int fd, void *buffer, size_t size, int flags);
int __real_clock_gettime(clockid_t clock, timespec *now);
int __real_sysinfo(struct sysinfo *system);
int __wrap_socket(int domain, int type, int protocol);
int __wrap_bind(int fd, const sockaddr *address, socklen_t size);
int __wrap_getsockname(int fd, sockaddr *address, socklen_t *size);
ssize_t __wrap_sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *address,
                      socklen_t length);
ssize_t __wrap_recv(int fd, void *buffer, size_t size, int flags);
int __wrap_clock_gettime(clockid_t clock, timespec *now);
int __wrap_sysinfo(struct sysinfo *system);

int __wrap_socket(int domain, int type, int protocol) {
    return fail_socket ? failed(fail_socket) : __real_socket(domain, type, protocol);
}

int __wrap_bind(int fd, const sockaddr *address, socklen_t size) {
    return fail_bind ? failed(fail_bind) : __real_bind(fd, address, size);
}

int __wrap_getsockname(int fd, sockaddr *address, socklen_t *size) {
    return fail_getsockname ? failed(fail_getsockname) : __real_getsockname(fd, address, size);
}

ssize_t __wrap_sendto(int fd, const void *bytes, size_t size, int flags, const sockaddr *address,
                      socklen_t length) {
    const auto *from = static_cast<const std::uint8_t *>(bytes);
    const auto *to = reinterpret_cast<const std::uint8_t *>(address);
    sent_messages().push_back({fd, turned({from, from + size}, false), {to, to + length}, flags});
    return answer_sendto ? answer_sendto(sent_messages().back().bytes)
                         : __real_sendto(fd, bytes, size, flags, address, length);
}

ssize_t __wrap_recv(int fd, void *buffer, size_t size, int flags) {
    return answer_recv ? answer_recv(buffer, size) : __real_recv(fd, buffer, size, flags);
}

int __wrap_clock_gettime(clockid_t clock, timespec *now) {
    const int result = __real_clock_gettime(clock, now);
    if (clock == CLOCK_MONOTONIC) *now = {0x01020304, 0x05060708};
    return result;
}

int __wrap_sysinfo(struct sysinfo *system) {
    const int result = __real_sysinfo(system);
    system->uptime = 500;
    return result;
}
}

Channel::Channel() {
    sent_messages().clear();
    answer_sendto = nullptr;
    answer_recv = nullptr;
    fail_socket = fail_bind = fail_getsockname = 0;
}

Channel::~Channel() {
    answer_sendto = nullptr;
    answer_recv = nullptr;
    fail_socket = fail_bind = fail_getsockname = 0;
}

void receive(std::vector<byte_vector> messages) {
    answer_recv = [messages = std::move(messages), next = std::size_t{0}](void *buffer,
                                                                          std::size_t size) mutable -> long {
        if (next == messages.size()) return failed(EAGAIN);
        const byte_vector one = turned(messages[next++], true);
        const std::size_t used = std::min(size, one.size());
        std::copy_n(one.begin(), used, static_cast<std::uint8_t *>(buffer));
        return static_cast<long>(used);
    };
}
