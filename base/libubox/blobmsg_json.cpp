// Messages from JSON. The text is read by json-c, in its lenient default mode.
#include <libubox/blobmsg_json.h>

#include <climits>
#include <cstdint>
#include <json-c/json.h>
#include <memory>

namespace {

struct put_json {
    void operator()(json_object *obj) const noexcept { json_object_put(obj); }
};
using owned_json = std::unique_ptr<json_object, put_json>;

bool add_integer(blob_buf *b, const char *name, std::int64_t value) {
    if (value >= INT32_MIN && value <= INT32_MAX)
        return blobmsg_add_u32(b, name, static_cast<std::uint32_t>(value)) == 0;
    return blobmsg_add_u64(b, name, static_cast<std::uint64_t>(value)) == 0;
}

bool add_array(blob_buf *b, const char *name, json_object *array) {
    void *cookie = blobmsg_open_array(b, name);
    if (!cookie) return false;
    bool ok = true;
    for (std::size_t i = 0; ok && i < json_object_array_length(array); ++i)
        ok = blobmsg_add_json_element(b, nullptr, json_object_array_get_idx(array, i));
    blobmsg_close_array(b, cookie);
    return ok;
}

bool add_table(blob_buf *b, const char *name, json_object *object) {
    void *cookie = blobmsg_open_table(b, name);
    if (!cookie) return false;
    const bool ok = blobmsg_add_object(b, object);
    blobmsg_close_table(b, cookie);
    return ok;
}

} // namespace

bool blobmsg_add_json_element(blob_buf *b, const char *name, json_object *obj) {
    switch (json_object_get_type(obj)) {
    case json_type_null: return blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, name, nullptr, 0) == 0;
    case json_type_boolean: return blobmsg_add_u8(b, name, json_object_get_boolean(obj) != 0) == 0;
    case json_type_double: return blobmsg_add_double(b, name, json_object_get_double(obj)) == 0;
    case json_type_int: return add_integer(b, name, json_object_get_int64(obj));
    case json_type_object: return add_table(b, name, obj);
    case json_type_array: return add_array(b, name, obj);
    case json_type_string: return blobmsg_add_string(b, name, json_object_get_string(obj)) == 0;
    }
    return false;
}

bool blobmsg_add_object(blob_buf *b, json_object *obj) {
    if (!json_object_is_type(obj, json_type_object)) return false;
    json_object_iterator member = json_object_iter_begin(obj);
    const json_object_iterator end = json_object_iter_end(obj);
    for (; !json_object_iter_equal(&member, &end); json_object_iter_next(&member)) {
        if (!blobmsg_add_json_element(b, json_object_iter_peek_name(&member),
                                      json_object_iter_peek_value(&member)))
            return false;
    }
    return true;
}

bool blobmsg_add_json_from_string(blob_buf *b, const char *str) {
    const owned_json obj{json_tokener_parse(str)};
    return blobmsg_add_object(b, obj.get());
}

bool blobmsg_add_json_from_file(blob_buf *b, const char *file) {
    const owned_json obj{json_object_from_file(file)};
    return blobmsg_add_object(b, obj.get());
}
