// blobmsg.h - messages: attributes (blob.h) with a name, and a type in place of the id.
//
// The payload begins with a big-endian 16-bit length of the name, the name, its NUL, and zeros up to a
// multiple of 4 bytes; the value follows. Integers and doubles are big-endian, a string has its NUL, the
// value of a table or array is its members, each padded to 4 bytes; array elements have an empty name. The
// head of a message is a plain attribute without a name.
#ifndef LIBUBOX_BLOBMSG_H
#define LIBUBOX_BLOBMSG_H

#include <stdarg.h>

#include "blob.h"

#define BLOBMSG_ALIGN 2
#define BLOBMSG_PADDING(len)                                                                                 \
    (((len) + (1 << BLOBMSG_ALIGN) - 1) / (1 << BLOBMSG_ALIGN) * (1 << BLOBMSG_ALIGN))

BASE_DECLS_BEGIN

enum blobmsg_type {
    BLOBMSG_TYPE_UNSPEC, // null; in a policy: any type
    BLOBMSG_TYPE_ARRAY,
    BLOBMSG_TYPE_TABLE,
    BLOBMSG_TYPE_STRING,
    BLOBMSG_TYPE_INT64,
    BLOBMSG_TYPE_INT32,
    BLOBMSG_TYPE_INT16,
    BLOBMSG_TYPE_INT8,
    BLOBMSG_TYPE_BOOL = BLOBMSG_TYPE_INT8,
    BLOBMSG_TYPE_DOUBLE,
    __BLOBMSG_TYPE_LAST,
    BLOBMSG_TYPE_LAST = __BLOBMSG_TYPE_LAST - 1,
    BLOBMSG_CAST_INT64 = __BLOBMSG_TYPE_LAST // in a policy: an integer of any size
};

struct blobmsg_hdr {
    uint16_t namelen; // big-endian, without the NUL
    uint8_t name[];
} __packed;

// A member that blobmsg_parse() looks for.
struct blobmsg_policy {
    const char *name;
    enum blobmsg_type type;
};

// Bytes of a name header, padded.
static inline int blobmsg_hdrlen(unsigned int namelen) {
    return (int)BLOBMSG_PADDING(sizeof(struct blobmsg_hdr) + namelen + 1);
}

static inline uint16_t blobmsg_namelen(const struct blobmsg_hdr *hdr) { return be16_to_cpu(hdr->namelen); }

// The name of a member that was checked. Meaningless for an attribute that is not extended, such as a head.
static inline const char *blobmsg_name(const struct blob_attr *attr) {
    return (const char *)((const struct blobmsg_hdr *)blob_data(attr))->name;
}

// Makes the name an empty text; its length stays.
static inline void blobmsg_clear_name(struct blob_attr *attr) {
    ((struct blobmsg_hdr *)blob_data(attr))->name[0] = 0;
}

static inline int blobmsg_type(const struct blob_attr *attr) { return (int)blob_id(attr); }

// The value: after the name if there is one. NULL for NULL.
static inline void *blobmsg_data(const struct blob_attr *attr) {
    if (!attr) return NULL;
    char *data = (char *)blob_data(attr);
    if (blob_is_extended(attr)) data += blobmsg_hdrlen(blobmsg_namelen((const struct blobmsg_hdr *)data));
    return data;
}

// Bytes of the value; 0 for NULL. Wraps for an attribute that is shorter than its name, which every check
// refuses.
static inline size_t blobmsg_data_len(const struct blob_attr *attr) {
    if (!attr) return 0;
    return blob_len(attr) - (size_t)((char *)blobmsg_data(attr) - (char *)blob_data(attr));
}

static inline size_t blobmsg_len(const struct blob_attr *attr) { return blobmsg_data_len(attr); }

// Checking what came from outside.

// Is this, with len readable bytes, a well-formed attribute: header, name and the size of its value? `name`: it
// must have a name. The members of a table or array are not checked.
bool blobmsg_check_attr_len(const struct blob_attr *attr, bool name, size_t len);

// The same for an attribute that is known to lie in readable memory.
bool blobmsg_check_attr(const struct blob_attr *attr, bool name);

