// arguments.h - the arguments of a call of `wsmd`, read strictly: another type, a second one of the same name or an unknown
// name is a fault of the caller, not a missing argument.
#pragma once

#include "base/cxx/ubus.h"

#include <cstddef>

// Fills `found` with the arguments of `msg` (null: none) as `policy` names them. Null, or the name of the first argument that
// is not as the policy says ("" for a message that is not sound); it is the message's.
const char *sta_arguments_read(const struct blobmsg_policy *policy, std::size_t count,
                               struct blob_attr **found, struct blob_attr *msg) noexcept;

// Answers `why` about `what`, and gives the status of a call that was refused.
int sta_arguments_refuse(struct ubus_context *ctx, struct ubus_request_data *req, const char *why,
                         const char *what) noexcept;
