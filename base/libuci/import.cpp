#include "import.h"

#include "edit.h"
#include "model.h"
#include "reader.h"
#include "text.h"

#include <cstring>
#include <string_view>

namespace uci {
namespace {

// One run over a stream: where the next section, option or list item goes.
class importer {
public:
    importer(uci_context *ctx, FILE *stream) : ctx_(ctx), stream_(stream) {}

    int into(uci_package *p, bool record) {
        package_ = p;
        record_ = record;
        single_ = true;
        return run();
    }

    // Without a package to begin with: "package" lines say which; name, if there is one, goes before them.
    // The new packages are appended to *made.
    int into_new(const char *name, uci_list *made) {
        made_ = made;
        if (name) {
            if (const int rc = switch_package(name)) return rc;
        }
        return run();
    }

    uci_package *package() const { return package_; }

private:
    using handler = int (importer::*)();
    struct command {
        const char *word;
        const char *letter;
        const char *without_name; // the error if the file ends after the word
        handler run;
    };
    static const command commands[];

    int run();
    int line();
    int dispatch(std::size_t start);
    int on_package();
    int on_config();
    int on_option();
    int on_list();

    int switch_package(const char *name);
    int section(const char *type, const char *name);
    int named_value(std::size_t *name, std::size_t *value);
    int first_word(std::size_t *place);
    int word(std::size_t *place);
    int end_of_command();
    int malformed(const char *reason, std::size_t byte);
    int malformed(const char *reason) { return malformed(reason, in_.pos()); }

