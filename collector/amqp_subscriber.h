// amqp_subscriber.h - reports from a quorum queue of a broker that speaks AMQP 0-9-1 and takes MQTT from access points.
//
// Queue:  declared durable and replicated, and bound to amq.topic, where the broker's MQTT part puts what is published: topic
//         "prefix/report/AP" is routing key "prefix.report.AP". A message that is not a report goes to the queue NAME.refused,
//         with the reason in a header; the broker must confirm that before the original is acknowledged.
// Hosts:  tried in turn, starting at a random one, so that collectors spread over the nodes and skip a dead one.
#pragma once

#include "collector/broker_input.h"

#include <deque>
#include <utility>

struct amqp_connection_state_t_;

class amqp_subscriber : public broker_input {
public:
    amqp_subscriber(subscribe_options chosen, handler take);
    ~amqp_subscriber() override;

    void serve(int milliseconds, int also) override;
    void finish() override;

private:
    struct failure;
    void connect();
    void declare(const std::string &name);
    // Receives a message, if there is one.
    bool take_one();
    void set_aside(std::string_view key, std::string_view body, const std::string &why);
    void acknowledge();
    void drop();

    amqp_connection_state_t_ *link_ = nullptr; // null: not connected
    std::size_t host_;                         // the next one to try
    std::deque<std::pair<std::uint64_t, std::uint64_t>>
        waiting_; // ticket and delivery tag, not yet acknowledged
};
