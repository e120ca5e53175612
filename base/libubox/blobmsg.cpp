// Writing named attributes.
#include <libubox/blobmsg.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "blob_internal.h"

namespace {

// Appends an attribute with its name and room for a value, not yet part of the message. The gap between name
// and value is zero.
blob_attr *append_named(blob_buf *buf, int type, const char *name, std::size_t len) {
    if (!name) name = "";
    const std::size_t namelen = std::strlen(name);
    if (namelen > UINT16_MAX || len > BLOB_ATTR_LEN_MASK) return nullptr;
    const auto header = static_cast<std::size_t>(blobmsg_hdrlen(static_cast<unsigned int>(namelen)));

    blob_attr *attr = blob_append(buf, type, header + len);
    if (!attr) return nullptr;
    attr->id_len |= cpu_to_be32(BLOB_ATTR_EXTENDED);
    auto *hdr = static_cast<blobmsg_hdr *>(blob_data(attr));
    blob_zero_word_before(attr->data + header);
    hdr->namelen = cpu_to_be16(static_cast<std::uint16_t>(namelen));
    std::memcpy(hdr->name, name, namelen);
    return attr;
}

void take(blob_buf *buf, const blob_attr *attr) {
    blob_take(buf, blob_offset(buf, attr) + blob_pad_len(attr));
}

// The string that is written in place: after the message, in memory reserved for it.
blob_attr *string_in_place(blob_buf *buf) { return blob_at(buf, blob_end(buf)); }

} // namespace

int blobmsg_add_field(blob_buf *buf, int type, const char *name, const void *data, unsigned int len) {
    blob_attr *attr = append_named(buf, type, name, len);
    if (!attr) return -1;
    if (len) std::memcpy(blobmsg_data(attr), data, len);
    take(buf, attr);
    return 0;
}

void *blobmsg_open_nested(blob_buf *buf, const char *name, bool array) {
    blob_attr *attr = append_named(buf, array ? BLOBMSG_TYPE_ARRAY : BLOBMSG_TYPE_TABLE, name, 0);
    if (!attr) return nullptr;
    take(buf, attr);
    return blob_enter(buf, attr);
}

void *blobmsg_alloc_string_buffer(blob_buf *buf, const char *name, unsigned int maxlen) {
    if (maxlen >= BLOB_ATTR_LEN_MASK) return nullptr; // before the sum wraps, where words have 32 bits
    const blob_attr *attr = append_named(buf, BLOBMSG_TYPE_STRING, name, std::size_t{maxlen} + 1);
    return blobmsg_data(attr);
}

void *blobmsg_realloc_string_buffer(blob_buf *buf, unsigned int maxlen) {
    const auto *text = static_cast<const char *>(blobmsg_data(string_in_place(buf)));
    const auto start = static_cast<std::size_t>(text - static_cast<const char *>(buf->buf));
    if (maxlen >= BLOB_ATTR_LEN_MASK || !blob_reserve(buf, start + maxlen + 1)) return nullptr;
    return blobmsg_data(string_in_place(buf));
}

void blobmsg_add_string_buffer(blob_buf *buf) {
    blob_attr *attr = string_in_place(buf);
    auto *text = static_cast<char *>(blobmsg_data(attr));
    const auto start = static_cast<std::size_t>(text - static_cast<char *>(buf->buf));
    const std::size_t room = static_cast<std::size_t>(buf->buflen) - start;
    const std::size_t len = strnlen(text, room - 1);
    text[len] = 0;
    blob_set_raw_len(attr, static_cast<unsigned int>(text + len + 1 - reinterpret_cast<char *>(attr)));
    blob_fill_pad(attr);
    take(buf, attr);
}

int blobmsg_vprintf(blob_buf *buf, const char *name, const char *format, va_list arg) {
    va_list again;
    va_copy(again, arg);
    const int len = std::vsnprintf(nullptr, 0, format, again);
    va_end(again);
    if (len < 0) return -1;

    const auto size = static_cast<std::size_t>(len) + 1;
    blob_attr *attr = append_named(buf, BLOBMSG_TYPE_STRING, name, size);
    if (!attr) return -1;
    if (std::vsnprintf(static_cast<char *>(blobmsg_data(attr)), size, format, arg) != len) return -1;
    take(buf, attr);
    return len;
}

int blobmsg_printf(blob_buf *buf, const char *name, const char *format, ...) {
    va_list arg;
    va_start(arg, format);
    const int ret = blobmsg_vprintf(buf, name, format, arg);
    va_end(arg);
    return ret;
}
