// broker_login.h - the credentials for a broker, and the certificates to trust.
#pragma once

#include <string>

struct broker_login {
    bool tls = false;
    std::string user; // empty: none
    std::string password;
    std::string ca, certificate, key; // files; empty: the system's authorities, and no client certificate
};
