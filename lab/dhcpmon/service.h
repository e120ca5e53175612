// service.h - the monitor's two bus objects.
//
//   dhcpmon
//     client {mac}       -> {"count": INT32, "list": [{"mac", "ip", "hostName"}]}, at most one entry
//     del_client {mac}   -> {"result": "ok" or "not found"}; the client is forgotten until its lease changes
//     notify {data}      -> status only; sends the notification with this text, or without data if none is
//                           given: for tests of a subscriber
//   dhcpmon.client.notify
//     notification "client": {"data": STRING}, the list of all clients as JSON; sent when the list changes
//                           and when the first subscriber appears
//
// The connection is made again after a restart of the broker.
#pragma once

#include "base/cxx/ubus.h"
#include "common/loop.h"
#include "dhcpmon/leases.h"

#include <list>
#include <string>
#include <vector>

struct service_options {
    std::string leases = "/tmp/dhcp.leases";
    std::string bus;     // path of the broker's socket; empty for the usual one
    int delay = 0;       // ms before an answer
    bool silent = false; // never answer
};

// One per process: bus objects carry no pointer of their own.
class service {
public:
    explicit service(const service_options &chosen);
    ~service();
    service(service &&) = delete;

    // Connects, now or as soon as there is a broker, and follows the lease file.
    void start();

private:
    struct late_answer {
        late_answer(const blob_buf &owned, std::function<void()> send) : reply(owned), due(std::move(send)) {}
        ubus_request_data request{};
        blob_buf reply;
        timer due;
    };
    using method = int (service::*)(blob_attr *message, blob_buf &reply);
    template <method M>
    static int call(ubus_context *, ubus_object *, ubus_request_data *, const char *, blob_attr *);
    int client(blob_attr *message, blob_buf &reply);
    int del_client(blob_attr *message, blob_buf &reply);
    int notify_verbatim(blob_attr *message, blob_buf &reply);

    void answer_late(ubus_request_data *request, const blob_buf &reply);
    void notify(const char *data); // null: a notification without data
    void look();

    static ubus_method methods_[];
    static ubus_object_type type_;
    static ubus_object object_;
    static ubus_object_type notifier_type_;
    static ubus_object notifier_;
    static service *self_;

    service_options options_;
    ubus_auto_conn connection_;
    std::vector<lease> file_;  // as last read
    std::vector<lease> known_; // less the forgotten ones
    std::list<late_answer> late_;
    timer look_;
};
