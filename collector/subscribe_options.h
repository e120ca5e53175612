// subscribe_options.h - which broker reports come from.
#pragma once

#include "collector/broker_login.h"

#include <string>
#include <vector>

struct subscribe_options : broker_login {
    enum class kind { none, mqtt, amqp };
    struct address {
        std::string host;
        int port;
    };
    kind from = kind::none;
    std::vector<address> hosts; // one for MQTT; for AMQP the nodes of a cluster, which are tried in turn
    std::string prefix = "wsm"; // of the topics; a level may be "+"
    std::string vhost = "/";    // AMQP
    std::string queue = "wsm-reports";
    std::string group = "wsm-collector"; // of the collectors that share one subscription
    std::string client_id;               // MQTT: ours, which stays the same; empty: made of the host's name
    int prefetch = 2000; // messages that the broker has handed over and that are not stored yet, at most
};

// "mqtt://[user[:password]@]host[:port][/prefix]", mqtts://, or
// "amqp://[user[:password]@]host[:port][,host[:port]...][/vhost][?queue=NAME&prefix=PREFIX]", amqps://; "%2f" and the like
// stand for a character in user, password, vhost and the arguments. Empty, or what is wrong with it.
std::string parse_subscribe_url(const std::string &url, subscribe_options &out);
