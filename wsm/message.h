// message.h - what the daemon has answered, member by member; and the same as JSON.
#pragma once

#include "base/cxx/ubus.h"

#include <cstdint>

// The member of a table, null where there is none.
struct blob_attr *member(struct blob_attr *table, const char *name);

// Its value; an empty text, or `instead`, for one that is missing or of another kind.
const char *text_of(struct blob_attr *table, const char *name);
std::int64_t number_of(struct blob_attr *table, const char *name, std::int64_t instead = 0);
bool truth_of(struct blob_attr *table, const char *name);

// A number of whatever size, signed. False for what is none.
bool read_number(struct blob_attr *value, std::int64_t &number);

// Calls `visit` with each sound value of a message, an array or a table; what is none of them has no values.
template <class Visit> void for_each(struct blob_attr *list, Visit visit) {
    if (!list || (blob_is_extended(list) && blobmsg_type(list) != BLOBMSG_TYPE_ARRAY &&
                  blobmsg_type(list) != BLOBMSG_TYPE_TABLE))
        return;
    struct blob_attr *one = nullptr;
    std::size_t rest = blobmsg_data_len(list);
    __blob_for_each_attr (one, blobmsg_data(list), rest)
        if (blob_is_extended(one) && blobmsg_check_attr(one, false)) visit(one); // else it has no name
}

// Writes a table, and `behind` it, as one line of JSON on standard output. What a terminal must not see is written as escapes.
// False without memory.
bool print_json(struct blob_attr *value, const char *behind = "");

// Writes a text as one of JSON, likewise.
void print_json_text(const char *text);
