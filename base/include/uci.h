/*
 * uci.h - configuration packages: read them, look values up, change and commit them.
 *
 * A package (one file) holds sections in order; a section has a type, a name (its own or a generated one) and
 * options in order; an option is a string or a list of strings. All values are text. A change is first
 * recorded in a delta file of its own (uci_save), where every later uci_load finds it, and written into the
 * package by uci_commit.
 *
 *     struct uci_context *ctx = uci_alloc_context();
 *     struct uci_package *p = NULL;
 *     if (uci_load(ctx, "wireless", &p) == UCI_OK) {
 *         struct uci_element *e;
 *         uci_foreach_element(&p->sections, e)
 *             puts(uci_to_section(e)->type);
 *     }
 *     uci_free_context(ctx);
 *
 * Every int function returns a UCI_OK or UCI_ERR_ code and stores it in ctx->err; a null context gives
 * UCI_ERR_INVAL. On failure, outputs are left as they were unless the function says otherwise.
 *
 * Everything that is reached through a context belongs to it, and is freed by uci_unload, by uci_commit or
 * uci_revert of its package, or by uci_free_context: copy what you need longer. A context is used by one thread at
 * a time.
 */
#ifndef UCI_H
#define UCI_H

#include "uci_config.h"

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

#define UCI_CONFDIR "/etc/config"   /* packages */
#define UCI_SAVEDIR "/tmp/.uci"     /* deltas */
#define UCI_CONF2DIR "/var/run/uci" /* packages that override those of UCI_CONFDIR */
#define UCI_DIRMODE 0700
#define UCI_FILEMODE 0600

enum {
    UCI_OK = 0,
    UCI_ERR_MEM,
    UCI_ERR_INVAL,
    UCI_ERR_NOTFOUND,
    UCI_ERR_IO,
    UCI_ERR_PARSE,
    UCI_ERR_DUPLICATE,
    UCI_ERR_UNKNOWN,
    UCI_ERR_LAST
};

enum uci_type {
    UCI_TYPE_UNSPEC = 0,
    UCI_TYPE_DELTA = 1,
    UCI_TYPE_PACKAGE = 2,
    UCI_TYPE_SECTION = 3,
    UCI_TYPE_OPTION = 4,
    UCI_TYPE_PATH = 5,
    UCI_TYPE_BACKEND = 6,
    UCI_TYPE_ITEM = 7,
    UCI_TYPE_HOOK = 8
};

enum uci_option_type { UCI_TYPE_STRING = 0, UCI_TYPE_LIST = 1 };

/* Bits of uci_context::flags. A new context has UCI_FLAG_STRICT and UCI_FLAG_SAVED_DELTA. */
enum uci_flags {
    UCI_FLAG_STRICT = (1 << 0), /* the first malformed line fails the whole load; otherwise it is skipped */
    UCI_FLAG_PERROR = (1 << 1), /* print malformed lines on standard error */
    UCI_FLAG_EXPORT_NAME = (1 << 2), /* write generated section names */
    UCI_FLAG_SAVED_DELTA = (1 << 3)  /* keep the deltas that a load applied, in uci_package::saved_delta */
};

/* Kinds of change; uci_command_char[] holds the character that marks each in a delta file (change has none).
 */
enum uci_command {
    UCI_CMD_ADD,      /* + create an anonymous section */
    UCI_CMD_REMOVE,   /* - remove a section, an option, or the list item at the index in value */
    UCI_CMD_CHANGE,   /*   set an option, create or retype a section */
    UCI_CMD_RENAME,   /* @ value is the new name */
    UCI_CMD_REORDER,  /* ^ value is the new position */
    UCI_CMD_LIST_ADD, /* | append a list item */
    UCI_CMD_LIST_DEL, /* ~ remove the equal list items */
    __UCI_CMD_MAX,
    __UCI_CMD_LAST = __UCI_CMD_MAX - 1
};

/* Intrusive, circular; the head is part of the circle. */
struct uci_list {
    struct uci_list *next;
    struct uci_list *prev;
};

/* What packages, sections, options and list items have in common. Of a list item, name is the text. */
struct uci_element {
    struct uci_list list;
    enum uci_type type;
    char *name;
};

struct uci_context;
struct uci_package;
struct uci_parse_context;

/* Where packages come from. There is one, "file". */
struct uci_backend {
    struct uci_element e;
    int (*list_configs)(struct uci_context *ctx, char ***list);
    int (*load)(struct uci_context *ctx, const char *name, struct uci_package **package);
    int (*commit)(struct uci_context *ctx, struct uci_package **package, bool overwrite);

