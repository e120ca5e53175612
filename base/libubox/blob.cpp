// Writing attributes into a growing buffer, and sorting them by id.
#include <libubox/blob.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "blob_internal.h"

namespace {

constexpr std::size_t grow_step = 256;

// The capacity after growth is seen by programs (buflen): whole steps, one more than needed if the need is a
// multiple.
bool grow_by_realloc(blob_buf *buf, int minlen) {
    const std::size_t delta = (static_cast<std::size_t>(minlen) / grow_step + 1) * grow_step;
    const std::size_t old = static_cast<std::size_t>(buf->buflen);
    if (old + delta > BLOB_ATTR_LEN_MASK) return false;
    char *memory = static_cast<char *>(std::realloc(buf->buf, old + delta));
    if (!memory) return false;
    std::memset(memory + old, 0, delta);
    buf->buf = memory;
    buf->buflen = static_cast<int>(old + delta);
    return true;
}

bool satisfies(blob_attr *attr, const blob_attr_info &info) {
    const std::size_t len = blob_raw_len(attr);
    if (info.type < BLOB_ATTR_LAST &&
        !blob_check_type(blob_data(attr), static_cast<unsigned int>(blob_len(attr)),
                         static_cast<int>(info.type)))
        return false;
    if (info.minlen && len < info.minlen) return false;
    if (info.maxlen && len > info.maxlen) return false;
    return !info.validate || info.validate(&info, attr);
}

// Sorts the children within len bytes after the header of `attr`.
int sort_children(blob_attr *attr, std::size_t len, blob_attr **data, const blob_attr_info *info, int max) {
    std::fill_n(data, std::max(max, 0), nullptr);
    int found = 0;
    blob_attr *pos;
    __blob_for_each_attr (pos, __blob_walk_start(attr), len) {
        const int id = static_cast<int>(blob_id(pos));
        if (id >= max || blob_raw_len(pos) < sizeof(blob_attr)) continue;
        if (info && !satisfies(pos, info[id])) continue;
        if (!data[id]) ++found;
        data[id] = pos;
    }
    return found;
}

} // namespace

bool blob_reserve(blob_buf *buf, std::size_t end) {
    if (end > BLOB_ATTR_LEN_MASK) return false;
    const std::size_t capacity = static_cast<std::size_t>(buf->buflen);
    if (end > capacity && !blob_buf_grow(buf, static_cast<int>(end - capacity))) return false;
    // A grow callback of the program may have given too little, or no room for the gap.
    return blob_padded(end) <= static_cast<std::size_t>(buf->buflen);
}

blob_attr *blob_append(blob_buf *buf, int id, std::size_t payload) {
    if (!buf->head || payload > BLOB_ATTR_LEN_MASK) return nullptr;
    const std::size_t offset = blob_end(buf);
    if (!blob_reserve(buf, offset + sizeof(blob_attr) + payload)) return nullptr;
    return blob_place(buf, offset, id, payload);
}

blob_attr *blob_place(blob_buf *buf, std::size_t offset, int id, std::size_t payload) {
    auto *attr = blob_at(buf, offset);
    blob_zero_word_before(reinterpret_cast<char *>(attr) + blob_padded(sizeof(blob_attr) + payload));
    attr->id_len = cpu_to_be32(((static_cast<std::uint32_t>(id) << BLOB_ATTR_ID_SHIFT) & BLOB_ATTR_ID_MASK) |
                               static_cast<std::uint32_t>(sizeof(blob_attr) + payload));
    return attr;
}

void blob_take(blob_buf *buf, std::size_t end) {
    blob_fill_pad(buf->head); // a raw attribute may have left its end unpadded
    blob_set_raw_len(buf->head, static_cast<unsigned int>(end - blob_offset(buf, buf->head)));
}

void *blob_enter(blob_buf *buf, blob_attr *container) {
    void *cookie = reinterpret_cast<void *>(blob_offset(buf, buf->head) + BLOB_COOKIE);
    buf->head = container;
    return cookie;
}

int blob_buf_init(blob_buf *buf, int id) {
    if (!buf->grow) buf->grow = grow_by_realloc;
    buf->head = static_cast<blob_attr *>(buf->buf);
    if (!blob_reserve(buf, sizeof(blob_attr))) return -ENOMEM;
    buf->head = blob_place(buf, 0, id, 0);
    return 0;
}

void blob_buf_free(blob_buf *buf) {
    std::free(buf->buf);
    buf->buf = nullptr;
    buf->head = nullptr;
    buf->buflen = 0;
}

