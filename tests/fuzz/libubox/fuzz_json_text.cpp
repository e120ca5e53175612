// JSON text from outside: if it becomes a message, that is a sound one, and its text, read again, gives the same
// message.
#include <libubox/blobmsg_json.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

using owned_text = std::unique_ptr<char, decltype([](char *p) { std::free(p); })>;

struct message {
    blob_buf buf = {};
    message() { blobmsg_buf_init(&buf); }
    ~message() { blob_buf_free(&buf); }
};

void check_members(blob_attr *list) {
    require(blobmsg_check_attr(list, false));
    blob_attr *pos;
    std::size_t rem;
    blobmsg_for_each_attr (pos, list, rem) {
        require(blobmsg_check_attr_len(pos, false, rem));
        if (blobmsg_type(pos) == BLOBMSG_TYPE_TABLE || blobmsg_type(pos) == BLOBMSG_TYPE_ARRAY)
            check_members(pos);
    }
    require(rem == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const std::string text(reinterpret_cast<const char *>(data), size);
    message first;
    if (!blobmsg_add_json_from_string(&first.buf, text.c_str())) {
        require(blob_len(first.buf.head) == 0);
        return 0;
    }
    check_members(first.buf.head);
    const owned_text said{blobmsg_format_json(first.buf.head, true)};
    owned_text{blobmsg_format_json_indent(first.buf.head, true, 0)};

    // Not every message has a text that can be read: members without a name, infinite numbers.
    message second;
    if (!blobmsg_add_json_from_string(&second.buf, said.get())) return 0;
    const owned_text again{blobmsg_format_json(second.buf.head, true)};
    require(std::strcmp(said.get(), again.get()) == 0);
    return 0;
}
