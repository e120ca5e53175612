// socket_input.h - the socket on which an access point's daemon delivers its reports, one per connection.
//
// It never waits for a sender. Messages that are complete at the same time are passed on in the order in which their senders
// connected. A message ends with its connection, or when it is longer than any report.
#pragma once

#include "collector/received.h"

#include <functional>
#include <list>
#include <string>

class socket_input {
public:
    // `take` gets each message; a connection without a byte is not a message.
    using handler = std::function<void(std::string message)>;
    explicit socket_input(handler take) : take_(std::move(take)) {}
    ~socket_input();
    socket_input(socket_input &&) = delete;

    // Listens at `path`, replacing a socket without a listener; or takes the listening socket that the service manager
    // passes (LISTEN_PID, LISTEN_FDS), which stays when we end. Returns an empty text, or what failed.
    std::string listen(const std::string &path);

    // Waits for at most `milliseconds` (-1: for ever) until something was sent or `also` is readable, and receives
    // everything. False: waiting failed.
    bool serve(int milliseconds, int also);

    // Receives what has arrived up to now.
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
