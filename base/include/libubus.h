// libubus.h - the bus, seen from a client: objects with methods, calls, notifications, events.
//
// Statuses  Functions that return int return 0 or one of enum ubus_msg_status, unless they say otherwise; a
//           call returns what the handler at the other end returned, negative numbers included.
// Thread    None of this is safe to use from two threads. All callbacks run from the loop (ubus_handle_event)
//           or inside a synchronous function of the same context.
// Waiting   Synchronous functions poll the bus socket only: no timer, signal or other descriptor of the loop
//           runs. Answers to other outstanding requests are delivered meanwhile; incoming calls, events,
//           notifications and subscriber changes are kept, and delivered in order of arrival when no function of
//           the context is on the stack.
// Pointers  Arguments of callbacks are valid until the callback returns. Messages given to the library stay
//           the caller's; registered structs must live until they are removed, or the context is shut down.
// Messages  `msg` of callbacks holds fields: parse blob_data(msg), blob_len(msg). It is never NULL.
// Limit     A message above UBUS_MSG_LIMIT is refused: 2 (invalid argument) for requests and notifications, 5
//           for replies.
#ifndef __LIBUBUS_H
#define __LIBUBUS_H

#include <stdint.h>
#include <string.h>

#include <libubox/avl.h>
#include <libubox/blobmsg.h>
#include <libubox/list.h>
#include <libubox/uloop.h>

#include "ubus_common.h"
#include "ubusmsg.h"

BASE_DECLS_BEGIN

#define UBUS_MAX_NOTIFY_PEERS 16 // subscribers whose answers a notification waits for

struct ubus_context;
struct ubus_object;
struct ubus_object_data;
struct ubus_event_handler;
struct ubus_subscriber;
struct ubus_request;
struct ubus_request_data;
struct ubus_notify_request;
struct blob_attr;

// A method call or notification. The result becomes the status of the answer, unless the request was
// deferred.
typedef int (*ubus_handler_t)(struct ubus_context *ctx, struct ubus_object *obj,
                              struct ubus_request_data *req, const char *method, struct blob_attr *msg);
// The first subscriber came or the last one left: see obj->has_subscribers.
typedef void (*ubus_state_handler_t)(struct ubus_context *ctx, struct ubus_object *obj);
// The watched object `id` is gone, and the subscription with it.
typedef void (*ubus_remove_handler_t)(struct ubus_context *ctx, struct ubus_subscriber *s, uint32_t id);
// An event; `type` is its name.
typedef void (*ubus_event_handler_t)(struct ubus_context *ctx, struct ubus_event_handler *ev,
                                     const char *type, struct blob_attr *msg);
// Offers an object; true = subscribe to it.
typedef bool (*ubus_new_object_handler_t)(struct ubus_context *ctx, struct ubus_subscriber *s,
                                          const char *path);
// One object that a lookup has found.
typedef void (*ubus_lookup_handler_t)(struct ubus_context *ctx, struct ubus_object_data *obj, void *priv);
// One reply; `type` is UBUS_MSG_DATA.
typedef void (*ubus_data_handler_t)(struct ubus_request *req, int type, struct blob_attr *msg);
// A descriptor came with the status. The receiver closes it.
typedef void (*ubus_fd_handler_t)(struct ubus_request *req, int fd);
// The request has ended; runs once.
typedef void (*ubus_complete_handler_t)(struct ubus_request *req, int ret);
// Subscriber req->id[idx] has answered; or, as complete_cb, all have.
typedef void (*ubus_notify_complete_handler_t)(struct ubus_notify_request *req, int idx, int ret);
typedef void (*ubus_notify_data_handler_t)(struct ubus_notify_request *req, int type, struct blob_attr *msg);
typedef void (*ubus_connect_handler_t)(struct ubus_context *ctx);

// ---- tables of methods ----------------------------------------------------------------------------------

// clang-format off
#define UBUS_OBJECT_TYPE(_name, _methods) \
    { .name = _name, .id = 0, .methods = _methods, .n_methods = ARRAY_SIZE(_methods) }

#define __UBUS_METHOD_BASE(_name, _handler, _mask, _tags) \
    .name = _name, .handler = _handler, .mask = _mask, .tags = _tags
