// A maker's own log library: the same five names, another file, another format, a bus object of its own.
#include <libubus.h>
#include <stdarg.h>
#include <stdio.h>

static FILE *log_file;

int dbg_init(const char *program, const char *logfile, int limit) {
    log_file = fopen("/tmp/vendor.log", "a");
    if (!log_file) return -1;
    setlinebuf(log_file);
    return fprintf(log_file, "<init> %s %s %d\n", program, logfile, limit) > 0 ? 0 : -1;
}

int dbg_module_reg(const char *name) {
    fprintf(log_file, "<module> %s\n", name);
    return 42;
}

void dbg_printf(int module, int level, const char *fmt, ...) {
    va_list arguments;
    fprintf(log_file, "<%d:%d> ", module, level);
    va_start(arguments, fmt);
    vfprintf(log_file, fmt, arguments);
    va_end(arguments);
}

void dbg_logfile(int module, const char *fmt, ...) {
    va_list arguments;
    fprintf(log_file, "<%d:file> ", module);
    va_start(arguments, fmt);
    vfprintf(log_file, fmt, arguments);
    va_end(arguments);
}

static struct ubus_object_type type = {.name = "vendor"};
static struct ubus_object object = {.name = "vendor.debug", .type = &type};

struct ubus_object *dbg_get_ubus_object(void) {
    return &object;
}
