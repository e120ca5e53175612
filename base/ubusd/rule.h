// rule.h - one right that a rule file grants.
#ifndef UBUSD_RULE_H
#define UBUSD_RULE_H

#include <sys/types.h>

#include <libubox/blobmsg.h>
#include <libubox/list.h>

namespace ubusd {

enum class grant {
    access,    // see and call `method` of objects `name`
    publish,   // register objects `name`
    subscribe, // watch objects `name`
    listen,    // register for events `name`
    send,      // send events `name`
    acl,       // nothing: `acl` is for the owners of objects `name` to read
};

struct rule {
    list_head list;
    const char *user;  // null: the group counts
    const char *group; // null: the user counts
    gid_t gid;         // of group
    grant what;
    const char *name;   // pattern
    const char *method; // pattern; null except for `access`
    blob_attr *acl;     // null except for `acl`
};

// Appends the rules of the text of one file. False if it cannot be parsed; malformed parts are left out.
bool rules_parse(list_head &rules, const char *json);
void rule_free(rule *r);

} // namespace ubusd

#endif
