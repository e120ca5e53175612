// One connection per request. Nothing is kept between two calls, so a restarted driver is found again, a child process
// shares nothing, and an answer cannot be mistaken for that of an earlier request. The price is a connect.
#include "was/was_request.h"
#include "protocol/was_wire.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

struct connection {
    explicit connection(const char *path) noexcept;
    ~connection() {
        if (fd >= 0) close(fd);
    }
    connection(connection &&) = delete;
    int fd;
};

connection::connection(const char *path) noexcept : fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::size_t length = std::strlen(path);
    if (fd < 0 || length >= sizeof(address.sun_path)) {
        if (fd >= 0) close(fd);
        fd = -1;
        return;
    }
    std::memcpy(address.sun_path, path, length);
    int result = 0;
    do result = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
    while (result != 0 && errno == EINTR);
    if (result == 0) return;
    close(fd);
    fd = -1;
}

// Both in one piece, so that the driver wakes up once.
bool send_all(int fd, const void *head, std::size_t head_size, const void *data, std::size_t size) noexcept {
    iovec parts[2] = {{const_cast<void *>(head), head_size}, {const_cast<void *>(data), size}};
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = 2;
    while (parts[0].iov_len + parts[1].iov_len > 0) {
        const ssize_t sent = sendmsg(fd, &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        auto left = static_cast<std::size_t>(sent);
        for (iovec &part : parts) {
            const std::size_t gone = std::min(left, part.iov_len);
            part.iov_base = static_cast<char *>(part.iov_base) + gone;
            part.iov_len -= gone;
            left -= gone;
        }
    }
    return true;
}

// False also when the peer closes before `size` bytes have arrived.
bool receive_all(int fd, void *data, std::size_t size) noexcept {
    auto *next = static_cast<char *>(data);
    while (size > 0) {
        const ssize_t got = recv(fd, next, size, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        next += got;
        size -= static_cast<std::size_t>(got);
    }
    return true;
}

} // namespace

int was_request(const char *path, void *buf, int size, const char *ifname, int cmd, int arg) noexcept {
    if (!ifname || size < 0 || static_cast<std::uint32_t>(size) > was_size_max || (size > 0 && !buf))
        return -1;
    const auto bytes = static_cast<std::size_t>(size);
    std::uint8_t request[was_request_header] = {};
    wire::put<std::int32_t>(request + was_request_cmd, cmd);
    wire::put<std::int32_t>(request + was_request_arg, arg);
    wire::put<std::uint32_t>(request + was_request_size, static_cast<std::uint32_t>(size));
    std::memcpy(request + was_request_ifname, ifname, strnlen(ifname, was_ifname_size));

    const connection driver(path);
    if (driver.fd < 0 || !send_all(driver.fd, request, sizeof(request), buf, bytes)) return -1;

    std::uint8_t answer[was_answer_header];
    if (!receive_all(driver.fd, answer, sizeof(answer))) return -1;
    const auto answered = wire::get<std::uint32_t>(answer + was_answer_size);
    if (answered > bytes || !receive_all(driver.fd, buf, answered)) return -1;
    return wire::get<std::int32_t>(answer + was_answer_result);
}
