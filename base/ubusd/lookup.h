// lookup.h - listings of objects, sent as fast as the requester reads them.
#ifndef UBUSD_LOOKUP_H
#define UBUSD_LOOKUP_H

#include "request.h"

namespace ubusd {

int handle_lookup(request &req);
// Goes on with a client's listings while nothing is queued for it.
void lookup_continue(client &c);
void lookup_forget_all(client &c);

} // namespace ubusd

#endif
