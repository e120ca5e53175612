#include <cstdio>

#include "commands.h"

namespace ubus_cli {
namespace {

const char *type_name(std::uint32_t type) {
    switch (type) {
    case BLOBMSG_TYPE_INT8: return "\"Boolean\"";
    case BLOBMSG_TYPE_INT32: return "\"Integer\"";
    case BLOBMSG_TYPE_STRING: return "\"String\"";
    case BLOBMSG_TYPE_ARRAY: return "\"Array\"";
    case BLOBMSG_TYPE_TABLE: return "\"Table\"";
    default: return "\"(unknown)\"";
    }
}

void print_path(ubus_context *, ubus_object_data *o, void *) { std::printf("%s\n", o->path); }

void print_method(blob_attr *method) {
    std::printf("\t\"%s\":{", blobmsg_name(method));
    const char *separator = "";
    blob_attr *argument;
    std::size_t rem;
    blobmsg_for_each_attr (argument, method, rem) {
        if (!blobmsg_check_attr_len(argument, true, rem)) continue;
        const std::uint32_t type =
            blobmsg_type(argument) == BLOBMSG_TYPE_INT32 ? blobmsg_get_u32(argument) : 0;
        std::printf("%s\"%s\":%s", separator, blobmsg_name(argument), type_name(type));
        separator = ",";
    }
    std::puts("}");
}

void print_object(ubus_context *, ubus_object_data *o, void *) {
    std::printf("'%s' @%08x\n", o->path, o->id);
    blob_attr *method;
    std::size_t rem;
    blob_for_each_attr (method, o->signature, rem) {
        if (blobmsg_check_attr_len(method, true, rem)) print_method(method);
    }
}

} // namespace

int list(ubus_context *ctx, const options &opt, arguments args) {
    if (args.size() > 1) return bad_usage;
    return ubus_lookup(ctx, args.empty() ? nullptr : args[0],
                       opt.verbose && !opt.simple ? print_object : print_path, nullptr);
}

} // namespace ubus_cli
