// peer.h - another program on the bus, in the test's own process: its callbacks run while the test runs the loop.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/cxx/ubus.h"

struct bus_call {
    int status = 0; // as the caller gets it; UBUS_STATUS_TIMEOUT when nobody answers in time
    std::optional<std::vector<std::string>> reply; // members (support/members.h); none without a reply
    std::size_t size = 0;                          // bytes of the reply
};

class peer {
public:
    peer();
    ~peer();
    peer(const peer &) = delete;
    peer &operator=(const peer &) = delete;

    // Calls a method and runs the loop until it has ended. `arguments` is JSON text.
    bus_call call(const std::string &object, const std::string &method, const std::string &arguments);

    // Members of the notifications of `object` from now on; each begins with a line of their type's name.
    void subscribe(const std::string &object);
    std::vector<std::vector<std::string>> notifications;

    // Members of the events that match `pattern` from now on; each begins with a line of the event's name.
    void listen(const std::string &pattern);
    std::vector<std::vector<std::string>> events;

    void send_event(const std::string &name, const std::string &json);

    // Publishes an object without methods that others can subscribe to; and removes it.
    void publish(const std::string &name);
    void take_back(const std::string &name);
    bool has_subscribers(const std::string &name) const;
    void notify(const std::string &name, const std::string &json);

    // Names of all objects on the bus that begin with `prefix`.
    std::vector<std::string> objects(const std::string &prefix = "");
    // The methods of an object with their arguments' types: "get", "  NAME 3", ...
    std::vector<std::string> signature(const std::string &object);

private:
    struct published {
        std::string name;
        ubus_object_type type{};
        ubus_object object{};
    };
    published *find(const std::string &name) const;

    ubus_context *ctx;
    ubus_subscriber subscriber{};
    ubus_event_handler handler{};
    std::deque<published> own;
};

// The daemon leaves the bus, with everything that it has registered there.
void disconnect_daemon();
