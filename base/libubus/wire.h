// wire.h - messages on a stream socket, as the library and the broker both read and write them.
//
// Frame:  struct ubus_msghdr, then the root blob: at least its header of 4 bytes, at most UBUS_MSG_LIMIT
// padded.
//         Of a received frame only the length is checked here; attributes are checked by
//         parse().
// Errors: nothing here logs; errno is that of the failed call.
#ifndef UBUS_WIRE_H
#define UBUS_WIRE_H

#include <cstddef>
#include <cstdint>

#include <sys/types.h>

#include <ubusmsg.h>

namespace ubus_wire {

inline constexpr const char *default_socket = "/var/run/ubus/ubus.sock";
inline constexpr std::size_t header_size = sizeof(ubus_msghdr) + sizeof(blob_attr);

// One frame under construction: what has been received so far. Allocated as one block, so that header and
// root are adjacent as they are on the wire.
struct inbox {
    std::size_t room;     // bytes for the root
    std::size_t received; // bytes of the frame so far
    int fd;               // descriptor that came with the first byte, or -1

    // The beginning of the next frame, if it was read along: never a complete one, so that some of it is still to be read.
    char ahead[header_size - 1];
    std::size_t n_ahead; // bytes of it
    int ahead_fd;        // descriptor that came with its first byte, or -1

    ubus_msghdr hdr; // in network order
    blob_attr body;
};

enum class progress {
    message,   // the frame is complete
    more,      // the rest has not arrived yet
    closed,    // end of file or a socket error
    malformed, // a root shorter than its header or longer than the limit: the place in the stream is lost
    no_memory,
};

// Reads what `sock` has of the current frame without waiting; not beyond its end, except with `look_ahead`, which also reads the
// beginning of the next one. `in` may be null: it is allocated and grows as data arrives, not by the announced length. After `message` the
// root's pad bytes are zero.
progress inbox_read(inbox *&in, int sock, bool look_ahead = false);

// Begins the next frame, of which some bytes may be there already, and closes the descriptor of this one if it was not taken.
// A block for a large frame is kept for the next large one of any socket; it is freed after 64 messages that do not need it.
void inbox_next(inbox *&in);

// For programs with many sockets: gives the block back unless it holds the beginning of a frame, so that an idle socket has none.
void inbox_rest(inbox *&in);

// Frees the spare blocks.
void inbox_forget_spare();

// For how many messages that do not need it a large block is kept.
inline constexpr unsigned large_kept_for = 64;

void inbox_free(inbox *&in);

// Takes the descriptor over; -1 if there is none.
int inbox_take_fd(inbox &in);

// True if a message with this root may be sent.
bool fits(const blob_attr *body);

// The end of a root whose last attribute has been left out of it, because it is somewhere else: bytes, and up to three of the gap
// behind them.
struct apart {
    const char *data = nullptr;
    std::size_t size = 0;
};

// Sends bytes [sent, size of the frame) of a message without waiting, and `fd` with the first one (-1 = none;
// it stays the caller's). The last bytes of the frame are those of `end`. Returns how many were sent, or -1 (errno EAGAIN: the
// socket is full).
ssize_t send_some(int sock, const ubus_msghdr &hdr, const blob_attr *body, std::size_t sent, int fd,
                  const apart &end = {});
// The same for contiguous bytes; `fd` goes with the first of them.
ssize_t send_bytes(int sock, const void *data, std::size_t size, int fd);

inline std::size_t frame_size(const blob_attr *body) { return sizeof(ubus_msghdr) + blob_raw_len(body); }

// Finds the attributes of a message by id. Those of a wrong size, and strings without an end, count as
// absent; of several with one id the last counts.
void parse(const blob_attr *body, blob_attr *(&found)[UBUS_ATTR_MAX]);

// Header for a message that we make; arguments in host order.
ubus_msghdr make_header(ubus_msg_type type, std::uint16_t seq, std::uint32_t peer);

// Builds the root of a message in a buffer that is used again and again: it is valid until the next builder of
// the same buffer. A failed addition shows only in root(). A buffer that a large message needed is freed by the next
// builder.
class builder {
public:
    explicit builder(blob_buf &buf) : buf_(buf) {
        if (buf.buflen > UBUS_MSG_CHUNK_SIZE) blob_buf_free(&buf);
        good_ = blob_buf_init(&buf, 0) == 0;
    }
    // The same, but the buffer is freed only when `large_kept_for` messages have not needed it; `unneeded` counts them.
    builder(blob_buf &buf, unsigned &unneeded) : buf_(buf) {
        if (buf.head && blob_pad_len(buf.head) > UBUS_MSG_CHUNK_SIZE) unneeded = 0;
        if (buf.buflen > UBUS_MSG_CHUNK_SIZE && ++unneeded > large_kept_for) blob_buf_free(&buf);
        good_ = blob_buf_init(&buf, 0) == 0;
    }

    builder &u32(int id, std::uint32_t value) { return add(blob_put_u32, id, value); }
    builder &u8(int id, bool value) { return add(blob_put_u8, id, std::uint8_t{value}); }
    builder &text(int id, const char *value) { return add(blob_put_string, id, value); }
    // The content of another attribute; null = empty.
    builder &content(int id, const blob_attr *from) {
        return add(blob_put, id, from ? blob_data(from) : nullptr,
                   from ? static_cast<unsigned>(blob_len(from)) : 0);
    }
    builder &bytes(int id, const void *data, std::size_t len) {
        return add(blob_put, id, data, static_cast<unsigned>(len));
    }

    // For nested attributes and fields: those who add through it report failures by fail().
    blob_buf *raw() { return &buf_; }
    void fail() { good_ = false; }

    // The same, but the bytes stay where they are, and are sent from there; for the last attribute. The root's length counts them.
    apart content_apart(int id, const blob_attr *from) {
        const std::size_t size = from ? blob_len(from) : 0, most = UBUS_MSG_LIMIT;
        good_ = good_ && size <= most && blob_put(&buf_, id, nullptr, 0);
        if (!good_) return {};
        auto *last =
            reinterpret_cast<blob_attr *>(reinterpret_cast<char *>(blob_next(buf_.head)) - sizeof(blob_attr));
        blob_set_raw_len(last, static_cast<unsigned>(sizeof(blob_attr) + size));
        blob_set_raw_len(buf_.head, static_cast<unsigned>(blob_raw_len(buf_.head) + blob_pad_len(last) -
                                                          sizeof(blob_attr)));
        return {size > 0 ? static_cast<const char *>(blob_data(from)) : nullptr, size};
    }

    // Null if memory ran out or the message is too large to be sent.
    const blob_attr *root() const { return good_ && fits(buf_.head) ? buf_.head : nullptr; }

private:
    template <class Put, class... Value> builder &add(Put put, int id, Value... value) {
        good_ = good_ && put(&buf_, id, value...);
        return *this;
    }

    blob_buf &buf_;
    bool good_;
};

} // namespace ubus_wire

#endif
