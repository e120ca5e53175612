#include "print.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace cli {
namespace {

void print(const char *text) { (void)std::fputs(text, stdout); }

void print_quoted(const char *text) {
    print("'");
    for (; *text; ++text) {
        if (*text == '\'')
            print("'\\''");
        else
            (void)std::fputc(*text, stdout);
    }
    print("'");
}

// Quotes only an item that a shell would otherwise split.
void print_item(const char *text) {
    if (std::strpbrk(text, " \t\r\n"))
        print_quoted(text);
    else
        print(text);
}

template <class PrintItem> void print_items(const settings &set, uci_option *o, PrintItem print_one) {
    const char *between = "";
    uci_element *item;
    uci_foreach_element (&o->v.list, item) {
        print(between);
        print_one(item->name);
        between = set.delimiter;
    }
}

// The place of each section among those of its type, named ones included, in one walk over the package: a count for each
// type, found by a hash of it. Without memory for that the sections before it are counted.
class type_counts {
public:
    explicit type_counts(const uci_package *p) {
        std::size_t sections = 0;
        uci_element *e;
        uci_foreach_element (&p->sections, e) ++sections;
        while (size_ < 2 * sections) size_ *= 2;
        slots_ = static_cast<slot *>(std::calloc(size_, sizeof(slot)));
    }
    type_counts(const type_counts &) = delete;
    ~type_counts() { std::free(slots_); }

    // To be called for each section once, in the order of the package.
    int next_of(const uci_section *s) {
        if (!slots_) return counted_before(s);
        std::size_t at = hash(s->type) & (size_ - 1);
        while (slots_[at].type && std::strcmp(slots_[at].type, s->type) != 0) at = (at + 1) & (size_ - 1);
        slots_[at].type = s->type;
        return slots_[at].count++;
    }

private:
    struct slot {
        const char *type; // of a section of the package
        int count;
    };

    static std::size_t hash(const char *text) {
        std::size_t value = 5381;
        for (; *text; ++text) value = value * 33 + static_cast<unsigned char>(*text);
        return value;
    }

    static int counted_before(const uci_section *s) {
        int index = 0;
        uci_element *e;
        uci_foreach_element (&s->package->sections, e) {
            if (e == &s->e) break;
            index += std::strcmp(uci_to_section(e)->type, s->type) == 0;
        }
        return index;
    }

    std::size_t size_ = 16;
    slot *slots_;
};

void print_change(const char *package, const uci_delta *d) {
    if (d->cmd == UCI_CMD_REMOVE) print("-");
    (void)std::printf("%s.%s", package, d->section);
    if (d->e.name) (void)std::printf(".%s", d->e.name);
    if (d->cmd != UCI_CMD_REMOVE && d->value) {
        print(d->cmd == UCI_CMD_LIST_ADD ? "+=" : d->cmd == UCI_CMD_LIST_DEL ? "-=" : "=");
        print_quoted(d->value);
    }
    print("\n");
}

} // namespace

void print_value(const settings &set, uci_option *o) {
    if (o->type == UCI_TYPE_STRING)
        print(o->v.string);
    else
        print_items(set, o, print_item);
    print("\n");
}

void print_option(const settings &set, const char *section, uci_option *o) {
    (void)std::printf("%s.%s.%s=", o->section->package->e.name, section, o->e.name);
    if (o->type == UCI_TYPE_STRING)
        print_quoted(o->v.string);
    else
        print_items(set, o, print_quoted);
    print("\n");
}

void print_section(const settings &set, const char *name, uci_section *s) {
    (void)std::printf("%s.%s=%s\n", s->package->e.name, name, s->type);
    uci_element *e;
    uci_foreach_element (&s->options, e) print_option(set, name, uci_to_option(e));
}

void print_package(const settings &set, uci_package *p) {
    type_counts counts(p);
    uci_element *e;
    uci_foreach_element (&p->sections, e) {
        uci_section *s = uci_to_section(e);
        const int index = counts.next_of(s);
        if (!s->anonymous || set.real_names) {
            print_section(set, s->e.name, s);
            continue;
        }
        char *name = nullptr;
        if (asprintf(&name, "@%s[%d]", s->type, index) < 0) continue;
        print_section(set, name, s);
        std::free(name);
    }
}

void print_changes(uci_package *p) {
    uci_element *e;
    uci_foreach_element (&p->saved_delta, e) print_change(p->e.name, uci_to_delta(e));
    uci_foreach_element (&p->delta, e) print_change(p->e.name, uci_to_delta(e));
}

} // namespace cli
