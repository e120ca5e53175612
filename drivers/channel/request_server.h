// request_server.h - the driver's end of our libwas' socket, laid out as protocol/was_wire.h says. One request and
// its answer per connection; nobody is ever waited for.
//
// Requests are answered in the order in which they are whole. A peer that asks for more than any request may be is
// hung up on.
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
    // Turns the question's bytes into the answer's. 0, or a negative error number: then no bytes go back.
    using handler = std::int32_t (*)(void *owner, was_question &question);

    request_server(handler answer, void *owner) noexcept : answer_(answer), owner_(owner) {}
    ~request_server();
    request_server(request_server &&) = delete;

    // Listens at `path`, in place of a socket that nobody listens at any more. 0, or an error number: EADDRINUSE when
    // somebody listens there, ENOTSOCK when it is something else, ENAMETOOLONG when it is no path for a socket. Owner and
    // group of the socket may ask: a request can send stations away.
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