// The number of members of a well-formed table or array whose members are all well-formed and of that type (UNSPEC: any),
// else -1. Members of members are not checked.
int blobmsg_check_array_len(const struct blob_attr *attr, int type, size_t len);
int blobmsg_check_array(const struct blob_attr *attr, int type);

// The same, as a bool.
bool blobmsg_check_attr_list_len(const struct blob_attr *attr, int type, size_t len);
bool blobmsg_check_attr_list(const struct blob_attr *attr, int type);

// Finds the members that a policy names in the len bytes at data: tb[i] is the first one of that name and
// type, or NULL. A member of another type counts as absent. 0, -EINVAL for no data, or -1 at the first
// malformed member; tb is filled up to there.
int blobmsg_parse(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb, void *data,
                  unsigned int len);

// Fills tb[i] with the next element that has the type of the i-th policy entry; others are skipped. 0, or -1
// at a malformed element of the wanted type.
int blobmsg_parse_array(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb,
                        void *data, unsigned int len);

static inline int blobmsg_parse_attr(const struct blobmsg_policy *policy, int policy_len,
                                     struct blob_attr **tb, struct blob_attr *data) {
    return blobmsg_parse(policy, policy_len, tb, blobmsg_data(data), (unsigned int)blobmsg_len(data));
}

static inline int blobmsg_parse_array_attr(const struct blobmsg_policy *policy, int policy_len,
                                           struct blob_attr **tb, struct blob_attr *data) {
    return blobmsg_parse_array(policy, policy_len, tb, blobmsg_data(data), (unsigned int)blobmsg_len(data));
}

// Reading values of attributes that were checked.

static inline uint8_t blobmsg_get_u8(struct blob_attr *attr) { return *(uint8_t *)blobmsg_data(attr); }

static inline bool blobmsg_get_bool(struct blob_attr *attr) { return blobmsg_get_u8(attr) != 0; }

static inline uint16_t blobmsg_get_u16(struct blob_attr *attr) {
    uint16_t val;
    memcpy(&val, blobmsg_data(attr), sizeof(val));
    return be16_to_cpu(val);
}

static inline uint32_t blobmsg_get_u32(struct blob_attr *attr) {
    uint32_t val;
    memcpy(&val, blobmsg_data(attr), sizeof(val));
    return be32_to_cpu(val);
}

static inline uint64_t blobmsg_get_u64(struct blob_attr *attr) {
    uint64_t val;
    memcpy(&val, blobmsg_data(attr), sizeof(val));
    return be64_to_cpu(val);
}

static inline double blobmsg_get_double(struct blob_attr *attr) {
    const uint64_t bits = blobmsg_get_u64(attr);
    double val;
    memcpy(&val, &bits, sizeof(val));
    return val;
}

// The string in place; NULL for NULL.
static inline char *blobmsg_get_string(struct blob_attr *attr) { return (char *)blobmsg_data(attr); }

// An integer of any size, widened without or with its sign; 0 for other types.
static inline uint64_t blobmsg_cast_u64(struct blob_attr *attr) {
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_INT64: return blobmsg_get_u64(attr);
    case BLOBMSG_TYPE_INT32: return blobmsg_get_u32(attr);
    case BLOBMSG_TYPE_INT16: return blobmsg_get_u16(attr);
    case BLOBMSG_TYPE_INT8: return blobmsg_get_u8(attr);
    default: return 0;
    }
}

static inline int64_t blobmsg_cast_s64(struct blob_attr *attr) {
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_INT64: return (int64_t)blobmsg_get_u64(attr);
    case BLOBMSG_TYPE_INT32: return (int32_t)blobmsg_get_u32(attr);
    case BLOBMSG_TYPE_INT16: return (int16_t)blobmsg_get_u16(attr);
    case BLOBMSG_TYPE_INT8: return (int8_t)blobmsg_get_u8(attr);
    default: return 0;
    }
}

// Writing. A name of NULL is the empty name; one of 64 KiB or more is refused.

// Appends a member; type and length are not checked. 0, or -1 without memory or past 16 MiB. data must not
// lie in buf.
int blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data, unsigned int len);