#define __UBUS_METHOD_NOARG(_name, _handler, _mask, _tags) \
    __UBUS_METHOD_BASE(_name, _handler, _mask, _tags), .policy = NULL, .n_policy = 0
#define __UBUS_METHOD(_name, _handler, _mask, _policy, _tags) \
    __UBUS_METHOD_BASE(_name, _handler, _mask, _tags), .policy = _policy, .n_policy = ARRAY_SIZE(_policy)

// `_policy` must be an array. Bit i of `_mask`: entry i of the policy is an argument of this method; 0 = all are.
#define UBUS_METHOD(_name, _handler, _policy)             { __UBUS_METHOD(_name, _handler, 0, _policy, 0) }
#define UBUS_METHOD_TAG(_name, _handler, _policy, _tags)  { __UBUS_METHOD(_name, _handler, 0, _policy, _tags) }
#define UBUS_METHOD_MASK(_name, _handler, _policy, _mask) { __UBUS_METHOD(_name, _handler, _mask, _policy, 0) }
#define UBUS_METHOD_NOARG(_name, _handler)                { __UBUS_METHOD_NOARG(_name, _handler, 0, 0) }
#define UBUS_METHOD_TAG_NOARG(_name, _handler, _tags)     { __UBUS_METHOD_NOARG(_name, _handler, 0, _tags) }
// clang-format on

#define UBUS_TAG_STATUS 1ul
#define UBUS_TAG_ADMIN 2ul
#define UBUS_TAG_PRIVATE 4ul

struct ubus_method {
    const char *name; // NULL matches every name
    ubus_handler_t handler;
    unsigned long mask;
    unsigned long tags;
    const struct blobmsg_policy *policy; // what is published; handlers check their arguments themselves
    int n_policy;
};

struct ubus_object_type {
    const char *name; // for the program itself
    uint32_t id;      // 0 = not known to the broker
    const struct ubus_method *methods;
    int n_methods;
};

// Set the public members, leave the others zero.
struct ubus_object {
    struct avl_node avl; // in ubus_context.objects, by id
    const char *name;    // its path on the bus; NULL = anonymous
    uint32_t id;         // 0 = not registered
    const char *path;    // unused
    struct ubus_object_type *type;
    ubus_state_handler_t subscribe_cb;
    bool has_subscribers;
    const struct ubus_method *methods; // what is called; type->methods is what is published
    int n_methods;
};

struct ubus_subscriber {
    struct list_head list; // in ubus_context.auto_subscribers if new_obj_cb is set
    struct ubus_object obj;
    ubus_handler_t cb; // NULL: answers 0
    ubus_remove_handler_t remove_cb;
    ubus_new_object_handler_t new_obj_cb; // set: subscribes automatically to what this accepts
};

struct ubus_event_handler {
    struct ubus_object obj;
    ubus_event_handler_t cb;
};

// What a lookup has found.
struct ubus_object_data {
    uint32_t id;
    uint32_t type_id;
    const char *path;
    struct blob_attr *signature; // NULL if none was sent
};

struct ubus_acl_key {
    const char *user;
    const char *group;
    const char *object;
};

// ---- the connection -------------------------------------------------------------------------------------

struct ubus_msghdr_buf {
    struct ubus_msghdr hdr;
    struct blob_attr *data;
};

struct ubus_context {
    struct list_head requests; // struct ubus_request, waiting for answers
    struct avl_tree objects;   // struct ubus_object, by id
    struct list_head pending;  // messages that arrived during a synchronous call

    struct uloop_fd sock;
    struct uloop_timeout pending_timer;

    uint32_t local_id; // of this client, in network order
    uint16_t request_seq;
    bool cancel_poll;
    int stack_depth; // callbacks of objects and synchronous calls that are running

    void (*connection_lost)(struct ubus_context *ctx); // must not free the context; NULL = nothing to do
    void (*monitor_cb)(struct ubus_context *ctx, uint32_t seq, struct blob_attr *data);

    // The library's receive buffer.
    struct ubus_msghdr_buf msgbuf;
    uint32_t msgbuf_data_len;
    int msgbuf_reduction_counter;

