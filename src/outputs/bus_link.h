// bus_link.h - the bus connection, the daemon's bus object and the shared reply buffer: shared by all senders.
//
// Owns:   the connection, set once by bus/object and kept until the process ends. Every sender checks it
//         for null. The buffer is shared by the `get` reply and both notifications: each resets it before
//         use, and nothing else may use it between the reset and the sending. Its memory is kept from one
//         `get` to the next, and freed when no other follows.
#pragma once

#include "base/cxx/ubus.h"

extern "C" {
extern struct ubus_context *sta_ubus_ctx;
extern struct blob_buf sta_ubus_reply_buf;
extern struct ubus_object sta_ubus_object;      // `sta`
extern struct ubus_object sta_wsmd_object;      // `wsmd`
extern struct uloop_timeout sta_bus_idle_timer; // runs out when nobody has asked for a while
}

// The longest content that a bus message can carry (a message has at most 1 MiB, headers included). Longer
// ones are not sent: the broker would close our connection.
inline constexpr std::size_t sta_bus_content_max = 1048560;

// True when `buf` holds a whole message that can be sent.
inline bool sta_bus_can_carry(const struct blob_buf *buf) noexcept {
    return buf->head && blob_len(buf->head) <= sta_bus_content_max;
}

// Makes room in `buf` for one more station in the array or table that is open, in large steps. False when
// there is no memory, or when the message is too long to be sent already: it is then freed (its head is
// null, nothing may be appended), so that no incomplete list is sent.
bool sta_bus_make_room(struct blob_buf *buf) noexcept;

// Frees the memory of the shared buffer in ten seconds, unless it is called again before: a list of 500 stations takes 1 MiB,
// more than the rest of the daemon.
void sta_bus_free_when_idle() noexcept;
