#include "wire.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <span>
#include <utility>

#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace ubus_wire {
namespace {

constexpr std::size_t first_room = 2048; // most messages fit

void begin(inbox &in) {
    in.received = in.n_ahead = 0;
    in.fd = in.ahead_fd = -1;
}

static_assert(offsetof(inbox, body) == offsetof(inbox, hdr) + sizeof(ubus_msghdr), "a frame is contiguous");

// Room for one descriptor beside the data.
union fd_control {
    char space[CMSG_SPACE(sizeof(int))];
    cmsghdr align;
};

// Blocks that no frame uses. A block for a large message is kept for the next large one, since allocating it costs more than the
// message; it is freed if none comes.
inbox *g_small, *g_large;
unsigned g_large_unneeded; // messages since the last that needed it

bool is_large(const inbox &in) { return in.room > UBUS_MSG_CHUNK_SIZE; }

void put_aside(inbox *&in) {
    begin(*in);
    inbox *&place = is_large(*in) ? g_large : g_small;
    if (!place || place->room < in->room) std::swap(place, in);
    std::free(in);
    in = nullptr;
}

void move(inbox *&in, inbox *to) {
    to->received = in->received;
    to->fd = in->fd;
    std::memcpy(static_cast<void *>(&to->hdr), &in->hdr, in->received);
    put_aside(in);
    in = to;
}

// Continues in the spare block, if it is large enough for the frame.
bool move_to_large(inbox *&in, std::size_t padded) {
    if (!g_large || g_large->room < padded) return false;
    move(in, std::exchange(g_large, nullptr));
    return true;
}

bool set_room(inbox *&in, std::size_t room) {
    auto *grown = static_cast<inbox *>(std::realloc(in, offsetof(inbox, body) + room));
    if (!grown) return false;
    if (!in) begin(*grown);
    in = grown;
    in->room = room;
    return true;
}

// Null without memory.
inbox *take_small() {
    inbox *in = std::exchange(g_small, nullptr);
    if (!in) set_room(in, first_room);
    return in;
}

// The descriptors that came with a message. We keep one at most.
int take_control(msghdr &msg) {
    int kept = -1;
    for (cmsghdr *c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c)) {
        if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
        const std::size_t n = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (std::size_t i = 0; i < n; ++i) {
            int fd;
            std::memcpy(&fd, CMSG_DATA(c) + i * sizeof(int), sizeof fd);
            if (kept < 0)
                kept = fd;
            else
                close(fd);
        }
    }
    return kept;
}

// Reads until `end` bytes of the frame are here; with `look_ahead` these are all of it.
progress fill(inbox &in, int sock, std::size_t end, bool look_ahead = false) {
    while (in.received < end) {
        fd_control control;
        iovec parts[2] = {{reinterpret_cast<char *>(&in.hdr) + in.received, end - in.received},
                          {in.ahead, sizeof in.ahead}};
        msghdr msg{};
        msg.msg_iov = parts;
        msg.msg_iovlen = look_ahead ? 2 : 1;
        msg.msg_control = control.space;
        msg.msg_controllen = sizeof control.space;
        const ssize_t n = recvmsg(sock, &msg, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return progress::more;
        if (n <= 0) return progress::closed;
        const auto got = static_cast<std::size_t>(n);
        const std::size_t own = std::min(got, end - in.received);
        in.n_ahead = got - own;
        if (const int fd = take_control(msg); fd >= 0) {
            if (in.received == 0)
                in.fd = fd;
            else if (in.n_ahead > 0)
                in.ahead_fd = fd; // the system ends a read after the bytes that came with a descriptor
            else
                close(fd); // descriptors belong to the first byte
        }
        in.received += own;
    }
    return progress::message;
}

// `fd` goes with the first byte; -1 = none.
ssize_t send_parts(int sock, std::span<iovec> parts, int fd) {
    msghdr msg{};
    msg.msg_iov = parts.data();
    msg.msg_iovlen = parts.size();

    fd_control control{};
    if (fd >= 0) {
        msg.msg_control = control.space;
        msg.msg_controllen = sizeof control.space;
        cmsghdr *c = CMSG_FIRSTHDR(&msg);
        c->cmsg_level = SOL_SOCKET;
        c->cmsg_type = SCM_RIGHTS;
        c->cmsg_len = CMSG_LEN(sizeof fd);
        std::memcpy(CMSG_DATA(c), &fd, sizeof fd);
    }

    ssize_t n;
    do n = sendmsg(sock, &msg, MSG_DONTWAIT | MSG_NOSIGNAL);
    while (n < 0 && errno == EINTR);
    return n;
}

} // namespace