    union {
        struct { // connected to a broker
            struct list_head auto_subscribers;
            struct ubus_event_handler auto_subscribe_event_handler;
        };
        struct { // a channel
            ubus_handler_t request_handler;
        };
    };
};

struct ubus_auto_conn {
    struct ubus_context ctx;
    struct uloop_timeout timer;
    const char *path;          // NULL = the default
    ubus_connect_handler_t cb; // after the first connect
};

// An incoming call.
struct ubus_request_data {
    uint32_t object;
    uint32_t peer;
    uint16_t seq;

    struct ubus_acl_key acl; // who calls; all NULL for events

    // internal
    bool deferred;
    int fd;
    int req_fd;
};

// An outgoing request. Belongs to the program, and must live until it has ended or was aborted.
struct ubus_request {
    struct list_head list;
    struct list_head pending; // replies that wait while data_cb makes a call itself

    int status_code;
    bool status_msg; // it has ended
    bool blocked;    // data_cb is running
    bool cancelled;  // the connection was lost before it ended
    bool notify;     // it is part of a struct ubus_notify_request

    uint32_t peer;
    uint16_t seq;

    ubus_data_handler_t raw_data_cb; // as data_cb, with the whole body of the message
    ubus_data_handler_t data_cb;
    ubus_fd_handler_t fd_cb;
    ubus_complete_handler_t complete_cb;

    int fd;

    struct ubus_context *ctx;
    void *priv;
};

struct ubus_notify_request {
    struct ubus_request req;

    ubus_notify_complete_handler_t status_cb;
    ubus_notify_complete_handler_t complete_cb;
    ubus_notify_data_handler_t data_cb;

    uint32_t pending; // bit i: id[i] has not answered yet
    uint32_t id[UBUS_MAX_NOTIFY_PEERS + 1];
};

// Connects to the broker at `path` (NULL = /var/run/ubus/ubus.sock) and waits for its greeting. NULL on
// failure. Also initialises the loop: from then on SIGINT and SIGTERM end it, and SIGPIPE is ignored. Release
// with ubus_free.
struct ubus_context *ubus_connect(const char *path);
// The same with a context of the caller, which need not be initialised. 0 or -1. Release with ubus_shutdown.
int ubus_connect_ctx(struct ubus_context *ctx, const char *path);
// Connects again and registers the objects of the context again, in the order of their old ids. Event patterns
// and subscriptions are not renewed, except the automatic ones, and the context is not in the loop. 0; 10 if
// there is no broker, 9 if it does not greet properly (all objects are kept for another try); -1 for a
// channel.
int ubus_reconnect(struct ubus_context *ctx, const char *path);
// Connects, now or as soon as there is a broker, and again whenever the connection is lost. conn->cb runs
// once.
void ubus_auto_connect(struct ubus_auto_conn *conn);

// Closes the connection. Outstanding requests are forgotten: no callback runs. ubus_free also frees the
// context. Not from a callback of this context.
void ubus_free(struct ubus_context *ctx);
void ubus_shutdown(struct ubus_context *ctx);

static inline void ubus_auto_shutdown(struct ubus_auto_conn *conn) {
    uloop_timeout_cancel(&conn->timer);
    ubus_shutdown(&conn->ctx);
}

static inline void ubus_add_uloop(struct ubus_context *ctx) {
    uloop_fd_add(&ctx->sock, ULOOP_BLOCKING | ULOOP_READ);
}

// Reads and dispatches all messages that have arrived. For programs with their own loop: call it when ctx->sock.fd is
// readable.
static inline void ubus_handle_event(struct ubus_context *ctx) { ctx->sock.cb(&ctx->sock, ULOOP_READ); }

static inline bool ubus_context_is_channel(struct ubus_context *ctx) {
    return ctx->local_id == UBUS_CLIENT_ID_CHANNEL;
}

// The text of a status, in a buffer that the next call may overwrite.
const char *ubus_strerror(int error);

