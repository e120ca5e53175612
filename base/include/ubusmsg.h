// ubusmsg.h - the words of the bus protocol: message types, attributes, status codes, limits.
//
// A message is a struct ubus_msghdr, followed by one blob attribute, the root, whose children carry the ids
// of enum ubus_msg_attr. All integers are big endian.
#ifndef __UBUSMSG_H
#define __UBUSMSG_H

#include <stdint.h>

#include <libubox/blob.h>

#define __packetdata __attribute__((packed)) __attribute__((__aligned__(4)))

#define UBUS_MSG_LIMIT 1048576    // largest root of a message, padded, bytes
#define UBUS_MSG_CHUNK_SIZE 65536 // receive buffers grow in such steps, bytes

#define UBUS_SYSTEM_OBJECT_EVENT 1   // registers for events and sends them
#define UBUS_SYSTEM_OBJECT_ACL 2     // answers with the access rules for the caller's objects
#define UBUS_SYSTEM_OBJECT_MONITOR 3 // copies all traffic to the caller
#define UBUS_SYSTEM_OBJECT_MAX 1024  // clients, objects and types get ids from here on

#define UBUS_CLIENT_ID_CHANNEL 1 // ubus_context.local_id of a context that has no broker

struct ubus_msghdr {
    uint8_t version; // 0
    uint8_t type;    // enum ubus_msg_type
    uint16_t seq;    // number of the request
    uint32_t peer;   // id of a client or an object, depending on type and direction
} __packetdata;

enum ubus_msg_type {
    UBUS_MSG_HELLO,  // the broker's first message on a connection; peer is the id that the client got
    UBUS_MSG_STATUS, // ends the answers to a request
    UBUS_MSG_DATA,   // one answer to a request
    UBUS_MSG_PING,
    UBUS_MSG_LOOKUP,
    UBUS_MSG_INVOKE, // a method call; from the broker also a notification or an event
    UBUS_MSG_ADD_OBJECT,
    UBUS_MSG_REMOVE_OBJECT,
    UBUS_MSG_SUBSCRIBE,
    UBUS_MSG_UNSUBSCRIBE, // from the broker: a watched object is gone
    UBUS_MSG_NOTIFY,      // from the broker: the first subscriber came, or the last one left
    UBUS_MSG_MONITOR,     // copy of a message

    __UBUS_MSG_LAST,
};

enum ubus_msg_attr {
    UBUS_ATTR_UNSPEC,
    UBUS_ATTR_STATUS,      // int32, enum ubus_msg_status or a handler's own number
    UBUS_ATTR_OBJPATH,     // string
    UBUS_ATTR_OBJID,       // int32
    UBUS_ATTR_METHOD,      // string
    UBUS_ATTR_OBJTYPE,     // int32
    UBUS_ATTR_SIGNATURE,   // fields: per method a table, in it per argument an int32, the blobmsg type
    UBUS_ATTR_DATA,        // fields
    UBUS_ATTR_TARGET,      // int32, the object to watch
    UBUS_ATTR_ACTIVE,      // int8, the object has subscribers
    UBUS_ATTR_NO_REPLY,    // int8, this notification needs no answer
    UBUS_ATTR_SUBSCRIBERS, // int32 attributes of id 0
    UBUS_ATTR_USER,        // string, the caller's user
    UBUS_ATTR_GROUP,       // string, the caller's primary group

    UBUS_ATTR_MAX,
};

// Attributes of UBUS_MSG_MONITOR.
enum ubus_monitor_attr {
    UBUS_MONITOR_CLIENT, // int32, the client that sent or receives it
    UBUS_MONITOR_PEER,   // int32, peer of its header
    UBUS_MONITOR_SEND,   // int8, 1 = sent by the broker
    UBUS_MONITOR_SEQ,    // int32, seq of its header
    UBUS_MONITOR_TYPE,   // int32, type of its header
    UBUS_MONITOR_DATA,   // its attributes; none if the copy would be too large for a message

    UBUS_MONITOR_MAX,
};

enum ubus_msg_status {
    UBUS_STATUS_OK,
    UBUS_STATUS_INVALID_COMMAND,
    UBUS_STATUS_INVALID_ARGUMENT,
    UBUS_STATUS_METHOD_NOT_FOUND,
    UBUS_STATUS_NOT_FOUND,
    UBUS_STATUS_NO_DATA,
    UBUS_STATUS_PERMISSION_DENIED,
    UBUS_STATUS_TIMEOUT,
    UBUS_STATUS_NOT_SUPPORTED,
    UBUS_STATUS_UNKNOWN_ERROR,
    UBUS_STATUS_CONNECTION_FAILED,
    UBUS_STATUS_NO_MEMORY,
    UBUS_STATUS_PARSE_ERROR,
    UBUS_STATUS_SYSTEM_ERROR,

    __UBUS_STATUS_LAST,
};

#endif
