#include "rule.h"

#include <cstdlib>
#include <cstring>

#include <grp.h>

#include <libubox/blobmsg_json.h>

namespace ubusd {
namespace {

// The user or group that the rules of a file are for.
struct subject {
    const char *user, *group;
    gid_t gid;
};

void add(list_head &rules, const subject &who, grant what, const char *name, const char *method = nullptr,
         const blob_attr *acl = nullptr) {
    const auto size = [](const char *text) { return text ? std::strlen(text) + 1 : 0; };
    char *user, *group, *name_copy, *method_copy;
    auto *r = static_cast<rule *>(calloc_a(sizeof(rule), &user, size(who.user), &group, size(who.group),
                                           &name_copy, size(name), &method_copy, size(method)));
    if (!r) return;
    const auto copy = [](char *to, const char *text) { return text ? std::strcpy(to, text) : nullptr; };
    r->user = copy(user, who.user);
    r->group = copy(group, who.group);
    r->gid = who.gid;
    r->what = what;
    r->name = copy(name_copy, name);
    r->method = copy(method_copy, method);
    r->acl = acl ? blob_memdup(const_cast<blob_attr *>(acl)) : nullptr;
    list_add_tail(&r->list, &rules);
}

// An array of names.
void add_names(list_head &rules, const subject &who, grant what, blob_attr *names) {
    if (!names || blobmsg_check_array(names, BLOBMSG_TYPE_STRING) <= 0) return;
    blob_attr *name;
    std::size_t rem;
    blobmsg_for_each_attr (name, names, rem) add(rules, who, what, blobmsg_get_string(name));
}

// The section of one path: {"methods": [...], "acl": {...}}.
void add_path(list_head &rules, const subject &who, blob_attr *section) {
    enum { METHODS, ACL, COUNT };
    static const blobmsg_policy policy[COUNT] = {{"methods", BLOBMSG_TYPE_ARRAY},
                                                 {"acl", BLOBMSG_TYPE_TABLE}};
    if (blobmsg_type(section) != BLOBMSG_TYPE_TABLE) return;
    const char *path = blobmsg_name(section);
    blob_attr *found[COUNT];
    blobmsg_parse_attr(policy, COUNT, found, section);
    if (found[ACL]) add(rules, who, grant::acl, path, nullptr, found[ACL]);
    if (!found[METHODS] || blobmsg_check_array(found[METHODS], BLOBMSG_TYPE_STRING) <= 0) return;
    blob_attr *method;
    std::size_t rem;
    blobmsg_for_each_attr (method, found[METHODS], rem)
        add(rules, who, grant::access, path, blobmsg_get_string(method));
}

enum { USER, GROUP, ACCESS, PUBLISH, SUBSCRIBE, LISTEN, SEND, COUNT };
constexpr blobmsg_policy file_policy[COUNT] = {
    {"user", BLOBMSG_TYPE_STRING},   {"group", BLOBMSG_TYPE_STRING},    {"access", BLOBMSG_TYPE_TABLE},
    {"publish", BLOBMSG_TYPE_ARRAY}, {"subscribe", BLOBMSG_TYPE_ARRAY}, {"listen", BLOBMSG_TYPE_ARRAY},
    {"send", BLOBMSG_TYPE_ARRAY},
};

bool add_file(list_head &rules, blob_attr **found) {
    subject who{};
    if (found[USER]) {
        who.user = blobmsg_get_string(found[USER]);
    } else if (found[GROUP]) {
        who.group = blobmsg_get_string(found[GROUP]);
        const group *known = getgrnam(who.group);
        if (!known) return false;
        who.gid = known->gr_gid;
    } else {
        return false;
    }
    blob_attr *section;
    std::size_t rem;
    blobmsg_for_each_attr (section, found[ACCESS], rem) add_path(rules, who, section);
    add_names(rules, who, grant::publish, found[PUBLISH]);
    add_names(rules, who, grant::subscribe, found[SUBSCRIBE]);
    add_names(rules, who, grant::listen, found[LISTEN]);
    add_names(rules, who, grant::send, found[SEND]);
    return true;
}

} // namespace

bool rules_parse(list_head &rules, const char *json) {
    blob_buf file{};
    blob_attr *found[COUNT];
    bool good = blob_buf_init(&file, 0) == 0 && blobmsg_add_json_from_string(&file, json);
    if (good) {
        blobmsg_parse(file_policy, COUNT, found, blob_data(file.head),
                      static_cast<unsigned>(blob_len(file.head)));
        good = add_file(rules, found);
    }
    blob_buf_free(&file);
    return good;
}

void rule_free(rule *r) {
    std::free(r->acl);
    std::free(r);
}

} // namespace ubusd