// A connection between two processes, without broker: calls and replies only, all calls go to `handler` with
// obj NULL. create makes a pair and returns the other end in *remote_fd. 0 or -1. Release with ubus_shutdown.
int ubus_channel_create(struct ubus_context *ctx, int *remote_fd, ubus_handler_t handler);
int ubus_channel_connect(struct ubus_context *ctx, int fd, ubus_handler_t handler);

// ---- requests -------------------------------------------------------------------------------------------

// Finds objects: `path`, all that begin with it if it ends in '*', all if it is NULL. Synchronous, no
// time-out.
int ubus_lookup(struct ubus_context *ctx, const char *path, ubus_lookup_handler_t cb, void *priv);
// The same for one object's id. It can return 0 and leave *id alone: the object publishes nothing to this
// user.
int ubus_lookup_id(struct ubus_context *ctx, const char *path, uint32_t *id);

// Calls a method. `msg` NULL = no arguments. cb runs for every reply, also when the call fails in the end.
// `timeout` in milliseconds, 0 = for ever, negative = do not wait: 7. The library closes `fd`, sent or not.
// Besides the handler's result: 2 not sent or refused, 3 no such method, 4 no such object, 6 not permitted, 7
// time-out, 10 connection lost.
int ubus_invoke_fd(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                   ubus_data_handler_t cb, void *priv, int timeout, int fd);
static inline int ubus_invoke(struct ubus_context *ctx, uint32_t obj, const char *method,
                              struct blob_attr *msg, ubus_data_handler_t cb, void *priv, int timeout) {
    return ubus_invoke_fd(ctx, obj, method, msg, cb, priv, timeout, -1);
}

// Sends a call and initialises *req; then set callbacks and priv, then call ubus_complete_request_async or
// ubus_complete_request. 0, or 2 if it could not be sent. There is no time-out: see ubus_abort_request.
int ubus_invoke_async_fd(struct ubus_context *ctx, uint32_t obj, const char *method, struct blob_attr *msg,
                         struct ubus_request *req, int fd);
static inline int ubus_invoke_async(struct ubus_context *ctx, uint32_t obj, const char *method,
                                    struct blob_attr *msg, struct ubus_request *req) {
    return ubus_invoke_async_fd(ctx, obj, method, msg, req, -1);
}

// Delivers the answers through the callbacks of the request. complete_cb gets 7 if the connection is lost; if
// the callee goes away it never runs.
void ubus_complete_request_async(struct ubus_context *ctx, struct ubus_request *req);
// Waits for the request; `timeout` as above. Also runs complete_cb. 10 if the connection is lost.
int ubus_complete_request(struct ubus_context *ctx, struct ubus_request *req, int timeout);
// Forgets a request: no callback of it runs any more.
void ubus_abort_request(struct ubus_context *ctx, struct ubus_request *req);
// Ends all requests that are waited for, with status 7.
void ubus_flush_requests(struct ubus_context *ctx);

// ---- objects --------------------------------------------------------------------------------------------

// Registers an object; without name and type it is anonymous. 2 if the path is taken, not permitted, or the
// object is registered already (nothing is changed then); 5 if the broker gave no id.
int ubus_add_object(struct ubus_context *ctx, struct ubus_object *obj);
// 4 if it is not registered. While the connection is lost it returns an error, but the object is removed all the same and may
// be freed.
int ubus_remove_object(struct ubus_context *ctx, struct ubus_object *obj);

// Sends a reply at once; any number of times per call. `msg` NULL = empty. 0, or 5 if it could not be sent.
int ubus_send_reply(struct ubus_context *ctx, struct ubus_request_data *req, struct blob_attr *msg);

// For an answer after the handler has returned: keep *new_req, then complete it. The handler's result is
// ignored.
static inline void ubus_defer_request(struct ubus_context *ctx, struct ubus_request_data *req,
                                      struct ubus_request_data *new_req) {
    (void)ctx;
    req->deferred = true;
    *new_req = *req;
    req->fd = -1; // sent with the status, later
    new_req->req_fd = -1;
}

// Sends the status of a deferred request, and its descriptor if one was set.
void ubus_complete_deferred_request(struct ubus_context *ctx, struct ubus_request_data *req, int ret);

// Sets the descriptor that goes with the status. The library closes it.
static inline void ubus_request_set_fd(struct ubus_context *ctx, struct ubus_request_data *req, int fd) {
    (void)ctx;
    req->fd = fd;
}

