#include "acl.h"

#include <cstdlib>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "event.h"
#include "object.h"
#include "pattern.h"
#include "rule.h"

namespace ubusd {
namespace {

constexpr std::size_t file_limit = 1 << 20; // bytes

// Only root may have written the rules.
bool is_trustworthy(const struct stat &st) {
    return S_ISREG(st.st_mode) && st.st_uid == 0 && st.st_gid == 0 &&
           !(st.st_mode & (S_IWGRP | S_IWOTH | S_IXOTH)) && st.st_size >= 0 &&
           static_cast<std::size_t>(st.st_size) < file_limit;
}

// The text of a rule file, to be freed; null if it cannot be read or trusted.
char *read_file(int dir, const char *name) {
    const int fd = openat(dir, name, O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) return nullptr;
    struct stat st;
    char *text = nullptr;
    if (fstat(fd, &st) == 0 && is_trustworthy(st)) {
        text = static_cast<char *>(std::calloc(1, static_cast<std::size_t>(st.st_size) + 1));
        if (text && read(fd, text, static_cast<std::size_t>(st.st_size)) < 0) {
            std::free(text);
            text = nullptr;
        }
    }
    close(fd);
    return text;
}

int is_rule_file(const dirent *entry) {
    constexpr std::string_view suffix = ".json";
    std::string_view name = entry->d_name;
    if (name.size() < suffix.size()) return false;
    name.remove_prefix(name.size() - suffix.size());
    return name == suffix;
}

void load_file(broker &bus, int dir, const char *name) {
    char *text = read_file(dir, name);
    if (!text)
        syslog(LOG_ERR, "%s/%s: not readable, or not only root's to write", bus.rule_dir, name);
    else if (!rules_parse(bus.rules, text))
        syslog(LOG_ERR, "%s/%s: no rules for a known user or group", bus.rule_dir, name);
    std::free(text);
}

void add_section(builder &b, const object &o, const rule &r) {
    void *table = blobmsg_open_table(b.raw(), nullptr);
    if (!table) return b.fail();
    int failed = blobmsg_add_string(b.raw(), "obj", o.path);
    if (r.user) failed |= blobmsg_add_string(b.raw(), "user", r.user);
    if (r.group) failed |= blobmsg_add_string(b.raw(), "group", r.group);
    failed |= blobmsg_add_blob(b.raw(), r.acl);
    if (failed) b.fail();
    blobmsg_close_table(b.raw(), table);
}

} // namespace

int acl_query(request &req) {
    builder b(req.bus.out);
    b.u32(UBUS_ATTR_OBJID, UBUS_SYSTEM_OBJECT_ACL);
    void *data = blob_nest_start(b.raw(), UBUS_ATTR_DATA);
    if (!data || blobmsg_add_u32(b.raw(), "seq", req.bus.rule_sequence)) return UBUS_STATUS_NO_MEMORY;
    void *sections = blobmsg_open_array(b.raw(), "acl");
    if (!sections) return UBUS_STATUS_NO_MEMORY;
    const object *o;
    const rule *r;
    list_for_each_entry (o, &req.from.objects, of_owner) {
        if (!o->path) continue;
        list_for_each_entry (r, &req.bus.rules, list) {
            if (r->acl && pattern_matches(r->name, o->path)) add_section(b, *o, *r);
        }
    }
    blobmsg_close_array(b.raw(), sections);
    blob_nest_end(b.raw(), data);
    if (!b.root()) return UBUS_STATUS_NO_MEMORY;
    reply(req, b.root());
    return UBUS_STATUS_OK;
}

void acl_load(broker &bus) {
    // Opened before the listing. The listing needs another descriptor and closes it, so one is left for the files.
    const int dir = open(bus.rule_dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dir < 0) return;
    dirent **files = nullptr;
    const int n = scandir(bus.rule_dir, &files, is_rule_file, alphasort);
    if (n > 0) acl_forget(bus);
    for (int i = 0; i < n; ++i) {
        load_file(bus, dir, files[i]->d_name);
        std::free(files[i]);
    }
    std::free(files);
    close(dir);
    if (n <= 0) return;
    ++bus.rule_sequence;
    event_rules_loaded(bus);
}

void acl_forget(broker &bus) {
    while (!list_empty(&bus.rules)) {
        rule *r = list_first_entry(&bus.rules, rule, list);
        list_del(&r->list);
        rule_free(r);
    }
}

} // namespace ubusd
