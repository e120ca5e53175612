// peer_objects.h - the objects that ubus-peer can register. What they do is made up, for tests only.
#ifndef PEER_OBJECTS_H
#define PEER_OBJECTS_H

#include <string>

#include <libubus.h>

// A message that is built and thrown away.
class fields {
public:
    fields() { blob_buf_init(&buf_, 0); }
    ~fields() { blob_buf_free(&buf_); }
    fields(fields &&) = delete;

    blob_buf *operator&() { return &buf_; }
    operator blob_attr *() { return buf_.head; }

private:
    blob_buf buf_{};
};

// Kinds: "sta" (stations: get, set, delete), "toolbox" (echo, slow, relay, ...), "ping" (one method that returns 0).
// Objects of a kind share a type.
void make_object(ubus_object &obj, const char *name, const std::string &kind);

// Looks a path up and calls one of its methods; `out` gets the replies. The status of the first step that
// fails.
int call_path(ubus_context *ctx, const char *path, const char *method, blob_attr *msg, int timeout,
              ubus_data_handler_t on_data = nullptr, void *priv = nullptr);

#endif