progress inbox_read(inbox *&in, int sock, bool look_ahead) {
    if (!in && !(in = take_small())) return progress::no_memory;
    if (const progress p = fill(*in, sock, header_size); p != progress::message) return p;

    const std::size_t root = blob_raw_len(&in->body);
    if (root < sizeof(blob_attr) || blob_pad_len(&in->body) > UBUS_MSG_LIMIT) return progress::malformed;

    const std::size_t padded = blob_pad_len(&in->body);
    for (;;) {
        const std::size_t have = std::min(root, in->room);
        const progress p = fill(*in, sock, sizeof(ubus_msghdr) + have, look_ahead && have == root);
        if (p != progress::message) return p;
        if (in->room >= padded) break;
        if (!move_to_large(in, padded) &&
            !set_room(in, std::min(padded, std::max<std::size_t>(UBUS_MSG_CHUNK_SIZE, 2 * in->room))))
            return progress::no_memory;
    }
    blob_fill_pad(&in->body);
    return progress::message;
}

void inbox_next(inbox *&in) {
    if (!in) return;
    if (in->fd >= 0) close(in->fd);
    std::memcpy(static_cast<void *>(&in->hdr), in->ahead, in->n_ahead);
    in->received = in->n_ahead;
    in->fd = in->ahead_fd;
    in->n_ahead = 0;
    in->ahead_fd = -1;
    if (is_large(*in)) {
        g_large_unneeded = 0;
        if (in->received == 0)
            put_aside(in);
        else if (inbox *small = take_small())
            move(in, small);
    } else if (g_large && ++g_large_unneeded > large_kept_for) {
        std::free(g_large);
        g_large = nullptr;
    }
}

void inbox_rest(inbox *&in) {
    if (in && in->received == 0) put_aside(in);
}

void inbox_forget_spare() {
    std::free(g_small);
    std::free(g_large);
    g_small = g_large = nullptr;
}

void inbox_free(inbox *&in) {
    if (in && in->fd >= 0) close(in->fd);
    if (in && in->ahead_fd >= 0) close(in->ahead_fd);
    std::free(in);
    in = nullptr;
}

int inbox_take_fd(inbox &in) {
    const int fd = in.fd;
    in.fd = -1;
    return fd;
}

bool fits(const blob_attr *body) { return blob_pad_len(body) <= UBUS_MSG_LIMIT; }

ssize_t send_some(int sock, const ubus_msghdr &hdr, const blob_attr *body, std::size_t sent, int fd,
                  const apart &end) {
    static constexpr char gap[BLOB_ATTR_ALIGN] = {};
    const std::size_t end_size = (end.size + sizeof gap - 1) / sizeof gap * sizeof gap;
    const std::pair<const void *, std::size_t> whole[] = {
        {&hdr, sizeof hdr},
        {body, blob_raw_len(body) - end_size},
        {end.data, end.size},
        {gap, end_size - end.size},
    };
    iovec parts[std::size(whole)];
    std::size_t n = 0, skip = sent;
    for (const auto &[data, size] : whole) {
        if (skip < size)
            parts[n++] = {const_cast<char *>(static_cast<const char *>(data)) + skip, size - skip};
        skip -= std::min(skip, size);
    }
    return send_parts(sock, {parts, n}, sent == 0 ? fd : -1);
}

ssize_t send_bytes(int sock, const void *data, std::size_t size, int fd) {
    iovec part[1] = {{const_cast<void *>(data), size}};
    return send_parts(sock, part, fd);
}

void parse(const blob_attr *body, blob_attr *(&found)[UBUS_ATTR_MAX]) {
    static constexpr auto policy = [] {
        std::array<blob_attr_info, UBUS_ATTR_MAX> p{};
        for (const int id : {UBUS_ATTR_STATUS, UBUS_ATTR_OBJID, UBUS_ATTR_OBJTYPE, UBUS_ATTR_TARGET})
            p[static_cast<std::size_t>(id)].type = BLOB_ATTR_INT32;
        for (const int id : {UBUS_ATTR_OBJPATH, UBUS_ATTR_METHOD, UBUS_ATTR_USER, UBUS_ATTR_GROUP})
            p[static_cast<std::size_t>(id)].type = BLOB_ATTR_STRING;
        for (const int id : {UBUS_ATTR_ACTIVE, UBUS_ATTR_NO_REPLY})
            p[static_cast<std::size_t>(id)].type = BLOB_ATTR_INT8;
        for (const int id : {UBUS_ATTR_SIGNATURE, UBUS_ATTR_DATA, UBUS_ATTR_SUBSCRIBERS})
            p[static_cast<std::size_t>(id)].type = BLOB_ATTR_NESTED;
        return p;
    }();
    std::fill(std::begin(found), std::end(found), nullptr);
    blob_parse_untrusted(const_cast<blob_attr *>(body), blob_raw_len(body), found, policy.data(),
                         UBUS_ATTR_MAX);
}

ubus_msghdr make_header(ubus_msg_type type, std::uint16_t seq, std::uint32_t peer) {
    ubus_msghdr hdr{};
    hdr.type = static_cast<std::uint8_t>(type);
    hdr.seq = cpu_to_be16(seq);
    hdr.peer = cpu_to_be32(peer);
    return hdr;
}

} // namespace ubus_wire
