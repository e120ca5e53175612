#include "collector/mqtt_login.h"

#include <mosquitto.h>
#include <stdexcept>

void mqtt_check(int code, const char *what) {
    if (code != MOSQ_ERR_SUCCESS)
        throw std::runtime_error(std::string("mqtt: ") + what + ": " + mosquitto_strerror(code));
}

void mqtt_log_in(mosquitto *client, const broker_login &as) {
    if (!as.user.empty())
        mqtt_check(mosquitto_username_pw_set(client, as.user.c_str(), as.password.c_str()), "user");
    if (!as.tls) return;
    const auto file = [](const std::string &name) { return name.empty() ? nullptr : name.c_str(); };
    const char *folder = as.ca.empty() ? "/etc/ssl/certs" : nullptr;
    mqtt_check(mosquitto_tls_set(client, file(as.ca), folder, file(as.certificate), file(as.key), nullptr),
               "TLS");
}
