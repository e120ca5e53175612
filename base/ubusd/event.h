// event.h - events: named messages to all objects that are registered for the name.
#ifndef UBUSD_EVENT_H
#define UBUSD_EVENT_H

#include "object.h"
#include "request.h"

namespace ubusd {

void event_init(broker &bus);
// Methods of the event object.
int event_register(request &req);
int event_send(request &req);

// The broker's own events.
void event_object_changed(broker &bus, const char *id, const object &o);
void event_rules_loaded(broker &bus);

void event_forget_patterns(object &o);

} // namespace ubusd

#endif
