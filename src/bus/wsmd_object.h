// wsmd_object.h - the bus object `wsmd`: what the daemon says of its stations and of itself, typed and in pages.
//
// Format: docs/bus-api.md. A call with a bad argument answers status 2 and its name, and changes nothing.
// Blocks: as driver requests do, where figures are asked for.
#pragma once

#include "base/cxx/ubus.h"

// Publishes the object on the daemon's connection, and again on a new one. A broker that refuses it is told in the log; `sta`
// is as it was.
void sta_wsmd_publish() noexcept;

extern "C" {

// Method handlers; their value is the request's status.
int sta_wsmd_stations(struct ubus_context *ctx, struct ubus_object *obj, struct ubus_request_data *req,
                      const char *method, struct blob_attr *msg);
int sta_wsmd_station(struct ubus_context *ctx, struct ubus_object *obj, struct ubus_request_data *req,
                     const char *method, struct blob_attr *msg);
int sta_wsmd_departed(struct ubus_context *ctx, struct ubus_object *obj, struct ubus_request_data *req,
                      const char *method, struct blob_attr *msg);
int sta_wsmd_health(struct ubus_context *ctx, struct ubus_object *obj, struct ubus_request_data *req,
                    const char *method, struct blob_attr *msg);
}
