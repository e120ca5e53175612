// subscribe_options.h - the broker that reports come from.
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
    std::string group = "wsm-collector"; // the collectors that share one subscription
    std::string client_id;               // MQTT: must stay the same; empty: made from the host's name
    int prefetch = 2000;                 // at most so many messages are delivered and not yet stored
};

// "mqtt://[user[:password]@]host[:port][/prefix]", mqtts://, or
// "amqp://[user[:password]@]host[:port][,host[:port]...][/vhost][?queue=NAME&prefix=PREFIX]", amqps://; "%2f" and the like
// stand for a character in user, password, vhost and the arguments. Returns an empty text, or what is wrong with it.
std::string parse_subscribe_url(const std::string &url, subscribe_options &out);
