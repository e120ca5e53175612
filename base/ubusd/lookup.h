// lookup.h - listings of objects, sent as fast as the requester reads them.
#ifndef UBUSD_LOOKUP_H
#define UBUSD_LOOKUP_H

#include "request.h"

namespace ubusd {

// A client with so many listings in progress is not read from until it has taken some.
inline constexpr std::size_t lookups_limit = 64;

int handle_lookup(request &req);
// Goes on with a client's listings while nothing is queued for it.
void lookup_continue(client &c);
void lookup_forget_all(client &c);

} // namespace ubusd

#endif
