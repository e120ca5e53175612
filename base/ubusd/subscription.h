// subscription.h - who watches which object.
#ifndef UBUSD_SUBSCRIPTION_H
#define UBUSD_SUBSCRIPTION_H

#include "object.h"
#include "request.h"

namespace ubusd {

int handle_subscribe(request &req);
int handle_unsubscribe(request &req);
int handle_notify(request &req);
// Ends the object's subscriptions to others, then others' subscriptions to it, and informs all of them.
void subscription_remove_all(object &o);

} // namespace ubusd

#endif
