// broker_login.h - who we are to a broker, and whom we trust.
#pragma once

#include <string>

struct broker_login {
    bool tls = false;
    std::string user; // empty: none
    std::string password;
    std::string ca, certificate, key; // files; empty: the system's authorities, no certificate of ours
};
