#include "access.h"

#include <cstring>
#include <string_view>

#include "pattern.h"
#include "rule.h"

namespace ubusd {
namespace {

bool concerns(const rule &r, const client &c) {
    if (r.user) return !std::strcmp(r.user, c.who.user);
    if (r.gid == c.who.gid) return true;
    for (std::size_t i = 0; i < c.who.n_groups; ++i)
        if (r.gid == c.who.groups[i]) return true;
    return false;
}

bool granted(const client &c, grant what, std::string_view name, const char *method = "") {
    if (access_everything(c)) return true;
    const rule *r;
    list_for_each_entry (r, &c.bus->rules, list) {
        if (r->what == what && concerns(*r, c) && pattern_matches(r->name, name) &&
            (!r->method || pattern_matches(r->method, method)))
            return true;
    }
    return false;
}

} // namespace

bool access_everything(const client &c) { return is_root(c); }

bool access_publish(const client &c, const char *path) { return granted(c, grant::publish, path); }

bool access_method(const client &c, const char *path, const char *method) {
    return granted(c, grant::access, path, method);
}

bool access_subscribe(const client &c, const object &target) {
    if (target.path) return granted(c, grant::subscribe, target.path);
    const credentials &owner = target.owner->who;
    return access_everything(c) || !std::strcmp(c.who.user, owner.user) ||
           !std::strcmp(c.who.group, owner.group);
}

bool access_listen(const client &c, const char *pattern) {
    std::string_view text = pattern;
    if (!text.empty() && text.back() == '*') text.remove_suffix(1);
    return granted(c, grant::listen, text);
}

bool access_send(const client &c, const char *event) { return granted(c, grant::send, event); }

} // namespace ubusd
