// access.h - what a client that is not root may do: only what the rule files grant.
#ifndef UBUSD_ACCESS_H
#define UBUSD_ACCESS_H

#include "object.h"

namespace ubusd {

bool access_everything(const client &c); // root
bool access_publish(const client &c, const char *path);
bool access_method(const client &c, const char *path, const char *method);
// An anonymous object may be watched by its owner's user and group.
bool access_subscribe(const client &c, const object &target);
bool access_listen(const client &c, const char *pattern);
bool access_send(const client &c, const char *event);

} // namespace ubusd

#endif
