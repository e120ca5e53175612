// registry.h - objects that are added and removed.
#ifndef UBUSD_REGISTRY_H
#define UBUSD_REGISTRY_H

#include "object.h"
#include "request.h"

namespace ubusd {

int handle_add_object(request &req);
int handle_remove_object(request &req);
// Of a client that goes, newest first.
void object_remove_all(client &c);

} // namespace ubusd

#endif
