// message.h - a message buffer and JSON texts that free themselves.
#ifndef TESTS_BASE_LIBUBOX_MESSAGE_H
#define TESTS_BASE_LIBUBOX_MESSAGE_H

#include <cstdlib>
#include <libubox/blobmsg_json.h>
#include <optional>
#include <string>

struct message {
    blob_buf buf = {};

    message() = default;
    message(const message &) = delete;
    ~message() { blob_buf_free(&buf); }

    operator blob_buf *() { return &buf; }
    std::string bytes() const { return {reinterpret_cast<const char *>(buf.head), blob_raw_len(buf.head)}; }
};

// Takes a text of the library's; empty for null.
inline std::optional<std::string> take_text(char *text) {
    if (!text) return std::nullopt;
    std::string s = text;
    std::free(text);
    return s;
}

#endif
