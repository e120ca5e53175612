// internal.h - types and functions that the parts of the library share.
#ifndef UBUS_INTERNAL_H
#define UBUS_INTERNAL_H

#include <libubus.h>

#include "wire.h"

namespace ubus_client {

using ubus_wire::builder;

// A received message, on its way to its receiver.
struct message {
    std::uint8_t type; // of enum ubus_msg_type, or anything else
    std::uint16_t seq;
    std::uint32_t peer;
    blob_attr *body;
    int fd; // the receiver sets it to -1 when it takes it over
};

// A message that has to wait: `body` points to the bytes after the struct.
struct kept_message {
    list_head list;
    message msg;
};

// Copies a message to the end of a list and takes its descriptor along. Without memory the message is lost.
void keep(list_head *list, message &msg);
// Takes the first message off; release it with discard.
kept_message *take_first(list_head *list);
void discard(kept_message *kept);
void discard_all(list_head *list);

// The library's buffer for outgoing messages. A message is built and sent with nothing in between.
blob_buf &out_buffer();

// ---- io.cpp

// Sends a message, waiting until all of it is written; closes `fd`. False if it could not be sent or `root`
// is null; the connection is lost if it broke within the message. `end` as in ubus_wire::send_some.
bool send(ubus_context *ctx, ubus_msg_type type, std::uint16_t seq, std::uint32_t peer, const blob_attr *root,
          int fd = -1, const ubus_wire::apart &end = {});
// Reads and dispatches one message if there is one. `closed` also for a malformed stream.
ubus_wire::progress read_one(ubus_context *ctx);
// Delivers the messages that arrived during synchronous calls, if no such call is running.
void deliver_pending(ubus_context *ctx);
// While it lives, messages to our objects wait: their handlers may remove and free any object, also the
// one that is in use.
class handlers_wait {
public:
    explicit handlers_wait(ubus_context *ctx) : ctx_(ctx) { ++ctx->stack_depth; }
    handlers_wait(handlers_wait &&) = delete;
    ~handlers_wait() {
        --ctx_->stack_depth;
        if (!ctx_->sock.registered) deliver_pending(ctx_);
    }

private:
    ubus_context *ctx_;
};
// Closes the socket and ends all requests that wait. From then on ctx->sock.fd is -1.
void lose_connection(ubus_context *ctx);
// The connection_lost of a context whose program sets none of its own.
void end_loop(ubus_context *ctx);
// Drops what has been received of a message so far.
void forget_input(ubus_context *ctx);
void on_socket(uloop_fd *sock, unsigned events);
void on_pending_timer(uloop_timeout *timer);

// ---- connection.cpp

// Makes an unconnected context out of any memory.
void init_context(ubus_context *ctx);

// ---- request.cpp

// Sends a request with the next number and initialises *req. 0 or 2.
int start(ubus_context *ctx, ubus_request *req, ubus_msg_type type, std::uint32_t peer, const blob_attr *root,
          int fd = -1);
// Sends a request to the broker and waits for its end. 2 for a channel, which has no broker.
int ask(ubus_context *ctx, ubus_msg_type type, const blob_attr *root,
        ubus_data_handler_t raw_data_cb = nullptr, void *priv = nullptr);
// A STATUS or DATA message.
void answer(ubus_context *ctx, message &msg);
// Ends a request.
void finish(ubus_request *req, int status);

// ---- notify.cpp

// The index of subscriber `id` whose answer `req`, part of a notification, waits for; 0 if there is none.
int awaited_subscriber(const ubus_request *req, std::uint32_t id);
// A STATUS that belongs to a notification. True if all have answered now; a callback may have freed `req`
// then.
bool notify_status(ubus_request *req, const message &msg, blob_attr **attrs, int status);

// ---- object.cpp

// An INVOKE, NOTIFY or UNSUBSCRIBE message.
void deliver(ubus_context *ctx, message &msg);
bool is_registered(ubus_context *ctx, const ubus_object *obj);
int compare_ids(const void *a, const void *b, void *);

// ---- subscriber.cpp

extern const ubus_method watch_method; // the method table of subscribers: takes every notification
// Subscribes the automatic subscribers anew, after a reconnect.
void renew_automatic(ubus_context *ctx);

} // namespace ubus_client

#endif
