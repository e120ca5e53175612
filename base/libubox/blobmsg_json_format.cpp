// Messages to JSON text. Nothing here recurses: a message can nest a hundred thousand levels deep.
#include <libubox/blobmsg_json.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>
#include <utility>

namespace {

// Longest text of a double. The most negative ones lose their last decimal.
constexpr std::size_t double_text_limit = 316;
constexpr int tab_limit = 16;

// A growing text. After a failure to grow it accepts nothing more, and release() returns null.
class text {
public:
    text() = default;
    text(const text &) = delete;
    ~text() { std::free(buf_); }

    void put(char c) {
        if (reserve(1)) buf_[len_++] = c;
    }

    void put(std::string_view s) {
        if (s.empty() || !reserve(s.size())) return;
        std::memcpy(buf_ + len_, s.data(), s.size());
        len_ += s.size();
    }

    // Room for n characters, or null; used() tells how many were written.
    char *room(std::size_t n) { return reserve(n) ? buf_ + len_ : nullptr; }
    void used(std::size_t n) { len_ += n; }

    // The text with its NUL, for the caller to free.
    char *release() {
        put('\0');
        return failed_ ? nullptr : std::exchange(buf_, nullptr);
    }

private:
    bool reserve(std::size_t n) {
        if (n <= cap_ - len_) return true;
        return grow(n);
    }

    bool grow(std::size_t n) {
        const std::size_t cap = std::max<std::size_t>({256, cap_ * 2, len_ + n});
        char *buf = failed_ ? nullptr : static_cast<char *>(std::realloc(buf_, cap));
        if (!buf) {
            failed_ = true;
            return false;
        }
        buf_ = buf;
        cap_ = cap;
        return true;
    }

