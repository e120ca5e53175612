// blobmsg_json.h - messages (blobmsg.h) from and to JSON text.
//
// Integers become INT32 if they fit, else INT64; numbers with a point or exponent DOUBLE; booleans INT8; null
// UNSPEC. The other way INT8 is always a boolean, and doubles have six decimals.
#ifndef LIBUBOX_BLOBMSG_JSON_H
#define LIBUBOX_BLOBMSG_JSON_H

#include <stdbool.h>

#include "blobmsg.h"

struct json_object;

BASE_DECLS_BEGIN

// Appends the members of a JSON object. False if it is none, or when memory runs out.
bool blobmsg_add_object(struct blob_buf *b, struct json_object *obj);

// Appends one value; NULL is null. False when memory runs out.
bool blobmsg_add_json_element(struct blob_buf *b, const char *name, struct json_object *obj);

// Appends the members of the object that a text, or a file, begins with. False, and the buffer is unchanged,
// if there is none.
bool blobmsg_add_json_from_string(struct blob_buf *b, const char *str);
bool blobmsg_add_json_from_file(struct blob_buf *b, const char *file);

// Decides how a value is written: returns a text to insert unchanged, or NULL for the usual form. Called for each
// value at every depth, after its name was written.
typedef const char *(*blobmsg_json_format_t)(void *priv, struct blob_attr *attr);

// The caller frees the texts. `indent`: negative for a single line without spaces, else the level
// of tabs of the outermost brackets. A malformed member prints nothing between its commas.

// `list`: the members of attr in brackets, whatever its type (for the head of a message). Otherwise
// attr as one member with its name. NULL without memory, or for a malformed member without payload.
char *blobmsg_format_json_with_cb(struct blob_attr *attr, bool list, blobmsg_json_format_t cb, void *priv,
                                  int indent);

// The value without its name.
char *blobmsg_format_json_value_with_cb(struct blob_attr *attr, blobmsg_json_format_t cb, void *priv,
                                        int indent);

static inline char *blobmsg_format_json(struct blob_attr *attr, bool list) {
    return blobmsg_format_json_with_cb(attr, list, NULL, NULL, -1);
}

static inline char *blobmsg_format_json_indent(struct blob_attr *attr, bool list, int indent) {
    return blobmsg_format_json_with_cb(attr, list, NULL, NULL, indent);
}

static inline char *blobmsg_format_json_value(struct blob_attr *attr) {
    return blobmsg_format_json_value_with_cb(attr, NULL, NULL, -1);
}

static inline char *blobmsg_format_json_value_indent(struct blob_attr *attr, int indent) {
    return blobmsg_format_json_value_with_cb(attr, NULL, NULL, indent);
}

BASE_DECLS_END

#endif
