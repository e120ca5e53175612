// mqtt_publisher.h - the output to an MQTT broker. docs/collector.md lists topics and schema.
//
// Order:  messages leave in the order in which they came, and those the broker has not acknowledged are sent again: none is
//         lost, some may come twice, which their "boot" and "seq" tell.
// Bounds: `most_spooled` messages wait while the broker is away; then the oldest is dropped and counted.
#pragma once

#include "collector/mqtt_options.h"
#include "collector/names.h"
#include "collector/output.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

struct mosquitto;

class mqtt_publisher : public output {
public:
    // Does not wait for the broker. std::runtime_error when the settings cannot be used.
    mqtt_publisher(mqtt_options chosen, std::shared_ptr<const station_names> names);
    ~mqtt_publisher() override;

    void take(const message &one) override;
    void settle() override;
    int pulse() const override { return 1000; }
    bool finish() override;

private:
    struct letter {
        std::string topic;
        std::string payload;
        bool retain;
    };
    struct place {
        std::set<std::string> stations;
        bool changed = false;
    };
    // Says it, once between two connections.
    void complain(const std::string &text);
    void post(letter one);
    void send_some(std::unique_lock<std::mutex> &hold);
    void track(const stay &now_is, bool gone);

    mqtt_options chosen_;
    std::shared_ptr<const station_names> names_;
    std::string boot_; // of this run
    std::uint64_t seq_ = 0;
    std::map<std::string, place> places_;                  // access points
    std::map<std::string, std::string> where_;             // station to access point
    std::map<std::string, std::set<std::string>> tracked_; // identity to the MACs that are here
    std::set<std::string> announced_;
    bool begun_ = false; // the first attempt to connect was successful
    bool complained_ = false;

    std::mutex said_lock_;
    std::set<std::string> said_; // by the library, since the last connection

    std::mutex lock_;
    std::condition_variable emptied_;
    std::deque<letter> spool_;
    std::size_t in_flight_ = 0; // handed to the library, not yet acknowledged
    bool connected_ = false;
    bool resending_ = false; // what was in flight before the last connection; what is new waits behind it
    bool busy_ = false;      // a thread is handing a message to the library
    std::uint64_t dropped_ = 0;
    mosquitto *client_ = nullptr;
};