// Takes over the caller's descriptor, or -1. A descriptor that is not taken is closed after the handler.
static inline int ubus_request_get_caller_fd(struct ubus_request_data *req) {
    int fd = req->req_fd;
    req->req_fd = -1;
    return fd;
}

// ---- notifications and subscribers ----------------------------------------------------------------------

// Notifies all subscribers of an own object. `timeout` < 0: no answers are requested, returns 0 at once, also on a
// dead connection. Otherwise waits until all have answered, whatever they answer (0 = for ever): 0, 7 if one did not,
// 10 if the connection is lost. 2 if the message is too large.
int ubus_notify(struct ubus_context *ctx, struct ubus_object *obj, const char *type, struct blob_attr *msg,
                int timeout);
// Sends; then set callbacks, then ubus_complete_request_async(ctx, &req->req).
int ubus_notify_async(struct ubus_context *ctx, struct ubus_object *obj, const char *type,
                      struct blob_attr *msg, struct ubus_notify_request *req);

// Registers the subscriber's object, and with new_obj_cb subscribes to all that it accepts, now and later. 0
// and no effect if it is registered already.
int ubus_register_subscriber(struct ubus_context *ctx, struct ubus_subscriber *s);
// 4 if it is not registered; a zeroed struct is allowed. Inline, so that a program needs no symbol for it.
static inline int ubus_unregister_subscriber(struct ubus_context *ctx, struct ubus_subscriber *s) {
    if (s->list.next) list_del_init(&s->list);
    return ubus_remove_object(ctx, &s->obj);
}
// Subscribes to object `id`, once more if it is subscribed already; unsubscribe removes one. Synchronous.
int ubus_subscribe(struct ubus_context *ctx, struct ubus_subscriber *s, uint32_t id);
int ubus_unsubscribe(struct ubus_context *ctx, struct ubus_subscriber *s, uint32_t id);

// ---- events ---------------------------------------------------------------------------------------------

// Sends an event to all listeners. `data` NULL = none. 6 for names that begin with "ubus." or are not
// permitted.
int ubus_send_event(struct ubus_context *ctx, const char *id, struct blob_attr *data);
// Listens to events; a '*' at the end of the pattern matches any rest. May be called again for further
// patterns.
int ubus_register_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev, const char *pattern);
// Ends all patterns of the handler.
static inline int ubus_unregister_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev) {
    return ubus_remove_object(ctx, &ev->obj);
}

// ---- monitor --------------------------------------------------------------------------------------------

int __ubus_monitor(struct ubus_context *ctx, const char *type);
// From now on ctx->monitor_cb gets a copy of every message that the broker receives and sends. Root only.
static inline int ubus_monitor_start(struct ubus_context *ctx) { return __ubus_monitor(ctx, "add"); }
static inline int ubus_monitor_stop(struct ubus_context *ctx) { return __ubus_monitor(ctx, "remove"); }

// ---- access rules of own objects ------------------------------------------------------------------------

// One "acl" section of a rule that concerns one of our objects.
struct acl_object {
    struct ubus_acl_key key; // user or group is NULL if the rule does not name it
    struct avl_node avl;     // in acl_objects
    struct blob_attr *acl;
};

extern struct avl_tree acl_objects;

// Fills acl_objects and keeps it up to date. For one context of the process.
int ubus_register_acl(struct ubus_context *ctx);

// Does the rule concern this caller (user, group) and object? No rule matches a caller with a missing part.
static inline bool __ubus_acl_matches(const struct acl_object *rule, const struct ubus_acl_key *key) {
    if (!key->object || !key->user || !key->group || strcmp(rule->key.object, key->object) != 0) return false;
    return (rule->key.user && !strcmp(rule->key.user, key->user)) ||
           (rule->key.group && !strcmp(rule->key.group, key->group));
}
#define acl_for_each(o, m)                                                                                   \
    avl_for_each_element (&acl_objects, o, avl)                                                              \
        if (!__ubus_acl_matches(o, m)) {                                                                     \
        } else

BASE_DECLS_END

#endif