    char *buf_ = nullptr;
    std::size_t len_ = 0;
    std::size_t cap_ = 0;
    bool failed_ = false;
};

// Control characters, among them the NUL at the end, quotes and backslashes.
constexpr bool is_special(char c) { return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\'; }

// The first special character at or after s. `end` is where memory ends; a NUL comes before it.
const char *find_special(const char *s, const char *end) {
    // Eight at a time, as long as none of them is special: a byte's top bit is set if it is below 0x20, or
    // zero after the exclusive or. Bits above the first hit may be wrong, and bytes from 0x80 on look plain
    // by their own top bit.
    constexpr std::uint64_t ones = 0x0101010101010101, tops = ones * 0x80;
    for (std::uint64_t word; end - s >= 8; s += 8) {
        std::memcpy(&word, s, sizeof(word));
        const std::uint64_t quote = word ^ (ones * '"'), backslash = word ^ (ones * '\\');
        const std::uint64_t below = (word - ones * 0x20) & ~word;
        if ((below | ((quote - ones) & ~quote) | ((backslash - ones) & ~backslash)) & tops) break;
    }
    while (!is_special(*s)) ++s;
    return s;
}

void put_escape(text &out, char c) {
    switch (c) {
    case '\b': return out.put("\\b");
    case '\n': return out.put("\\n");
    case '\t': return out.put("\\t");
    case '\r': return out.put("\\r");
    case '"': return out.put("\\\"");
    case '\\': return out.put("\\\\");
    default:
        out.put("\\u00");
        out.put("0123456789abcdef"[c >> 4 & 15]);
        out.put("0123456789abcdef"[c & 15]);
    }
}

// A text up to its NUL, which is in [s, end).
void put_quoted(text &out, const char *s, const char *end) {
    out.put('"');
    for (;;) {
        const char *special = find_special(s, end);
        out.put(std::string_view{s, static_cast<std::size_t>(special - s)});
        if (!*special) break;
        put_escape(out, *special);
        s = special + 1;
    }
    out.put('"');
}

void put_integer(text &out, std::int64_t value) {
    char digits[20]; // -9223372036854775808
    char *const end = std::end(digits);
    char *at = end;
    const auto bits = static_cast<std::uint64_t>(value);
    for (std::uint64_t rest = value < 0 ? -bits : bits; rest || at == end; rest /= 10)
        *--at = static_cast<char>('0' + rest % 10);
    if (value < 0) *--at = '-';
    out.put(std::string_view{at, static_cast<std::size_t>(end - at)});
}

void put_double(text &out, double value) {
    if (char *at = out.room(double_text_limit + 1)) {
        std::snprintf(at, double_text_limit + 1, "%f", value); // decimal point of the locale
        out.used(std::strlen(at));
    }
}

class formatter {
public:
    formatter(blobmsg_json_format_t cb, void *priv, int indent) : cb_(cb), priv_(priv), indent_(indent) {}
    formatter(const formatter &) = delete;
    ~formatter() { std::free(open_); }

    // The members of `attr`, in brackets.
    void list(blob_attr *attr) {
        enter(attr, blob_is_extended(attr) && blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY);
        run();
    }

    // One value, after its name if it is to have one.
    void element(blob_attr *attr, bool named) {
        value(attr, named);
        run();
    }

    // The text, or null without memory.
    char *release() { return failed_ ? nullptr : out_.release(); }

private:
    // A table or array whose members are being written.
    struct container {
        blob_attr *next;
        std::size_t rem;
        bool array;
        bool first;
    };

    void enter(blob_attr *attr, bool array) {
        if (depth_ == capacity_) {
            const std::size_t capacity = std::max<std::size_t>(8, capacity_ * 2);
            auto *open = static_cast<container *>(std::realloc(open_, capacity * sizeof(container)));
            if (!open) {
                failed_ = true;
                return;
            }
            open_ = open;
            capacity_ = capacity;
        }
        open_[depth_++] = {static_cast<blob_attr *>(blobmsg_data(attr)), blobmsg_len(attr), array, true};
        out_.put(array ? '[' : '{');
        new_line();
    }

    void run() {
        while (depth_ && !failed_) {
            container &c = open_[depth_ - 1];
            if (!__blob_fits(c.next, static_cast<std::ptrdiff_t>(c.rem))) {
                const bool array = c.array;
                --depth_;
                new_line();
                out_.put(array ? ']' : '}');
                continue;
            }
            blob_attr *attr = c.next;
            const bool array = c.array;
            __blob_step(c.next, c.rem);
            if (!std::exchange(c.first, false)) {
                out_.put(',');
                new_line();
            }
            value(attr, !array);
        }
    }

    void value(blob_attr *attr, bool named) {
        if (!blobmsg_check_attr(attr, false)) return;
        if (named && blob_is_extended(attr) && *blobmsg_name(attr)) {
            put_quoted(out_, blobmsg_name(attr), static_cast<const char *>(blobmsg_data(attr)));
            out_.put(indent_ < 0 ? ":" : ": ");
        }
        if (const char *given = cb_ ? cb_(priv_, attr) : nullptr) {
            out_.put(given);
            return;
        }
        switch (blobmsg_type(attr)) {
        case BLOBMSG_TYPE_UNSPEC: out_.put("null"); break;
        case BLOBMSG_TYPE_INT8: out_.put(blobmsg_get_bool(attr) ? "true" : "false"); break;
        case BLOBMSG_TYPE_INT16:
        case BLOBMSG_TYPE_INT32:
        case BLOBMSG_TYPE_INT64: put_integer(out_, blobmsg_cast_s64(attr)); break;
        case BLOBMSG_TYPE_DOUBLE: put_double(out_, blobmsg_get_double(attr)); break;
        case BLOBMSG_TYPE_STRING:
            put_quoted(out_, blobmsg_get_string(attr), attr->data + blob_len(attr));
            break;
        case BLOBMSG_TYPE_TABLE: enter(attr, false); break;
        case BLOBMSG_TYPE_ARRAY: enter(attr, true); break;
        }
    }

    void new_line() {
        if (indent_ < 0) return;
        out_.put('\n');
        const std::size_t level = static_cast<std::size_t>(indent_) + depth_;
        out_.put(
            std::string_view{"\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t", std::min<std::size_t>(level, tab_limit)});
    }

    text out_;
    container *open_ = nullptr; // the path from the outermost container to the current one
    std::size_t depth_ = 0;
    std::size_t capacity_ = 0;
    bool failed_ = false;
    blobmsg_json_format_t cb_;
    void *priv_;
    int indent_;
};

char *format_element(blob_attr *attr, bool named, blobmsg_json_format_t cb, void *priv, int indent) {
    if (!blobmsg_check_attr(attr, false) && blob_raw_len(attr) <= sizeof(blob_attr)) return nullptr;
    formatter f{cb, priv, indent};
    f.element(attr, named);
    return f.release();
}

} // namespace

char *blobmsg_format_json_with_cb(blob_attr *attr, bool list, blobmsg_json_format_t cb, void *priv,
                                  int indent) {
    if (!list) return format_element(attr, true, cb, priv, indent);
    formatter f{cb, priv, indent};
    f.list(attr);
    return f.release();
}

char *blobmsg_format_json_value_with_cb(blob_attr *attr, blobmsg_json_format_t cb, void *priv, int indent) {
    return format_element(attr, false, cb, priv, indent);
}