bool blob_buf_grow(blob_buf *buf, int required) {
    if (required < 0 || buf->buflen > BLOB_ATTR_LEN_MASK - required) return false;
    const std::size_t head = buf->head ? blob_offset(buf, buf->head) : 0;
    if (!buf->grow || !buf->grow(buf, required)) return false;
    buf->head = blob_at(buf, head);
    return true;
}

blob_attr *blob_new(blob_buf *buf, int id, int payload) {
    if (payload < 0) return nullptr;
    blob_attr *attr = blob_append(buf, id, static_cast<std::size_t>(payload));
    if (attr) blob_take(buf, blob_offset(buf, attr) + blob_pad_len(attr));
    return attr;
}

blob_attr *blob_put(blob_buf *buf, int id, const void *ptr, unsigned int len) {
    blob_attr *attr = blob_append(buf, id, len);
    if (!attr) return nullptr;
    if (ptr && len) std::memcpy(attr->data, ptr, len);
    blob_take(buf, blob_offset(buf, attr) + blob_pad_len(attr));
    return attr;
}

blob_attr *blob_put_raw(blob_buf *buf, const void *ptr, unsigned int len) {
    if (!ptr || len < sizeof(blob_attr) || !buf->head) return nullptr;
    const std::size_t offset = blob_end(buf);
    if (!blob_reserve(buf, offset + len)) return nullptr;
    blob_attr *attr = blob_at(buf, offset);
    std::memcpy(static_cast<void *>(attr), ptr, len);
    blob_take(buf, offset + len);
    return attr;
}

void *blob_nest_start(blob_buf *buf, int id) {
    blob_attr *attr = blob_new(buf, id, 0);
    return attr ? blob_enter(buf, attr) : nullptr;
}

void blob_nest_end(blob_buf *buf, void *cookie) {
    const std::size_t outer = reinterpret_cast<std::size_t>(cookie) - BLOB_COOKIE;
    // A container that could not be opened is not closed either.
    if (!cookie || !buf->head || outer >= blob_offset(buf, buf->head)) return;
    blob_fill_pad(buf->head);
    const std::size_t end = blob_end(buf);
    buf->head = blob_at(buf, outer);
    blob_set_raw_len(buf->head, static_cast<unsigned int>(end - outer));
}

void blob_fill_pad(blob_attr *attr) {
    const std::size_t end = blob_pad_len(attr);
    for (std::size_t i = blob_raw_len(attr); i < end; ++i) reinterpret_cast<char *>(attr)[i] = 0;
}

void blob_set_raw_len(blob_attr *attr, unsigned int len) {
    attr->id_len = (attr->id_len & ~cpu_to_be32(BLOB_ATTR_LEN_MASK)) | cpu_to_be32(len & BLOB_ATTR_LEN_MASK);
}

bool blob_attr_equal(const blob_attr *a1, const blob_attr *a2) {
    if (!a1 || !a2) return a1 == a2;
    return blob_pad_len(a1) == blob_pad_len(a2) && std::memcmp(a1, a2, blob_pad_len(a1)) == 0;
}

blob_attr *blob_memdup(const blob_attr *attr) {
    const std::size_t size = blob_pad_len(attr);
    void *copy = std::malloc(std::max(size, sizeof(blob_attr)));
    return static_cast<blob_attr *>(copy ? std::memcpy(copy, attr, size) : nullptr);
}

bool blob_check_type(const void *ptr, unsigned int len, int type) {
    switch (type) {
    case BLOB_ATTR_INT8: return len == 1;
    case BLOB_ATTR_INT16: return len == 2;
    case BLOB_ATTR_INT32: return len == 4;
    case BLOB_ATTR_INT64: return len == 8;
    case BLOB_ATTR_DOUBLE: return len >= 8;
    case BLOB_ATTR_STRING: return len >= 1 && static_cast<const char *>(ptr)[len - 1] == 0;
    default: return type < BLOB_ATTR_LAST;
    }
}

int blob_parse(blob_attr *attr, blob_attr **data, const blob_attr_info *info, int max) {
    return sort_children(attr, __blob_walk_len(attr), data, info, max);
}

int blob_parse_untrusted(blob_attr *attr, std::size_t attr_len, blob_attr **data, const blob_attr_info *info,
                         int max) {
    if (!attr || attr_len < sizeof(blob_attr) || blob_raw_len(attr) > attr_len) return 0;
    return sort_children(attr, __blob_walk_len(attr), data, info, max);
}
