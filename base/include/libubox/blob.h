// blob.h - attributes: type-length-value records in one buffer, nested, the same bytes on every machine.
//
// An attribute is a big-endian header word and a payload, and starts at a multiple of 4 bytes from the start
// of the outermost one; the gap after it is zero:
//   bit 31      extended: the payload begins with a name (blobmsg.h)
//   bits 30-24  id
//   bits 23-0   length, including these 4 bytes, without the gap
// A container's payload is its children, each with its gap.
#ifndef LIBUBOX_BLOB_H
#define LIBUBOX_BLOB_H

#include <errno.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "utils.h"

#define BLOB_COOKIE 0x01234567 // added to the offset in nest cookies, so that a valid one is never NULL

#define BLOB_ATTR_ID_MASK 0x7f000000
#define BLOB_ATTR_ID_SHIFT 24
#define BLOB_ATTR_LEN_MASK 0x00ffffff
#define BLOB_ATTR_ALIGN 4
#define BLOB_ATTR_EXTENDED 0x80000000

BASE_DECLS_BEGIN

// Types that a reader expects (struct blob_attr_info). The data holds no types, only ids.
enum {
    BLOB_ATTR_UNSPEC,
    BLOB_ATTR_NESTED,
    BLOB_ATTR_BINARY,
    BLOB_ATTR_STRING,
    BLOB_ATTR_INT8,
    BLOB_ATTR_INT16,
    BLOB_ATTR_INT32,
    BLOB_ATTR_INT64,
    BLOB_ATTR_DOUBLE,
    BLOB_ATTR_LAST
};

struct blob_attr {
    uint32_t id_len;
    char data[];
} __packed;

// What is expected of one id; 0 and NULL expect nothing.
struct blob_attr_info {
    unsigned int type;   // BLOB_ATTR_*
    unsigned int minlen; // bytes, header included
    unsigned int maxlen; // likewise
    bool (*validate)(const struct blob_attr_info *, struct blob_attr *);
};

// A message being written. Zeroed before its first use.
struct blob_buf {
    struct blob_attr *head;                         // the innermost open container, in buf
    bool (*grow)(struct blob_buf *buf, int minlen); // makes room for minlen bytes more; NULL: by realloc
    int buflen;                                     // bytes at buf, a multiple of 4
    void *buf;
};

// Reading. Nothing is checked here: the attribute must have been checked, or come from a loop that checks.

static inline void *blob_data(const struct blob_attr *attr) { return (void *)attr->data; }

static inline unsigned int blob_id(const struct blob_attr *attr) {
    return (be32_to_cpu(attr->id_len) & BLOB_ATTR_ID_MASK) >> BLOB_ATTR_ID_SHIFT;
}

static inline bool blob_is_extended(const struct blob_attr *attr) {
    return (attr->id_len & cpu_to_be32(BLOB_ATTR_EXTENDED)) != 0;
}

// Bytes of the attribute with its header.
static inline size_t blob_raw_len(const struct blob_attr *attr) {
    return be32_to_cpu(attr->id_len) & BLOB_ATTR_LEN_MASK;
}

// Bytes of the payload. A length field below 4, which no writer makes, wraps.
static inline size_t blob_len(const struct blob_attr *attr) {
    return blob_raw_len(attr) - sizeof(struct blob_attr);
}

// Bytes of the attribute with its header and the gap after it.
static inline size_t blob_pad_len(const struct blob_attr *attr) {
    return (blob_raw_len(attr) + BLOB_ATTR_ALIGN - 1) & ~(size_t)(BLOB_ATTR_ALIGN - 1);
}

// Where a walk begins, and its number of bytes: 0 without an attribute or with an invalid length field.
static inline struct blob_attr *__blob_walk_start(const struct blob_attr *attr) {
    return attr ? (struct blob_attr *)blob_data(attr) : NULL;
}

static inline size_t __blob_walk_len(const struct blob_attr *attr) {
    return attr && blob_raw_len(attr) >= sizeof(struct blob_attr) ? blob_len(attr) : 0;
}

// Integers of the payload. memcpy, since a payload is aligned to 4 bytes at best.
static inline uint8_t blob_get_u8(const struct blob_attr *attr) { return (uint8_t)attr->data[0]; }

static inline uint16_t blob_get_u16(const struct blob_attr *attr) {
    uint16_t val;
    memcpy(&val, attr->data, sizeof(val));
    return be16_to_cpu(val);
}

static inline uint32_t blob_get_u32(const struct blob_attr *attr) {
    uint32_t val;
    memcpy(&val, attr->data, sizeof(val));
    return be32_to_cpu(val);
}

static inline uint64_t blob_get_u64(const struct blob_attr *attr) {
    uint64_t val;
    memcpy(&val, attr->data, sizeof(val));
    return be64_to_cpu(val);
}

static inline int8_t blob_get_int8(const struct blob_attr *attr) { return (int8_t)blob_get_u8(attr); }
static inline int16_t blob_get_int16(const struct blob_attr *attr) { return (int16_t)blob_get_u16(attr); }
static inline int32_t blob_get_int32(const struct blob_attr *attr) { return (int32_t)blob_get_u32(attr); }
static inline int64_t blob_get_int64(const struct blob_attr *attr) { return (int64_t)blob_get_u64(attr); }

static inline const char *blob_get_string(const struct blob_attr *attr) { return attr->data; }

static inline struct blob_attr *blob_next(const struct blob_attr *attr) {
    return (struct blob_attr *)((char *)attr + blob_pad_len(attr));
}

