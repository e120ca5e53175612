// message.h - reading an answer of the daemon member by member, and printing it as JSON.
#pragma once

#include "base/cxx/ubus.h"

#include <cstdint>

// The member of a table; null if there is none.
struct blob_attr *member(struct blob_attr *table, const char *name);

// Its value; an empty text, or `instead`, if it is missing or of another type.
const char *text_of(struct blob_attr *table, const char *name);
std::int64_t number_of(struct blob_attr *table, const char *name, std::int64_t instead = 0);
bool truth_of(struct blob_attr *table, const char *name);

// A number of any size, signed. False if it is not a number.
bool read_number(struct blob_attr *value, std::int64_t &number);

// Calls `visit` with each well-formed value of a message, an array or a table; anything else has no values.
template <class Visit> void for_each(struct blob_attr *list, Visit visit) {
    if (!list || (blob_is_extended(list) && blobmsg_type(list) != BLOBMSG_TYPE_ARRAY &&
                  blobmsg_type(list) != BLOBMSG_TYPE_TABLE))
        return;
    struct blob_attr *one = nullptr;
    std::size_t rest = blobmsg_data_len(list);
    __blob_for_each_attr (one, blobmsg_data(list), rest)
        if (blob_is_extended(one) && blobmsg_check_attr(one, false)) visit(one); // otherwise it has no name
}

// Prints a table as one line of JSON, and then `behind`, on standard output. Characters that are not safe for a terminal are
// escaped. False without memory.
bool print_json(struct blob_attr *value, const char *behind = "");

// Prints a text as a JSON text, likewise.
void print_json_text(const char *text);
