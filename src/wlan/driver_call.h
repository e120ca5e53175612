// driver_call.h - one request to the driver, counted and timed.
#pragma once

// was_ext_ioctl_msg with 0 for its last argument: `size` bytes of `message`, which the answer replaces. 0, or the library's
// failure.   Blocks: until the driver answers.
int sta_driver_call(void *message, int size, const char *ifname, int command) noexcept;
