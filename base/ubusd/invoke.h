// invoke.h - method calls: to the broker's own objects, and passed on between clients.
#ifndef UBUSD_INVOKE_H
#define UBUSD_INVOKE_H

#include "object.h"
#include "request.h"

namespace ubusd {

int handle_invoke(request &req);
// A STATUS or DATA message: the answer of a callee, to be passed on to the caller.
int handle_answer(request &req);

// True for a notification that needs no answer.
bool wants_no_reply(const request &req);
// A forwarded call or notification is longer than the received one. True if it is still not too large for a message.
bool can_forward(const request &req);
void forward_notification(const request &req, const object &subscriber);

bool is_system_object(std::uint32_t id);

} // namespace ubusd

#endif
