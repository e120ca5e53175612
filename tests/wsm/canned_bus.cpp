#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "tests/wsm/canned_bus.h"
#include "wsm/text.h"

namespace {

canned_bus *bus = nullptr;
struct ubus_subscriber *subscriber = nullptr;
std::size_t answered = 0;
constexpr std::uint32_t first_id = 7;
std::array<const char *, 2> names{"wsmd", "sta"};

// In a block of exactly its size, so that a memory checker reports a read of even one byte too many.
class message {
public:
    explicit message(const content &from)
        : size(from.size() + sizeof(blob_attr)), bytes(new std::uint8_t[size]) {
        const auto length = static_cast<std::uint32_t>(size);
        for (std::size_t i = 0; i < sizeof(blob_attr); ++i)
            bytes[i] = static_cast<std::uint8_t>(length >> (24 - 8 * i));
        std::copy(from.begin(), from.end(), bytes + sizeof(blob_attr));
    }
    ~message() { delete[] bytes; }
    message(const message &) = delete;
    struct blob_attr *head() {
        return reinterpret_cast<struct blob_attr *>(bytes);
    }

private:
    std::size_t size;
    std::uint8_t *bytes;
};

// Redirects a standard stream into memory for a while.
class captured {
public:
    explicit captured(std::FILE *&which) : stream(which), before(which) {
        stream = open_memstream(&bytes, &size);
    }
    captured(const captured &) = delete;
    ~captured() { std::free(bytes); }

    std::string end() {
        std::fclose(stream);
        stream = before;
        return {bytes, size};
    }

private:
    std::FILE *&stream, *before;
    char *bytes = nullptr;
    std::size_t size = 0;
};

bool turns_direction(std::uint32_t c) {
    return (c >= 0x202a && c <= 0x202e) || (c >= 0x2066 && c <= 0x2069) || c == 0x200e || c == 0x200f ||
           c == 0x61c;
}

} // namespace

content content_of(const char *json) {
    struct blob_buf buf = {};
    blob_buf_init(&buf, 0);
    if (!blobmsg_add_json_from_string(&buf, json)) std::abort();
    const auto *data = static_cast<const std::uint8_t *>(blob_data(buf.head));
    content made(data, data + blob_len(buf.head));
    blob_buf_free(&buf);
    return made;
}

canned_bus::canned_bus() {
    bus = this;
    answered = 0;
    subscriber = nullptr;
}

canned_bus::~canned_bus() { bus = nullptr; }

std::vector<std::string> canned_bus::asked() const {
    std::vector<std::string> all;
    for (const question &one : questions) {
        char *json = blobmsg_format_json(message(one.arguments).head(), true);
        all.push_back(one.method + " " + json);
        std::free(json);
    }
    return all;
}

extern "C" {

int ubus_lookup_id(struct ubus_context *, const char *path, std::uint32_t *id) {
    for (std::size_t i = 0; i < names.size(); ++i)
        if (std::strcmp(path, names[i]) == 0) *id = first_id + static_cast<std::uint32_t>(i);
    return bus->object;
}

int ubus_invoke_fd(struct ubus_context *context, std::uint32_t obj, const char *method, struct blob_attr *msg,
                   ubus_data_handler_t cb, void *priv, int, int) {
    const auto *data = static_cast<const std::uint8_t *>(blob_data(msg));
    bus->questions.push_back(
        {std::string{names.at(obj - first_id)} + " " + method, content(data, data + blob_len(msg))});
    if (answered == bus->answers.size()) return UBUS_STATUS_TIMEOUT;
    message answer(bus->answers[answered++]);
    struct ubus_request request = {};
    request.ctx = context;
    request.priv = priv;
    if (cb) cb(&request, UBUS_MSG_DATA, answer.head());
    return bus->status;
}

int ubus_register_subscriber(struct ubus_context *, struct ubus_subscriber *s) {
    subscriber = s;
    return UBUS_STATUS_OK;
}

int ubus_subscribe(struct ubus_context *, struct ubus_subscriber *, std::uint32_t) { return UBUS_STATUS_OK; }

int uloop_init(void) { return 0; }
void uloop_done(void) {}
int uloop_fd_add(struct uloop_fd *, unsigned) { return 0; }

int uloop_run_timeout(int) {
    for (const canned_bus::notification &one : bus->notifications) {
        message told(one.message);
        subscriber->cb(bus->context(), &subscriber->obj, nullptr, one.kind.c_str(), told.head());
    }
    subscriber->remove_cb(bus->context(), subscriber, first_id);
    return 0;
}

// The linker redirects the tool's calls to these (--wrap): the tests need not wait for an absent daemon.
int __wrap_nanosleep(const struct timespec *, struct timespec *);
int __wrap_nanosleep(const struct timespec *, struct timespec *) { return 0; }
}

shown screen_of(const std::function<exit_status()> &work) {
    setenv("LC_ALL", "C.UTF-8", 1);
    text_begin();
    captured out(stdout), error(stderr);
    const exit_status status = work();
    return {status, out.end(), error.end()};
}

std::string unfit_for_a_terminal(const std::string &text) {
    std::mbstate_t state{};
    for (std::size_t at = 0; at < text.size();) {
        wchar_t character = 0;
        const std::size_t length = std::mbrtowc(&character, &text[at], text.size() - at, &state);
        const auto c = static_cast<std::uint32_t>(character);
        if (length == 0 || length > text.size()) return "no text at byte " + std::to_string(at);
        const bool control = (c < 0x20 && c != '\n') || (c >= 0x7f && c < 0xa0);
        if (control || turns_direction(c))
            return "character " + std::to_string(c) + " at byte " + std::to_string(at);
        at += length;
    }
    return "";
}

int widest_line(const std::string &text) {
    int widest = 0, columns = 0;
    std::mbstate_t state{};
    for (std::size_t at = 0; at < text.size();) {
        wchar_t character = 0;
        const std::size_t length = std::mbrtowc(&character, &text[at], text.size() - at, &state);
        if (length == 0 || length > text.size()) break;
        columns = character == L'\n' ? 0 : columns + std::max(wcwidth(character), 0);
        widest = std::max(widest, columns);
        at += length;
    }
    return widest;
}
