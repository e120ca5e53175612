// Bytes of a message from outside: checking, parsing, walking and formatting stay within them, and what
// passes the check can be copied and written as text.
#include <libubox/blobmsg_json.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

using owned_text = std::unique_ptr<char, decltype([](char *p) { std::free(p); })>;

struct message {
    blob_buf buf = {};
    ~message() { blob_buf_free(&buf); }
};

const blobmsg_policy policy[] = {
    {"i", BLOBMSG_TYPE_INT32}, {"s", BLOBMSG_TYPE_STRING}, {"t", BLOBMSG_TYPE_TABLE},
    {"l", BLOBMSG_TYPE_ARRAY}, {"b", BLOBMSG_TYPE_BOOL},   {"d", BLOBMSG_TYPE_DOUBLE},
    {"q", BLOBMSG_TYPE_INT64}, {"h", BLOBMSG_TYPE_INT16},  {"u", BLOBMSG_TYPE_UNSPEC},
    {"c", BLOBMSG_CAST_INT64}, {"", BLOBMSG_TYPE_UNSPEC},  {nullptr, BLOBMSG_TYPE_UNSPEC}};
const blob_attr_info info[] = {
    {BLOB_ATTR_UNSPEC, 0, 0, nullptr}, {BLOB_ATTR_INT32, 0, 0, nullptr},  {BLOB_ATTR_STRING, 0, 0, nullptr},
    {BLOB_ATTR_STRING, 6, 9, nullptr}, {BLOB_ATTR_INT8, 0, 0, nullptr},   {BLOB_ATTR_INT16, 0, 0, nullptr},
    {BLOB_ATTR_INT64, 0, 0, nullptr},  {BLOB_ATTR_NESTED, 0, 0, nullptr}, {BLOB_ATTR_DOUBLE, 0, 0, nullptr}};

// Every byte of a value that was found is within the input, and is read.
void read_value(blob_attr *attr) {
    if (!attr) return;
    require(blobmsg_check_attr(attr, false));
    volatile std::uint64_t sink = blobmsg_cast_u64(attr);
    if (blobmsg_type(attr) == BLOBMSG_TYPE_STRING) sink = std::strlen(blobmsg_get_string(attr));
    if (blobmsg_type(attr) == BLOBMSG_TYPE_DOUBLE) sink = blobmsg_get_double(attr) > 0;
    (void)sink;
}

// Members written again give the same text.
void copy_and_compare(blob_attr *list) {
    message copy;
    blobmsg_buf_init(&copy.buf);
    const bool brackets = blob_is_extended(list) && blobmsg_type(list) == BLOBMSG_TYPE_ARRAY;
    void *cookie = blobmsg_open_nested(&copy.buf, "copy", brackets);
    blob_attr *pos;
    std::size_t rem;
    blobmsg_for_each_attr (pos, list, rem) require(blobmsg_add_blob(&copy.buf, pos) == 0);
    blob_nest_end(&copy.buf, cookie);

    const owned_text theirs{blobmsg_format_json(list, true)};
    const owned_text ours{blobmsg_format_json(static_cast<blob_attr *>(blob_data(copy.buf.head)), true)};
    require(std::strcmp(ours.get(), theirs.get()) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    // Attributes start at multiples of 4, and the checker of memory wants to see one byte too far.
    const std::unique_ptr<char[]> bytes(new char[size]);
    std::copy_n(data, size, bytes.get());
    auto *head = reinterpret_cast<blob_attr *>(bytes.get());
    char *rest = size < 4 ? nullptr : bytes.get() + 4;
    const auto rest_len = static_cast<unsigned>(size < 4 ? 0 : size - 4);

    blob_attr *tb[std::size(policy)] = {};
    if (blobmsg_parse(policy, std::size(policy), tb, rest, rest_len) == 0)
        for (blob_attr *attr : tb) read_value(attr);
    if (blobmsg_parse_array(policy, std::size(policy), tb, rest, rest_len) == 0)
        for (blob_attr *attr : tb) read_value(attr);
    blob_parse_untrusted(head, size, tb, info, std::size(info));
    blob_parse_untrusted(head, size, tb, nullptr, std::size(tb));

    if (!blobmsg_check_attr_len(head, false, size)) return 0;
    owned_text{blobmsg_format_json(head, true)};
    owned_text{blobmsg_format_json(head, false)};
    owned_text{blobmsg_format_json_value_indent(head, 0)};
    for (int type = 0; type <= BLOBMSG_TYPE_LAST + 1; ++type) {
        if (blobmsg_check_array_len(head, type, size) >= 0) copy_and_compare(head);
    }
    return 0;
}
