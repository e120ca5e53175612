// broker.h - making an empty broker, and freeing it.
#ifndef UBUSD_BROKER_H
#define UBUSD_BROKER_H

#include "bus.h"

namespace ubusd {

void broker_init(broker &bus, const char *rule_dir);
// Frees everything; closes all connections.
void broker_done(broker &bus);

} // namespace ubusd

#endif
