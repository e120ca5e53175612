#include "queue.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ubusd {
namespace {

// The part of a message that is still to be sent.
struct queued_message {
    list_head list;
    std::size_t size; // bytes
    std::size_t sent; // of them
    bool begun;       // a part of the message was sent
    int fd;           // -1 = none
    char data[];
};

bool would_block(ssize_t result) { return result < 0 && (errno == EAGAIN || errno == EWOULDBLOCK); }

// Queues the bytes of a message from `sent` on. False, and nothing is queued, without memory or a descriptor.
bool append(client &to, const ubus_msghdr &hdr, const blob_attr *root, std::size_t sent, int fd) {
    const std::size_t size = ubus_wire::frame_size(root) - sent;
    auto *m = static_cast<queued_message *>(std::malloc(sizeof(queued_message) + size));
    if (!m) return false;
    const bool with_fd = fd >= 0 && sent == 0;
    m->size = size;
    m->sent = 0;
    m->begun = sent > 0;
    m->fd = with_fd ? fcntl(fd, F_DUPFD_CLOEXEC, 0) : -1;
    if (with_fd && m->fd < 0) {
        std::free(m);
        return false;
    }
    const std::size_t head = std::min(sent, sizeof hdr);
    std::memcpy(m->data, reinterpret_cast<const char *>(&hdr) + head, sizeof hdr - head);
    std::memcpy(m->data + (sizeof hdr - head), reinterpret_cast<const char *>(root) + (sent - head),
                blob_raw_len(root) - (sent - head));

    const bool first = list_empty(&to.queue);
    list_add_tail(&m->list, &to.queue);
    to.queued += size;
    if (m->fd >= 0) ++to.n_fds;
    if (first) client_watch(to);
    return true;
}

void drop_first(client &c) {
    auto *m = list_first_entry(&c.queue, queued_message, list);
    list_del(&m->list);
    c.queued -= m->size - m->sent;
    if (m->fd >= 0) {
        close(m->fd);
        --c.n_fds;
    }
    std::free(m);
}

// The next message would be taken for the rest of an incomplete one. The client is freed when its socket reports the end.
void cut_off(client &c) {
    queue_clear(c);
    shutdown(c.sock.fd, SHUT_RDWR);
}

} // namespace

void queue_send(client &to, const ubus_msghdr &hdr, const blob_attr *root, int fd) {
    const std::size_t size = ubus_wire::frame_size(root);
    if (list_empty(&to.queue)) {
        // If sending fails for another reason than a full socket, the peer is gone, and the socket reports that
        // next.
        const ssize_t sent = ubus_wire::send_some(to.sock.fd, hdr, root, 0, fd);
        if (would_block(sent))
            append(to, hdr, root, 0, fd);
        else if (sent >= 0 && static_cast<std::size_t>(sent) < size &&
                 !append(to, hdr, root, static_cast<std::size_t>(sent), fd))
            cut_off(to);
    } else if (to.queued + size <= queue_limit && (fd < 0 || to.n_fds < queued_fds_limit)) {
        append(to, hdr, root, 0, fd);
    }
}

void queue_flush(client &c) {
    while (!list_empty(&c.queue)) {
        auto *m = list_first_entry(&c.queue, queued_message, list);
        const ssize_t n =
            ubus_wire::send_bytes(c.sock.fd, m->data + m->sent, m->size - m->sent, m->begun ? -1 : m->fd);
        if (would_block(n)) return;
        if (n < 0) {
            if (m->begun)
                cut_off(c);
            else
                queue_clear(c);
            break;
        }
        m->begun = true;
        m->sent += static_cast<std::size_t>(n);
        c.queued -= static_cast<std::size_t>(n);
        if (m->sent < m->size) return;
        drop_first(c);
    }
}

void queue_clear(client &c) {
    while (!list_empty(&c.queue)) drop_first(c);
}

} // namespace ubusd
