#include "support/members.h"

#include <gtest/gtest.h>

#include "base/cxx/ubox.h"

namespace {

using lines = std::vector<std::string>;

void add_members(lines &all, void *data, std::size_t length, const std::string &indent);

void add_member(lines &all, blob_attr *member, const std::string &indent) {
    const std::string key =
        indent + (blobmsg_name(member)[0] != '\0' ? std::string(blobmsg_name(member)) + " " : "");
    const auto line = [&](const std::string &text) { all.push_back(key + text); };
    switch (blobmsg_type(member)) {
    case BLOBMSG_TYPE_STRING: return line(std::string("STRING ") + blobmsg_get_string(member));
    case BLOBMSG_TYPE_INT64:
        return line("INT64 " + std::to_string(static_cast<std::int64_t>(blobmsg_get_u64(member))));
    case BLOBMSG_TYPE_INT32:
        return line("INT32 " + std::to_string(static_cast<std::int32_t>(blobmsg_get_u32(member))));
    case BLOBMSG_TYPE_INT16:
        return line("INT16 " + std::to_string(static_cast<std::int16_t>(blobmsg_get_u16(member))));
    case BLOBMSG_TYPE_BOOL: return line("BOOL " + std::to_string(blobmsg_get_u8(member)));
    case BLOBMSG_TYPE_ARRAY: line("ARRAY"); break;
    case BLOBMSG_TYPE_TABLE: line("TABLE"); break;
    default: return line("type " + std::to_string(blobmsg_type(member)));
    }
    add_members(all, blobmsg_data(member), blobmsg_data_len(member), indent + "  ");
}

void add_members(lines &all, void *data, std::size_t length, const std::string &indent) {
    auto *at = static_cast<char *>(data);
    while (length > 0) {
        auto *member = reinterpret_cast<blob_attr *>(at);
        if (!blobmsg_check_attr_len(member, false, length)) {
            ADD_FAILURE() << "a member is not sound";
            return;
        }
        add_member(all, member, indent);
        const std::size_t step = std::min<std::size_t>(blob_pad_len(member), length);
        at += step;
        length -= step;
    }
}

} // namespace

std::vector<std::string> members_of(blob_attr *head) {
    lines all;
    if (head) add_members(all, blob_data(head), blob_len(head), "");
    return all;
}
