// object.h - the connection to the bus and the daemon's object `sta` with its methods get, set and delete.
//
// Format: docs/bus-api.md.   Owns: the connection, until the process ends; it tries every 2000 ms until the
//         first success. If it is lost later, the library ends the loop, the daemon exits and its supervisor restarts it.
// Blocks: connecting and registering, until the broker answers.   Logs: level 7 and 3.
#pragma once

#include "base/cxx/ubus.h"

extern "C" {

// Called once by start-up. The result of sta_ubus_object_connect.
int sta_ubus_object_init(void);

// Connects, publishes `sta`, registers for events and, unless the device is a router, subscribes to the DHCP
// monitor. Arms `timer` for another try when the broker is not there. Returns the result of the last call; -1 when `timer`
// is null.
int sta_ubus_object_connect(struct uloop_timeout *timer);

// Publishes the log library's object on the daemon's connection; an object given before there is a
// connection is published with it. Returns 0, or -1 for null.
int sta_ubus_add_dbg_object(struct ubus_object *obj);

// Method handlers. They return the request's status.
int sta_ubus_get_info_methods(struct ubus_context *ctx, struct ubus_object *obj,
                              struct ubus_request_data *req, const char *method, struct blob_attr *msg);
int sta_ubus_set_info_methods(struct ubus_context *ctx, struct ubus_object *obj,
                              struct ubus_request_data *req, const char *method, struct blob_attr *msg);
int sta_ubus_delete_info_methods(struct ubus_context *ctx, struct ubus_object *obj,
                                 struct ubus_request_data *req, const char *method, struct blob_attr *msg);
}
