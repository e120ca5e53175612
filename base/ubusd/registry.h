// registry.h - adding and removing objects.
#ifndef UBUSD_REGISTRY_H
#define UBUSD_REGISTRY_H

#include "object.h"
#include "request.h"

namespace ubusd {

int handle_add_object(request &req);
int handle_remove_object(request &req);
// For a client that is being freed; newest first.
void object_remove_all(client &c);

} // namespace ubusd

#endif