// Does an attribute with its gap lie within `rem` bytes? `rem` counts down to 0, or is negative from the
// start.
static inline bool __blob_fits(const struct blob_attr *attr, ptrdiff_t rem) {
    return rem >= (ptrdiff_t)sizeof(struct blob_attr) && blob_pad_len(attr) >= sizeof(struct blob_attr) &&
           (ptrdiff_t)blob_pad_len(attr) <= rem;
}

// Writing. Any append can move the buffer: pointers to attributes become invalid, nest cookies stay valid.

// Starts a message: a head of that id without payload. The former content is lost, its memory is kept. 0
// or -ENOMEM.
int blob_buf_init(struct blob_buf *buf, int id);

// Frees the memory; the buffer can be initialised again.
void blob_buf_free(struct blob_buf *buf);

// Makes room for `required` bytes more. False, and nothing has changed, without memory or past 16 MiB.
bool blob_buf_grow(struct blob_buf *buf, int required);

// Appends an attribute with a payload of that many bytes, which the caller fills. NULL without memory or past
// 16 MiB.
struct blob_attr *blob_new(struct blob_buf *buf, int id, int payload);

// Appends an attribute with that payload; ptr NULL leaves it to be filled. NULL as above.
struct blob_attr *blob_put(struct blob_buf *buf, int id, const void *ptr, unsigned int len);

// Appends a finished attribute of len bytes as it is. NULL as above, or if ptr is NULL or len below 4.
struct blob_attr *blob_put_raw(struct blob_buf *buf, const void *ptr, unsigned int len);

// Opens a container: later appends go into it. Returns the cookie that blob_nest_end() takes, in
// reverse order of opening, or NULL, and then the buffer is as before.
void *blob_nest_start(struct blob_buf *buf, int id);
void blob_nest_end(struct blob_buf *buf, void *cookie);

// Zeroes the gap after an attribute.
void blob_fill_pad(struct blob_attr *attr);

// Sets the length field (header included) and leaves id and extended bit alone.
void blob_set_raw_len(struct blob_attr *attr, unsigned int len);

// The same bytes, gaps included. NULL equals NULL.
bool blob_attr_equal(const struct blob_attr *a1, const struct blob_attr *a2);

// A copy, gap included, that the caller frees; NULL without memory.
struct blob_attr *blob_memdup(const struct blob_attr *attr);

// Can these len bytes be a payload of that BLOB_ATTR_ type?
bool blob_check_type(const void *ptr, unsigned int len, int type);

// Sorts the children by id into data[0..max-1]: those below max that satisfy info[id] (info may be NULL). Of
// equal ids the last one stays. Returns how many ids were found.
int blob_parse(struct blob_attr *attr, struct blob_attr **data, const struct blob_attr_info *info, int max);

// The same for bytes from outside, of which attr_len are readable. Returns 0 and leaves data unchanged if the
// attribute is not within them.
int blob_parse_untrusted(struct blob_attr *attr, size_t attr_len, struct blob_attr **data,
                         const struct blob_attr_info *info, int max);

static inline struct blob_attr *blob_put_string(struct blob_buf *buf, int id, const char *str) {
    return blob_put(buf, id, str, (unsigned int)strlen(str) + 1);
}

static inline struct blob_attr *blob_put_u8(struct blob_buf *buf, int id, uint8_t val) {
    return blob_put(buf, id, &val, sizeof(val));
}

static inline struct blob_attr *blob_put_u16(struct blob_buf *buf, int id, uint16_t val) {
    val = cpu_to_be16(val);
    return blob_put(buf, id, &val, sizeof(val));
}

static inline struct blob_attr *blob_put_u32(struct blob_buf *buf, int id, uint32_t val) {
    val = cpu_to_be32(val);
    return blob_put(buf, id, &val, sizeof(val));
}

static inline struct blob_attr *blob_put_u64(struct blob_buf *buf, int id, uint64_t val) {
    val = cpu_to_be64(val);
    return blob_put(buf, id, &val, sizeof(val));
}

#define blob_put_int8 blob_put_u8
#define blob_put_int16 blob_put_u16
#define blob_put_int32 blob_put_u32
#define blob_put_int64 blob_put_u64

BASE_DECLS_END

// clang-format off
// Walks. `pos` and `rem` are variables of the caller, rem of any integer type; in the body it is what is left from pos
// on. A child that does not lie within its container ends the walk.
#define __blob_step(pos, rem) \
    rem = (__typeof__(rem))((size_t)(rem) - blob_pad_len(pos)), pos = blob_next(pos)

// The attributes in the `rem` bytes at `start`.
#define __blob_for_each_attr(pos, start, rem) \
    for (pos = (struct blob_attr *)(start); __blob_fits(pos, (ptrdiff_t)(rem)); __blob_step(pos, rem))

// The children of `attr`, which may be NULL.
#define blob_for_each_attr(pos, attr, rem) \
    for (rem = (__typeof__(rem))__blob_walk_len(attr), pos = __blob_walk_start(attr); \
         __blob_fits(pos, (ptrdiff_t)(rem)); __blob_step(pos, rem))

// The same, if `attr` lies within attr_len bytes.
#define blob_for_each_attr_len(pos, attr, attr_len, rem) \
    for (rem = (__typeof__(rem))__blob_walk_len(attr), pos = __blob_walk_start(attr); \
         (size_t)(rem) < (size_t)(attr_len) && __blob_fits(pos, (ptrdiff_t)(rem)); __blob_step(pos, rem))
// clang-format on

#endif
