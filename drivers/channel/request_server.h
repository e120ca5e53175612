// request_server.h - the driver's end of the socket of our libwas (protocol/was_wire.h). One request and its answer
// per connection. It never blocks on a peer.
//
// Requests are answered in the order in which they become complete. The connection of a peer that sends too large a
// request is closed.
#pragma once

#include "protocol/was_wire.h"

#include <cstddef>
#include <cstdint>
#include <libubox/uloop.h>

struct was_question {
    std::int32_t command;
    std::int32_t argument;
    char ifname[was_ifname_size + 1]; // terminated
    std::uint8_t *bytes;              // the asker's whole buffer, to be turned into the answer
    std::size_t size;
};

class request_server {
public:
    // Replaces the question's bytes by the answer's. Returns 0, or a negative error number: then no bytes are sent back.
    using handler = std::int32_t (*)(void *owner, was_question &question);

    request_server(handler answer, void *owner) noexcept : answer_(answer), owner_(owner) {}
    ~request_server();
    request_server(request_server &&) = delete;

    // Listens at `path`; replaces a socket without a listener. Returns 0 or an error number: EADDRINUSE when another process
    // listens there, ENOTSOCK when it is not a socket, ENAMETOOLONG when the path is too long for one. Only the socket's
    // owner and group may connect, since a request can disconnect stations.
    int listen(const char *path) noexcept;

private:
    struct peer;
    struct listener_watch : uloop_fd {
        request_server *owner;
    };
    void accept_all() noexcept;
    void serve(peer *served) noexcept;
    void forget(peer *gone) noexcept;

    handler answer_;
    void *owner_;
    listener_watch listener_{};
    bool listening_ = false;
    char path_[108] = "";
    peer *peers_ = nullptr;
};