    uci_context *ctx_;
    FILE *stream_;
    reader in_{reader::semicolon::empty_word};
    uci_list *made_ = nullptr;
    uci_package *package_ = nullptr;
    uci_section *section_ = nullptr;
    bool record_ = false;
    bool single_ = false;
};

const importer::command importer::commands[] = {
    {"package", "p", "package without name", &importer::on_package},
    {"config", "c", "config without name", &importer::on_config},
    {"option", "o", "option without name", &importer::on_option},
    {"list", "l", "option without name", &importer::on_list},
};

int importer::run() {
    for (;;) {
        int rc = in_.next_line(stream_);
        if (rc == UCI_ERR_NOTFOUND) return UCI_OK;
        if (rc == UCI_OK) rc = line();
        if (rc && (rc != UCI_ERR_PARSE || is_strict(ctx_))) return rc;
    }
}

int importer::line() {
    in_.skip_space();
    for (;;) {
        const std::size_t start = in_.pos();
        in_.skip_blanks();
        if (in_.at_end() || in_.at_comment()) return UCI_OK;
        if (const int rc = dispatch(start)) return rc;
    }
}

// start: the place that an error about the command as a whole is reported at.
int importer::dispatch(std::size_t start) {
    const std::size_t place = in_.plain_word();
    const std::string_view word = in_.text(place);
    for (const command &c : commands) {
        if (word != c.word && word != c.letter) continue;
        if (c.run != &importer::on_package && !package_)
            return malformed("attempting to import a file without a package name", start);
        if ((c.run == &importer::on_option || c.run == &importer::on_list) && !section_)
            return malformed("option/list command found before the first section", start);
        if (place + word.size() == in_.pos()) return malformed(c.without_name);
        return (this->*c.run)();
    }
    return malformed("invalid command", start);
}

int importer::on_package() {
    std::size_t name = 0;
    if (const int rc = first_word(&name)) return rc;
    if (!is_package_line_name(in_.text(name))) return malformed("invalid character in name field");
    if (const int rc = end_of_command()) return rc;
    return single_ ? UCI_OK : switch_package(in_.text(name));
}

int importer::on_config() {
    std::size_t type = 0, name = 0;
    if (const int rc = first_word(&type)) return rc;
    if (!is_type(in_.text(type))) return malformed("invalid character in type field");
    if (const int rc = word(&name)) return rc;
    if (*in_.text(name) && !is_name(in_.text(name))) return malformed("invalid character in name field");
    if (const int rc = end_of_command()) return rc;
    return section(in_.text(type), in_.text(name));
}

int importer::section(const char *type, const char *name) {
    if (*name == '\0') return add_section(package_, type, record_, &section_);
    uci_element *e = find(package_->sections, name);
    if (!e) return create_section(package_, type, name, record_, &section_);
    uci_section *known = uci_to_section(e);
    if (is_strict(ctx_) && std::strcmp(known->type, type) != 0)
        return malformed("section of different type overwrites prior section with same name");
    section_ = known;
    return set_type(known, type, record_);
}

int importer::on_option() {
    std::size_t name = 0, value = 0;
    if (const int rc = named_value(&name, &value)) return rc;
    // An option is never empty: without a value, an earlier one stays.
    if (*in_.text(value) == '\0') return UCI_OK;
    uci_option *o = nullptr;
    return set_option(section_, in_.text(name), in_.text(value), record_, &o);
}

int importer::on_list() {
    std::size_t name = 0, value = 0;
    if (const int rc = named_value(&name, &value)) return rc;
    uci_option *o = nullptr;
    return add_item(section_, in_.text(name), in_.text(value), record_, &o);
}

int importer::named_value(std::size_t *name, std::size_t *value) {
    if (const int rc = first_word(name)) return rc;
    if (!is_name(in_.text(*name))) return malformed("invalid character in name field");
    if (const int rc = word(value)) return rc;
    return end_of_command();
}

int importer::switch_package(const char *name) {
    section_ = nullptr;
    if (uci_element *e = find(*made_, name)) {
        package_ = uci_to_package(e);
        return UCI_OK;
    }
    if (find(ctx_->root, name)) return UCI_ERR_DUPLICATE;
    uci_package *p = new_package(ctx_, name, nullptr);
    if (!p) return UCI_ERR_MEM;
    list_append(*made_, p->e.list);
    package_ = p;
    return UCI_OK;
}

int importer::first_word(std::size_t *place) {
    if (const int rc = word(place)) return rc;
    return *in_.text(*place) ? UCI_OK : malformed("insufficient arguments");
}

int importer::word(std::size_t *place) {
    const int rc = in_.word(stream_, place);
    return rc == UCI_ERR_PARSE ? malformed(in_.reason()) : rc;
}

// One surplus word is an error, or dropped if lenient; an empty one, such as ";", separates commands.
int importer::end_of_command() {
    std::size_t surplus = 0;
    if (const int rc = word(&surplus)) return rc;
    return *in_.text(surplus) && is_strict(ctx_) ? malformed("too many arguments") : UCI_OK;
}

int importer::malformed(const char *reason, std::size_t byte) {
    ctx_->err = UCI_ERR_PARSE;
    ctx_->parse_reason = reason;
    ctx_->parse_line = in_.lines();
    ctx_->parse_byte = static_cast<int>(byte);
    if (ctx_->flags & UCI_FLAG_PERROR) uci_perror(ctx_, nullptr);
    return UCI_ERR_PARSE;
}

// A package that is not read from a file must not get one outside of confdir, or a hidden one.
bool is_file_name(const char *name) { return is_type(name) && *name != '.' && *name != '/'; }

int import_new(uci_context *ctx, FILE *stream, const char *name, uci_package **package, bool single) {
    uci_package *last = nullptr;
    int rc = UCI_OK;
    uci_list made;
    list_init(made);
    if (single) {
        uci_package *p = new_package(ctx, name, nullptr);
        if (!p) return UCI_ERR_MEM;
        list_append(made, p->e.list);
        last = p;
        rc = parse_package(ctx, stream, p, false);
    } else {
        importer import(ctx, stream);
        rc = import.into_new(name, &made);
        last = import.package();
    }
    if (rc) {
        uci_element *e, *next;
        uci_foreach_element_safe (&made, next, e) free_package(uci_to_package(e));
        return rc;
    }
    list_move_all(ctx->root, made);
    if (package) *package = last;
    return UCI_OK;
}

} // namespace

int parse_package(uci_context *ctx, FILE *stream, uci_package *p, bool record) {
    return importer(ctx, stream).into(p, record);
}

} // namespace uci

using namespace uci;

int uci_import(uci_context *ctx, FILE *stream, const char *name, uci_package **package, bool single) {
    if (!ctx) return UCI_ERR_INVAL;
    if (!stream || (name && !is_file_name(name))) return result(ctx, UCI_ERR_INVAL);
    if (single && package && *package)
        return result(ctx, parse_package(ctx, stream, *package, (*package)->has_delta));
    if (name && find(ctx->root, name)) return result(ctx, UCI_ERR_DUPLICATE);
    return result(ctx, import_new(ctx, stream, name, package, single && name));
}
