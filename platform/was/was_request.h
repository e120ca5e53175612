// was_request.h - one driver request over a Unix socket.
#pragma once

// As was_ext_ioctl_msg, to the driver that listens at `path`.
int was_request(const char *path, void *buf, int size, const char *ifname, int cmd, int arg) noexcept;
