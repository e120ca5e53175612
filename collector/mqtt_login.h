// mqtt_login.h - the MQTT library's settings that publisher and subscriber share.
#pragma once

#include "collector/broker_login.h"

struct mosquitto;

// Throws std::runtime_error that names `what`, unless the library's code is success.
void mqtt_check(int code, const char *what);

// To be called before connecting. Throws std::runtime_error when the settings cannot be used.
void mqtt_log_in(mosquitto *client, const broker_login &as);
