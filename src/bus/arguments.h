// arguments.h - reading the arguments of a call of `wsmd` strictly. A wrong type, a repeated name and an unknown name are errors of
// the caller; they do not count as a missing argument.
#pragma once

#include "base/cxx/ubus.h"

#include <cstddef>

// Fills `found` with the arguments of `msg` (null: none) as `policy` names them. Returns null, or the name of the first argument that
// does not match the policy ("" for a malformed message); the name points into `msg`.
const char *sta_arguments_read(const struct blobmsg_policy *policy, std::size_t count,
                               struct blob_attr **found, struct blob_attr *msg) noexcept;

// Answers with the error `why` and the argument `what`. Returns the status for the refused call.
int sta_arguments_refuse(struct ubus_context *ctx, struct ubus_request_data *req, const char *why,
                         const char *what) noexcept;