    /* private: */
    const void *ptr;
    void *priv;
};

struct uci_context {
    struct uci_list root; /* loaded packages */
    struct uci_parse_context *pctx;
    struct uci_backend *backend;
    struct uci_list backends;
    enum uci_flags flags;
    char *confdir;
    char *savedir;
    char *conf2dir;             /* NULL: no override */
    struct uci_list delta_path; /* folders that deltas are read from, in order; savedir is the last */

    /* private: */
    int err;
    const char
        *parse_reason; /* what was wrong with a file while err is UCI_ERR_PARSE, else NULL; static text */
    int parse_line;
    int parse_byte;
};

struct uci_package {
    struct uci_element e;
    struct uci_list sections;
    struct uci_context *ctx;
    bool has_delta;  /* loaded by name: changes are recorded as deltas */
    bool uses_conf2; /* read from conf2dir */
    char *path;      /* of the file; NULL for an imported package */

    /* private: */
    struct uci_backend *backend;
    void *priv;
    int n_section; /* sections ever created, for generated names */
    struct uci_list delta;
    struct uci_list saved_delta;
};

struct uci_section {
    struct uci_element e;
    struct uci_list options;
    struct uci_package *package;
    bool anonymous; /* e.name is generated and not written to files */
    char *type;
};

struct uci_option {
    struct uci_element e;
    struct uci_section *section;
    enum uci_option_type type;
    union {
        struct uci_list list; /* of UCI_TYPE_ITEM elements */
        char *string;
    } v;
};

/* A place in the configuration: the texts that name it, and what was found there. */
struct uci_ptr {
    enum uci_type target; /* what the texts name: package, section or option */
    enum {
        UCI_LOOKUP_DONE = (1 << 0),     /* p, s and o have been looked up */
        UCI_LOOKUP_COMPLETE = (1 << 1), /* everything named exists */
        UCI_LOOKUP_EXTENDED = (1 << 2)  /* the section is given as @type[index] */
    } flags;

    struct uci_package *p;
    struct uci_section *s;
    struct uci_option *o;
    struct uci_element *last; /* the deepest that was found */

    const char *package;
    const char *section;
    const char *option;
    const char *value;
};

/* A recorded change; e.name is the option, or NULL. */
struct uci_delta {
    struct uci_element e;
    enum uci_command cmd;
    char *section;
    char *value; /* or NULL */
};

struct uci_parse_option {
    const char *name;
    enum uci_option_type type;
};

#pragma GCC visibility push(default)

extern char const uci_command_char[];

/* A context with the default folders, or NULL when out of memory. Freeing takes NULL, too. */
struct uci_context *uci_alloc_context(void);
void uci_free_context(struct uci_context *ctx);

/* The text is copied; the folder need not exist. savedir becomes the last folder of the delta path, where the
 * former one stays. A NULL or empty conf2dir switches the override off. */
int uci_set_confdir(struct uci_context *ctx, const char *dir);
int uci_set_savedir(struct uci_context *ctx, const char *dir);
int uci_set_conf2dir(struct uci_context *ctx, const char *dir);

/* Adds a folder just before the last of the delta path; UCI_ERR_DUPLICATE when it is in the path already. */
int uci_add_delta_path(struct uci_context *ctx, const char *dir);

/* Only "file" exists; anything else is UCI_ERR_NOTFOUND. */
int uci_set_backend(struct uci_context *ctx, const char *name);

/*
 * Loads a package. name is a package name (conf2dir or confdir, with the deltas of all folders applied), or a
 * path that starts with "/" or "./" (that file and nothing else; the package is named after its last part).
 * *package (package may be NULL) is set on success only. Missing: UCI_ERR_NOTFOUND, not readable: UCI_ERR_IO,
 * malformed: UCI_ERR_PARSE, a package of that name is loaded: UCI_ERR_DUPLICATE, impossible name:
 * UCI_ERR_INVAL.
 */
int uci_load(struct uci_context *ctx, const char *name, struct uci_package **package);
int uci_unload(struct uci_context *ctx, struct uci_package *package);

/*
 * Splits "package[.section[.option]][=value]" in place: str must be writable and outlive ptr. A section that
 * is not a plain name is left for uci_lookup_ptr and marked UCI_LOOKUP_EXTENDED. UCI_ERR_PARSE, and *ptr all
 * zero, for more than three parts, an empty package or option, an invalid option name or a control byte in
 * the value.
 */
