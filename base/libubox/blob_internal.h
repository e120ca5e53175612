// blob_internal.h - how attributes are placed in a blob_buf. For blob.cpp and blobmsg.cpp.
//
// Places are offsets from the start of the buffer, which survive its moves.
#ifndef BASE_LIBUBOX_BLOB_INTERNAL_H
#define BASE_LIBUBOX_BLOB_INTERNAL_H

#include <libubox/blob.h>

#include <cstring>

inline std::size_t blob_padded(std::size_t len) {
    return (len + BLOB_ATTR_ALIGN - 1) & ~std::size_t{BLOB_ATTR_ALIGN - 1};
}

inline blob_attr *blob_at(blob_buf *buf, std::size_t offset) {
    return reinterpret_cast<blob_attr *>(static_cast<char *>(buf->buf) + offset);
}

inline std::size_t blob_offset(const blob_buf *buf, const blob_attr *attr) {
    return static_cast<std::size_t>(reinterpret_cast<const char *>(attr) -
                                    static_cast<const char *>(buf->buf));
}

// Where the next attribute goes.
inline std::size_t blob_end(const blob_buf *buf) {
    return blob_offset(buf, buf->head) + blob_pad_len(buf->head);
}

// Makes the buffer reach to offset `end` and the gap after it. The buffer may move. False: nothing has
// changed.
bool blob_reserve(blob_buf *buf, std::size_t end);

// Zeroes the last word of what is going to be written: what then remains of it is the gap.
inline void blob_zero_word_before(char *end) { std::memset(end - BLOB_ATTR_ALIGN, 0, BLOB_ATTR_ALIGN); }

// Writes the header of an attribute into reserved room, and zeroes the last word of its payload, for the gap.
blob_attr *blob_place(blob_buf *buf, std::size_t offset, int id, std::size_t payload);

// Reserves and places an attribute after the message; it becomes part of the message in blob_take(). NULL
// without memory or past the limit.
blob_attr *blob_append(blob_buf *buf, int id, std::size_t payload);

// Makes the open container reach to offset `end`.
void blob_take(blob_buf *buf, std::size_t end);

// Makes `container` the open one; returns the cookie that leads back.
void *blob_enter(blob_buf *buf, blob_attr *container);

#endif
