// driver_call.h - one request to the driver, counted and timed.
#pragma once

// was_ext_ioctl_msg with 0 for its last argument: the answer replaces the `size` bytes of `message`. Returns 0, or the
// library's error.   Blocks: until the driver answers.
int sta_driver_call(void *message, int size, const char *ifname, int command) noexcept;