int uci_parse_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str);

/*
 * Finds what str names (split as above), or, with a NULL str, what the texts in *ptr name; loads the package
 * if it is not loaded. extended allows @type[index], where an index counts all sections of that type (of any
 * type, if it is empty), a negative one from the end; the section's real name is then put into ptr->section.
 * UCI_OK also when a section or option does not exist: UCI_LOOKUP_COMPLETE is then missing from the flags.
 * UCI_ERR_INVAL for a section that is no name: *ptr is all zero where extended, else ptr->p is set. Otherwise
 * the code of uci_load.
 */
int uci_lookup_ptr(struct uci_context *ctx, struct uci_ptr *ptr, char *str, bool extended);

/* First element of a list with that name; *e is NULL with UCI_ERR_NOTFOUND. */
int uci_lookup_next(struct uci_context *ctx, struct uci_element **e, struct uci_list *list, const char *name);

/*
 * Changes. Each takes a ptr that uci_lookup_ptr has filled, or whose texts say what to look up, and keeps
 * ptr->s and ptr->o up to date; older pointers to a changed option may be invalid. A package that was loaded by
 * name records them. A value that could not be read back, such as an invalid name or type, is UCI_ERR_INVAL.
 */

/* An option, or the type of a section, which is created if missing. The same value is no change, an empty one
 * deletes. UCI_ERR_INVAL without a value and for an option of a missing section. */
int uci_set(struct uci_context *ctx, struct uci_ptr *ptr);

/* A section, an option, or, of a list option with a number as ptr->value, the item at that index. */
int uci_delete(struct uci_context *ctx, struct uci_ptr *ptr);

/* ptr->value is the new name; UCI_ERR_DUPLICATE if another has it. An anonymous section becomes a named one.
 */
int uci_rename(struct uci_context *ctx, struct uci_ptr *ptr);

/* Append ptr->value to a list; remove all items equal to it, where a missing or string option has none. */
int uci_add_list(struct uci_context *ctx, struct uci_ptr *ptr);
int uci_del_list(struct uci_context *ctx, struct uci_ptr *ptr);

/* A new anonymous section at the end of p; *res becomes it and may not be NULL. */
int uci_add_section(struct uci_context *ctx, struct uci_package *p, const char *type,
                    struct uci_section **res);

/* pos counts from 0; a negative one means the first place, one past the end the last. */
int uci_reorder_section(struct uci_context *ctx, struct uci_section *s, int pos);

/* Appends the recorded changes of p to its file in savedir; commits a package that was loaded by path. */
int uci_save(struct uci_context *ctx, struct uci_package *p);

/*
 * Writes a package through a temporary file that replaces it. One loaded by name is read again with all
 * deltas, written if there were any, and *p is then another package; on failure *p stays. With overwrite it
 * is written as it stands, and an imported one gets the file confdir/NAME; without, one that has no file is
 * UCI_ERR_INVAL.
 */
int uci_commit(struct uci_context *ctx, struct uci_package **p, bool overwrite);

/* Drops the recorded changes of a package, section or option from savedir and from memory; the package is
 * loaded again, and changes not yet saved are lost. UCI_ERR_INVAL for a package that was loaded by path. */
int uci_revert(struct uci_context *ctx, struct uci_ptr *ptr);

/*
 * Reads packages from a stream. single: "package" lines are ignored, all goes to the package called name.
 * With a non-NULL *package as well, the input is merged into it and recorded. Without name, the package lines
 * give the names. *package, if not NULL, becomes the last package that was read, or NULL if there was none.
 */
int uci_import(struct uci_context *ctx, FILE *stream, const char *name, struct uci_package **package,
               bool single);

/* Writes a package, or, for NULL, all loaded ones; header puts a "package" line before each. */
int uci_export(struct uci_context *ctx, FILE *stream, struct uci_package *package, bool header);

/* Names of the packages in confdir, in byte order, ended by NULL; one free(*list) frees all. UCI_ERR_NOTFOUND
 * for a missing folder and for one without packages. */
int uci_list_configs(struct uci_context *ctx, char ***list);

/* Text of the last error, "prefix: text" or, with a NULL prefix, "text": to *dest (the caller frees it; NULL
 * when out of memory), or as a line on standard error. */
void uci_get_errorstr(struct uci_context *ctx, char **dest, const char *prefix);
void uci_perror(struct uci_context *ctx, const char *prefix);

