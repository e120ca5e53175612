// bus.h - the state of the broker and the terms that its parts share.
//
// A client is a connection; it owns objects. An object has an id, possibly a path and then usually a type:
// the methods that it publishes. Subscriptions link an object of one client to an object of another.
//
// Memory: records are made, linked, unlinked and freed by the file that defines them; clients and objects, which all files
//         use, by connection.cpp and registry.cpp. A client is freed only in a callback of its own socket, never
//         while something is sent to it.
// Thread: event loop only.
#ifndef UBUSD_BUS_H
#define UBUSD_BUS_H

#include <cstddef>
#include <cstdint>

#include <libubox/avl.h>
#include <libubox/blobmsg.h>
#include <libubox/list.h>
#include <libubox/uloop.h>

#include <wire.h>

namespace ubusd {

// Where outgoing messages are built. Large messages mostly come in a row, so a large buffer is kept for a while.
struct out_buffer {
    blob_buf buf;
    unsigned unneeded; // messages since the last that needed it
};

struct builder : ubus_wire::builder {
    explicit builder(out_buffer &out) : ubus_wire::builder(out.buf, out.unneeded) {}
};

struct broker {
    avl_tree clients, objects, types; // records by id; see ids.h
    avl_tree paths;                   // objects that have one, in strcmp order
    avl_tree patterns;                // event registrations, in strcmp order
    list_head monitors;
    list_head rules; // access rules
    const char *rule_dir;
    std::uint32_t rule_sequence; // how often rules have been loaded
    std::uint16_t event_seq;     // copies of events sent
    std::uint32_t event_round;   // events sent
    out_buffer out;
};

} // namespace ubusd

#endif
