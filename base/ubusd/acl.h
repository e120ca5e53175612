// acl.h - the rule files, and the bus object that answers with them.
#ifndef UBUSD_ACL_H
#define UBUSD_ACL_H

#include "request.h"

namespace ubusd {

// Method of the access rule object: the "acl" sections that concern the caller's objects.
int acl_query(request &req);

// Replaces the rules by those of the files in bus.rule_dir and sends the event about it. Nothing happens if
// there are no files or the folder cannot be read.
void acl_load(broker &bus);
void acl_forget(broker &bus);

} // namespace ubusd

#endif
