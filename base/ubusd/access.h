// access.h - what a client that is not root may do: what the rule files grant, nothing else.
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

// Method of the access rule object: the "acl" sections that concern the caller's objects.
int access_query(request &req);

// Replaces the rules by those of the files in bus.rule_dir and tells those who listen. Nothing happens if
// there are no files or the folder cannot be read.
void access_load(broker &bus);
void access_forget(broker &bus);

} // namespace ubusd

#endif