static inline int blobmsg_add_u8(struct blob_buf *buf, const char *name, uint8_t val) {
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT8, name, &val, sizeof(val));
}

static inline int blobmsg_add_u16(struct blob_buf *buf, const char *name, uint16_t val) {
    val = cpu_to_be16(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT16, name, &val, sizeof(val));
}

static inline int blobmsg_add_u32(struct blob_buf *buf, const char *name, uint32_t val) {
    val = cpu_to_be32(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT32, name, &val, sizeof(val));
}

static inline int blobmsg_add_u64(struct blob_buf *buf, const char *name, uint64_t val) {
    val = cpu_to_be64(val);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT64, name, &val, sizeof(val));
}

static inline int blobmsg_add_double(struct blob_buf *buf, const char *name, double val) {
    uint64_t bits;
    memcpy(&bits, &val, sizeof(bits));
    bits = cpu_to_be64(bits);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_DOUBLE, name, &bits, sizeof(bits));
}

static inline int blobmsg_add_string(struct blob_buf *buf, const char *name, const char *string) {
    return blobmsg_add_field(buf, BLOBMSG_TYPE_STRING, name, string, (unsigned int)strlen(string) + 1);
}

// Appends a copy of a member of another message.
static inline int blobmsg_add_blob(struct blob_buf *buf, struct blob_attr *attr) {
    return blobmsg_add_field(buf, blobmsg_type(attr), blob_is_extended(attr) ? blobmsg_name(attr) : NULL,
                             blobmsg_data(attr), (unsigned int)blobmsg_data_len(attr));
}

// Opens a table or array. Returns a cookie for the closing call, in reverse order of opening, or NULL, and
// then the buffer is as before.
void *blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array);

static inline void *blobmsg_open_array(struct blob_buf *buf, const char *name) {
    return blobmsg_open_nested(buf, name, true);
}

static inline void *blobmsg_open_table(struct blob_buf *buf, const char *name) {
    return blobmsg_open_nested(buf, name, false);
}

static inline void blobmsg_close_array(struct blob_buf *buf, void *cookie) { blob_nest_end(buf, cookie); }
static inline void blobmsg_close_table(struct blob_buf *buf, void *cookie) { blob_nest_end(buf, cookie); }

// Starts a message whose head has the id of a table.
static inline int blobmsg_buf_init(struct blob_buf *buf) { return blob_buf_init(buf, BLOBMSG_TYPE_TABLE); }

// A string that is written in place: reserves room for maxlen bytes and a NUL, and returns it, or NULL. It
// belongs to the message only after blobmsg_add_string_buffer(), which takes it up to its NUL; anything else
// that is appended before that overwrites it.
void *blobmsg_alloc_string_buffer(struct blob_buf *buf, const char *name, unsigned int maxlen);

// Room for maxlen bytes and a NUL from the start of that string. It can move, with what is written. NULL: as
// before.
void *blobmsg_realloc_string_buffer(struct blob_buf *buf, unsigned int maxlen);
void blobmsg_add_string_buffer(struct blob_buf *buf);

// Appends a formatted string. Returns the length of its text, or -1.
int blobmsg_vprintf(struct blob_buf *buf, const char *name, const char *format, va_list arg)
    __attribute__((format(printf, 3, 0)));
int blobmsg_printf(struct blob_buf *buf, const char *name, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

BASE_DECLS_END

// clang-format off
// The members of table or array `attr`, which may be NULL; see blob_for_each_attr(). In the second one the caller has
// set `rem`.
#define blobmsg_for_each_attr(pos, attr, rem) \
    for (rem = (__typeof__(rem))blobmsg_data_len(attr), pos = (struct blob_attr *)blobmsg_data(attr); \
         __blob_fits(pos, (ptrdiff_t)(rem)); __blob_step(pos, rem))
#define __blobmsg_for_each_attr(pos, attr, rem) \
    for (pos = (struct blob_attr *)blobmsg_data(attr); __blob_fits(pos, (ptrdiff_t)(rem)); \
         __blob_step(pos, rem))
// clang-format on

#endif
