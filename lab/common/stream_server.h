// stream_server.h - a Unix stream socket that many peers may connect to. It never blocks on a peer.
//
// Peers are served in the order in which they connected: data of older peers is passed on before data of a
// newer one. A peer that ends is passed on once more, with `ended` set, and removed when its `out` has been
// sent.
#pragma once

#include "common/loop.h"

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

class stream_server {
public:
    struct peer {
        std::string in;     // received and not yet taken by the handler
        std::string out;    // to be sent
        bool ended = false; // nothing more will come
        bool close = false; // set by the handler: close once `out` is sent

        explicit peer(int descriptor) : fd(descriptor) {}
        peer(peer &&) = delete;

    private:
        friend class stream_server;
        int fd;
        std::optional<fd_watch> watch;
    };
    using handler = std::function<void(peer &)>;

    // `handle` is called whenever a peer has sent something or has ended.
    explicit stream_server(handler handle) : handle_(std::move(handle)) {}
    ~stream_server();
    stream_server(stream_server &&) = delete;

    // Listens at `path`; replaces a socket without a listener. Returns an empty text, or what failed.
    std::string listen(const std::string &path);

    // Receives and passes on everything that has arrived up to now.
    void drain();

private:
    using peers = std::list<peer>;
    void accept_all();
    bool receive(peer &from);
    void serve(peers::iterator at);
    void serve_up_to(const peer *last);

    handler handle_;
    std::string path_;
    int listener_ = -1;
    std::optional<fd_watch> watch_;
    peers peers_;
};
