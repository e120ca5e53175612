// socket_input.h - the socket on which an access point's daemon delivers its reports, one per connection.
//
// Nobody is waited for, and messages are handed on in the order in which their senders connected, as far as they were
// there together. A message is over when its connection is, or when it is longer than any report.
#pragma once

#include "collector/received.h"

#include <functional>
#include <list>
#include <string>

class socket_input {
public:
    // `take` gets each message; a connection without a byte is a visitor, and none.
    using handler = std::function<void(std::string message)>;
    explicit socket_input(handler take) : take_(std::move(take)) {}
    ~socket_input();
    socket_input(socket_input &&) = delete;

    // Listens at `path`, in place of a socket that nobody listens at any more; or takes the listening socket that the service
    // manager hands over (LISTEN_PID, LISTEN_FDS), which stays when we end. Empty, or what went wrong.
    std::string listen(const std::string &path);

    // Waits for at most `milliseconds` (-1: for ever) until somebody has sent something or `also` can be read, and takes
    // all there is. False: waiting failed.
    bool serve(int milliseconds, int also);

    // Takes what has arrived up to now.
    void drain();

private:
    struct peer {
        int fd;
        std::string in;
    };
    std::string watch_listener(const std::string &path);
    bool accept_some();
    void receive_all();
    bool receive(peer &from) const;

    handler take_;
    std::string path_;
    int listener_ = -1;
    int poll_ = -1;
    std::list<peer> peers_;
};
