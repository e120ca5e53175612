// events.h - what the daemon listens to on the bus: three events, and the DHCP monitor's client
// list.
//
// Format: docs/bus-api.md. A bad message is dropped after one log line; nothing is answered.
// Owns:   its event handlers, the subscriber and the 3000 ms retry timer; all static, they live as long as
//         the process.
// Blocks: registrations and subscriptions, until the broker answers.   Logs: level 7, bad messages at level
//         3.
#pragma once

#include "base/cxx/ubus.h"

extern "C" {

// Register one handler on the connection. The library's result.
int sta_sta_register_ip_change_event(void);
int sta_sta_register_dhcp_update_event(void);
int sta_sta_register_dev_mode_change_event(void);

void sta_sta_ip_change_event_cb(struct ubus_context *ctx, struct ubus_event_handler *ev, const char *type,
                                struct blob_attr *msg);
void sta_sta_dhcp_update_event_cb(struct ubus_context *ctx, struct ubus_event_handler *ev, const char *type,
                                  struct blob_attr *msg);
void sta_sta_dev_mode_change_event_cb(struct ubus_context *ctx, struct ubus_event_handler *ev,
                                      const char *type, struct blob_attr *msg);

// Subscribes to "dhcpmon.client.notify", once, however often it is called. Returns 0 or the library's error.
int sta_ubus_dhcpdump_subscribe(void);

// Tries to subscribe, and again every 3000 ms until that succeeds. `timer` is not used.
void sta_ubus_dhcpdump_resubscribe(struct uloop_timeout *timer);

// Handles a client list. Returns 0.
int sta_ubus_dhcpdump_notify_cb(struct ubus_context *ctx, struct ubus_object *obj,
                                struct ubus_request_data *req, const char *method, struct blob_attr *msg);

// The DHCP monitor is gone: subscribes again as soon as it is back.
void sta_ubus_dhcpdump_server_remove_cb(struct ubus_context *ctx, struct ubus_subscriber *subscriber,
                                        std::uint32_t id);

// Replaces the DHCP monitor list by the clients of the JSON `text`: the first "count" entries of "list". 0,
// or -1: no JSON, no "count" or no "list" (the old list stays), or a bad entry (those before it stay).
int sta_ubus_json_parse(const char *text);
}
