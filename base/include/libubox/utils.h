// utils.h - byte order, attributes of declarations, and small helpers.
#ifndef LIBUBOX_UTILS_H
#define LIBUBOX_UTILS_H

#include <stdbool.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#if defined(__linux__)
#include <byteswap.h>
#include <endian.h>
#elif defined(__APPLE__)
#include <machine/endian.h>
#else
#include <sys/endian.h>
#endif

#include "decls.h"

#ifndef __BYTE_ORDER
#define __BYTE_ORDER BYTE_ORDER
#endif
#ifndef __BIG_ENDIAN
#define __BIG_ENDIAN BIG_ENDIAN
#endif
#ifndef __LITTLE_ENDIAN
#define __LITTLE_ENDIAN LITTLE_ENDIAN
#endif

#ifndef __has_attribute
#define __has_attribute(x) 0
#endif

#ifndef __packed
#define __packed __attribute__((packed))
#endif
#ifndef __constructor
#define __constructor __attribute__((constructor))
#endif
#ifndef __destructor
#define __destructor __attribute__((destructor))
#endif
#ifndef __hidden
#define __hidden __attribute__((visibility("hidden")))
#endif
#ifndef fallthrough
#if __has_attribute(__fallthrough__)
#define fallthrough __attribute__((__fallthrough__))
#else
#define fallthrough                                                                                          \
    do {                                                                                                     \
    } while (0)
#endif
#endif

#ifndef ARRAY_SIZE
#define ARRAY_SIZE(arr) (sizeof(arr) / sizeof((arr)[0]))
#endif

#define _GNUC_MIN_VER(maj, min) (((__GNUC__ << 8) + __GNUC_MINOR__) >= (((maj) << 8) + (min)))

// A condition that must not hold: the compiler refuses an array of negative size.
#define __BUILD_BUG_ON(condition) ((void)sizeof(char[1 - 2 * !!(condition)]))
#define BUILD_BUG_ON(condition) __BUILD_BUG_ON(condition)

// Byte order. All of these are constant expressions for constant arguments, and evaluate any argument once;
// where no swap is needed the result has the type of the argument.
#define __constant_swap16(x) ((uint16_t)__builtin_bswap16((uint16_t)(x)))
#define __constant_swap32(x) ((uint32_t)__builtin_bswap32((uint32_t)(x)))
#define __constant_swap64(x) ((uint64_t)__builtin_bswap64((uint64_t)(x)))

#define __is_constant(x) __builtin_constant_p(x)
#define __eval_once(func, x)                                                                                 \
    (__extension__({                                                                                         \
        __typeof__(x) __once = (x);                                                                          \
        func(__once);                                                                                        \
    }))
#define __eval_safe(func, x) __builtin_choose_expr(__is_constant(x), func(x), __eval_once(func, x))

#if __BYTE_ORDER == __LITTLE_ENDIAN
#define const_cpu_to_be16(x) __constant_swap16(x)
#define const_cpu_to_be32(x) __constant_swap32(x)
#define const_cpu_to_be64(x) __constant_swap64(x)
#define const_cpu_to_le16(x) ((uint16_t)(x))
#define const_cpu_to_le32(x) ((uint32_t)(x))
#define const_cpu_to_le64(x) ((uint64_t)(x))
#elif __BYTE_ORDER == __BIG_ENDIAN
#define const_cpu_to_be16(x) ((uint16_t)(x))
#define const_cpu_to_be32(x) ((uint32_t)(x))
#define const_cpu_to_be64(x) ((uint64_t)(x))
#define const_cpu_to_le16(x) __constant_swap16(x)
#define const_cpu_to_le32(x) __constant_swap32(x)
#define const_cpu_to_le64(x) __constant_swap64(x)
#else
#error "unknown byte order"
#endif

#define const_be16_to_cpu(x) const_cpu_to_be16(x)
#define const_be32_to_cpu(x) const_cpu_to_be32(x)
#define const_be64_to_cpu(x) const_cpu_to_be64(x)
#define const_le16_to_cpu(x) const_cpu_to_le16(x)
#define const_le32_to_cpu(x) const_cpu_to_le32(x)
#define const_le64_to_cpu(x) const_cpu_to_le64(x)

#define cpu_to_be16(x) const_cpu_to_be16(x)
#define cpu_to_be32(x) const_cpu_to_be32(x)
#define cpu_to_be64(x) const_cpu_to_be64(x)
#define cpu_to_le16(x) const_cpu_to_le16(x)
#define cpu_to_le32(x) const_cpu_to_le32(x)
#define cpu_to_le64(x) const_cpu_to_le64(x)

#define be16_to_cpu(x) const_be16_to_cpu(x)
#define be32_to_cpu(x) const_be32_to_cpu(x)
#define be64_to_cpu(x) const_be64_to_cpu(x)
#define le16_to_cpu(x) const_le16_to_cpu(x)
#define le32_to_cpu(x) const_le32_to_cpu(x)
#define le64_to_cpu(x) const_le64_to_cpu(x)

// Sizes of the buffers that b64_encode() of n bytes and b64_decode() of n characters need, NUL included.
#define B64_ENCODE_LEN(n) ((((n) + 2) / 3) * 4 + 1)
#define B64_DECODE_LEN(n) (((n) / 4) * 3 + 1)

BASE_DECLS_BEGIN

// One zeroed block for several objects: calloc_a(size, &second, second_size, ...). Sizes are size_t. Each
// part begins where the one before it ends, rounded up to sizeof(size_t). Returns the block, which is the
// first part, and stores the addresses of the others; one free() of it frees all. NULL without memory, and
// then nothing is stored.
#define calloc_a(len, ...) __calloc_a(len, ##__VA_ARGS__, NULL)
void *__calloc_a(size_t len, ...);

// Base64 with `=` padding. Returns the length of the text without its NUL, or -1 when text and NUL do not fit
// into dest_len bytes. dest_len must not be 0.
int b64_encode(const void *src, size_t len, void *dest, size_t dest_len);

// The reverse of a NUL-terminated text; white space in it is skipped. Returns the number of bytes, or -1 when
// padding is missing or wrong, a character is invalid, spare bits are set, or dest_len is too small. A NUL is
// appended if there is room for it.
int b64_decode(const void *src, void *dest, size_t dest_len);

// Ring buffer of cbuf_size(order) bytes, mapped twice back to back, so that every run of that many bytes is
// contiguous. NULL without memory. cbuf_free() takes the same order.
void *cbuf_alloc(unsigned int order);
void cbuf_free(void *ptr, unsigned int order);

// The least order whose power of two holds x; x is at least 2.
static inline unsigned int cbuf_order(unsigned int x) { return 32 - (unsigned int)__builtin_clz(x - 1); }

// Bytes of a ring buffer of that order: a power of two, and a page at least.
static inline unsigned long cbuf_size(unsigned int order) {
    const unsigned long page = (unsigned long)sysconf(_SC_PAGESIZE);
    const unsigned long size = 1ul << order;
    return size < page ? page : size;
}

// Creates a directory with its parents. 0, also if it exists, else -1 with errno. The text is changed and
// restored during the call.
int mkdir_p(char *dir, mode_t mask);

BASE_DECLS_END

#endif
