// mqtt_subscriber.h - reports from an MQTT broker, with MQTT 5: a subscription shared by all collectors of a group, in a session
// that survives the connection.
//
// The library acknowledges a message itself, before it calls us; but when it is told that another thread does the
// writing, the acknowledgement waits until that writes. So nothing is written while a message is not stored, and messages
// are acknowledged in batches: reading stops, the messages are stored, all acknowledgements are sent.
#pragma once

#include "collector/broker_input.h"

struct mosquitto;

class mqtt_subscriber : public broker_input {
public:
    // Does not wait for the broker. std::runtime_error when the settings cannot be used.
    mqtt_subscriber(subscribe_options chosen, handler take);
    ~mqtt_subscriber() override;

    void serve(int milliseconds, int also) override;
    void finish() override;

private:
    void try_to_connect();
    void lost(int code);
    bool all_stored() const { return stored() >= ticket_; }
    void set_aside(std::string_view topic, std::string_view payload, const std::string &why);

    mosquitto *client_ = nullptr;
    bool begun_ = false;              // a connection has been made, which may not have been accepted yet
    std::uint64_t heard_ = 0;         // packets that have called us back
    std::uint64_t acknowledged_ = 0;  // ticket
    clock::time_point first_waits_{}; // since when the first message that is not acknowledged does
};
