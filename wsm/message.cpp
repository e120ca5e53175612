#include "message.h"

#include "text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

struct blob_attr *member(struct blob_attr *table, const char *name) {
    struct blob_attr *found = nullptr;
    for_each(table, [&](struct blob_attr *one) {
        if (!found && std::strcmp(blobmsg_name(one), name) == 0) found = one;
    });
    return found;
}

const char *text_of(struct blob_attr *table, const char *name) {
    struct blob_attr *value = member(table, name);
    return value && blobmsg_type(value) == BLOBMSG_TYPE_STRING ? blobmsg_get_string(value) : "";
}

bool read_number(struct blob_attr *value, std::int64_t &number) {
    switch (blobmsg_type(value)) {
    case BLOBMSG_TYPE_INT8: number = blobmsg_get_u8(value); return true;
    case BLOBMSG_TYPE_INT16: number = static_cast<std::int16_t>(blobmsg_get_u16(value)); return true;
    case BLOBMSG_TYPE_INT32: number = static_cast<std::int32_t>(blobmsg_get_u32(value)); return true;
    case BLOBMSG_TYPE_INT64: number = static_cast<std::int64_t>(blobmsg_get_u64(value)); return true;
    default: return false;
    }
}

std::int64_t number_of(struct blob_attr *table, const char *name, std::int64_t instead) {
    struct blob_attr *value = member(table, name);
    std::int64_t number = 0;
    return value && read_number(value, number) ? number : instead;
}

bool truth_of(struct blob_attr *table, const char *name) { return number_of(table, name) != 0; }

namespace {

// Prints printable characters unchanged and the rest as JSON escapes; `text`: also escapes the characters that JSON requires.
void print_escaped(const char *at, bool text) {
    while (*at != '\0') {
        std::uint32_t character = 0;
        const std::size_t length = read_character(at, character);
        if (length == 0) {
            std::fputs("\\ufffd", stdout);
            ++at;
            continue;
        }
        if (text && (*at == '"' || *at == '\\')) std::putchar('\\');
        if (is_shown(character))
            std::fwrite(at, 1, length, stdout);
        else if (character > 0xffff) // as a surrogate pair
            std::printf("\\u%04x\\u%04x", 0xd800 + ((character - 0x10000) >> 10),
                        0xdc00 + (character & 0x3ff));
        else
            std::printf("\\u%04x", character);
        at += length;
    }
}

} // namespace

bool print_json(struct blob_attr *value, const char *behind) {
    char *json = blobmsg_format_json(value, true);
    if (!json) return false;
    print_escaped(json, false);
    std::puts(behind);
    std::free(json);
    return true;
}

void print_json_text(const char *text) {
    std::putchar('"');
    print_escaped(text, true);
    std::putchar('"');
}
