// mqtt_options.h - the MQTT broker to publish to, and what to publish.
#pragma once

#include "collector/broker_login.h"
#include "collector/spool.h"

#include <string>

struct mqtt_options : broker_login {
    std::string host; // empty: no broker
    int port = 1883;
    std::string prefix = "wsm";
    spool_options spool;        // messages that wait while it is away
    std::string home_assistant; // discovery prefix; empty: none
    bool join_private = false;  // stations with a private MAC and the same name are one tracker
};

// "mqtt://[user[:password]@]host[:port][/prefix]", or mqtts://; "%3a" stands for a colon in the user, and so on.
// Returns an empty text, or what is wrong with it.
std::string parse_mqtt_url(const std::string &url, mqtt_options &out);
