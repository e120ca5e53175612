// object.h - the objects that clients have registered, and the types that objects share.
#ifndef UBUSD_OBJECT_H
#define UBUSD_OBJECT_H

#include "client.h"

namespace ubusd {

// Published methods. Lives as long as an object uses it.
struct object_type {
    numbered number;
    std::size_t users;
    blob_attr *signature;
};

struct object {
    numbered number;
    client *owner;
    list_head of_owner;
    char *path; // null = anonymous
    avl_node by_path;
    object_type *type; // null = not shown to anybody

    list_head subscribers;   // subscriptions to this object, newest first
    list_head subscriptions; // of this object, newest first
    std::uint16_t seq;       // of the broker's messages to this object

    list_head patterns;        // events it is registered for
    std::uint32_t event_round; // the last event it got
};

object *object_find(const broker &bus, std::uint32_t id);
object *object_find_path(const broker &bus, const char *path);

} // namespace ubusd

#endif
