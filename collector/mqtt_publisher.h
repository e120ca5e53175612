// mqtt_publisher.h - the output to an MQTT broker. docs/collector.md lists topics and schema.
//
// Order:  messages are sent in the order of arrival, and sent again if the broker has not acknowledged them: none is lost, some
//         may come twice, which "boot" and "seq" show.
// Bounds: those of the spool (spool.h), where messages wait until the broker has acknowledged them.
#pragma once

#include "collector/mqtt_options.h"
#include "collector/names.h"
#include "collector/output.h"
#include "collector/spool.h"

#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
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
    std::optional<backlog> kept() const override;
    bool finish() override;

private:
    struct place {
        std::set<std::string> stations;
        bool changed = false;
    };
    // Prints a text, once between two connections.
    void complain(const std::string &text);
    void post(letter one);
    bool next(letter &out);
    void send_some(std::unique_lock<std::mutex> &hold);
    void track(const stay &now_is, bool gone);

    mqtt_options chosen_;
    std::shared_ptr<const station_names> names_;
    std::string boot_; // identifies this run
    std::uint64_t seq_ = 0;
    std::map<std::string, place> places_;                  // access points
    std::map<std::string, std::string> where_;             // station to access point
    std::map<std::string, std::set<std::string>> tracked_; // identity to the MACs that are here
    std::set<std::string> announced_;
    bool begun_ = false; // the first attempt to connect was successful
    bool complained_ = false;

    std::mutex said_lock_;
    std::set<std::string> said_; // by the library, since the last connection

    mutable std::mutex lock_;
    std::condition_variable emptied_;
    std::optional<std::string> status_; // sent before anything else
    spool spool_;
    bool closing_ = false; // the spool keeps what it has
    std::deque<bool>
        in_flight_; // given to the library, not yet acknowledged; true: from the spool. Acknowledged in order
    bool connected_ = false;
    bool resending_ = false; // messages in flight before the last connection are sent again; new ones wait
    bool complained_of_message_ = false;
    bool busy_ = false; // a thread is giving a message to the library
    mosquitto *client_ = nullptr;
};