/*
 * Next word of a line, quoted as in configuration files; ";" and "#" end the words of a line. *str NULL
 * fetches a new line from the stream and is then the reader's place in it. *result is valid until the next
 * call, "" after the last word.
 */
int uci_parse_argument(struct uci_context *ctx, FILE *stream, char **str, char **result);

/* False for a text with a control byte other than tab, line feed and carriage return. */
bool uci_validate_text(const char *str);

/* tb[i] becomes the section's option of the name and type in opts[i], or NULL; n is the number of both. */
void uci_parse_section(struct uci_section *s, const struct uci_parse_option *opts, int n,
                       struct uci_option **tb);

/* A number that changes when a name or value of these options does; tb[i] may be NULL. */
uint32_t uci_hash_options(struct uci_option **tb, int n);

#pragma GCC visibility pop

#define BITS_PER_LONG (8 * sizeof(unsigned long))

static inline void uci_bitfield_set(unsigned long *bits, int bit) {
    bits[(size_t)bit / BITS_PER_LONG] |= 1UL << ((size_t)bit % BITS_PER_LONG);
}

#ifndef container_of
#define container_of(ptr, type, member) ((type *)(void *)((char *)(ptr)-offsetof(type, member)))
#endif

#define list_to_element(ptr) container_of(ptr, struct uci_element, list)

/* for-loops over the elements of a list; in the second, e may be unlinked. */
#define uci_foreach_element(_list, _e)                                                                       \
    for (_e = list_to_element((_list)->next); &_e->list != (_list); _e = list_to_element(_e->list.next))

#define uci_foreach_element_safe(_list, _tmp, _e)                                                            \
    for (_e = list_to_element((_list)->next), _tmp = list_to_element(_e->list.next); &_e->list != (_list);   \
         _e = _tmp, _tmp = list_to_element(_tmp->list.next))

#define uci_list_empty(list) ((list)->next == (list))

/* Address just after *ptr. */
#define uci_dataptr(ptr) (((char *)(ptr)) + sizeof(*(ptr)))

#define uci_type_backend UCI_TYPE_BACKEND
#define uci_type_delta UCI_TYPE_DELTA
#define uci_type_package UCI_TYPE_PACKAGE
#define uci_type_section UCI_TYPE_SECTION
#define uci_type_option UCI_TYPE_OPTION

#ifdef UCI_DEBUG_TYPECAST
static inline struct uci_element *uci_check_type(struct uci_element *e, enum uci_type want,
                                                 const char *func) {
    if (e->type != want) fprintf(stderr, "%s: element has type %d, not %d\n", func, (int)e->type, (int)want);
    return e;
}
#define UCI_CAST(ptr, kind) container_of(uci_check_type(ptr, uci_type_##kind, __func__), struct uci_##kind, e)
#else
#define UCI_CAST(ptr, kind) container_of(ptr, struct uci_##kind, e)
#endif

#define uci_to_backend(ptr) UCI_CAST(ptr, backend)
#define uci_to_delta(ptr) UCI_CAST(ptr, delta)
#define uci_to_package(ptr) UCI_CAST(ptr, package)
#define uci_to_section(ptr) UCI_CAST(ptr, section)
#define uci_to_option(ptr) UCI_CAST(ptr, option)

/* The loaded package, the section, the option of exactly that name, or NULL with ctx->err UCI_ERR_NOTFOUND.
 */
static inline struct uci_package *uci_lookup_package(struct uci_context *ctx, const char *name) {
    struct uci_element *e = NULL;
    return uci_lookup_next(ctx, &e, &ctx->root, name) == UCI_OK ? uci_to_package(e) : NULL;
}

static inline struct uci_section *uci_lookup_section(struct uci_context *ctx, struct uci_package *p,
                                                     const char *name) {
    struct uci_element *e = NULL;
    return uci_lookup_next(ctx, &e, &p->sections, name) == UCI_OK ? uci_to_section(e) : NULL;
}

static inline struct uci_option *uci_lookup_option(struct uci_context *ctx, struct uci_section *s,
                                                   const char *name) {
    struct uci_element *e = NULL;
    return uci_lookup_next(ctx, &e, &s->options, name) == UCI_OK ? uci_to_option(e) : NULL;
}

/* The value of a string option; NULL also for a list. */
static inline const char *uci_lookup_option_string(struct uci_context *ctx, struct uci_section *s,
                                                   const char *name) {
    struct uci_option *o = uci_lookup_option(ctx, s, name);
    return o && o->type == UCI_TYPE_STRING ? o->v.string : NULL;
}

#ifdef __cplusplus
}
#endif

#endif
