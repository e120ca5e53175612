// wsmd_object.h - the bus object `wsmd`: stations, departures and the daemon's health, with typed members and in pages.
//
// Format: docs/bus-api.md. A call with a bad argument is answered with status 2 and the argument's name; it changes nothing.
// Blocks: as driver requests do, when figures are asked for.
#pragma once

#include "base/cxx/ubus.h"

// Publishes the object on the daemon's connection, and again on a new one. If the broker refuses it, the log says so, and
// `sta` keeps working.
void sta_wsmd_publish() noexcept;

extern "C" {

// Method handlers. They return the request's status.
int sta_wsmd_stations(struct ubus_context *ctx, struct ubus_object *obj, struct ubus_request_data *req,
                      const char *method, struct blob_attr *msg);
int sta_wsmd_station(struct ubus_context *ctx, struct ubus_object *obj, struct ubus_request_data *req,
                     const char *method, struct blob_attr *msg);
int sta_wsmd_departed(struct ubus_context *ctx, struct ubus_object *obj, struct ubus_request_data *req,
                      const char *method, struct blob_attr *msg);
int sta_wsmd_health(struct ubus_context *ctx, struct ubus_object *obj, struct ubus_request_data *req,
                    const char *method, struct blob_attr *msg);
}
