// was.h - access to the wireless driver's private requests (libwas.so). A device brings its own library with
// this name; the one in this folder asks the lab's driver simulator over a Unix socket.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

// Sends request `cmd` for the wireless interface `ifname` to the driver and waits for its answer. `buf` holds
// `size` bytes of request and is overwritten by at most as many bytes of answer. `arg` is passed on (0 in
// every use here). 0 on success; the driver's own result, or -1 when there is no driver, it ends during the
// request, or an argument is wrong (null `ifname`, negative `size`, no `buf` for it). On failure the
// buffer's content is undefined. Blocks until the driver answers.
int was_ext_ioctl_msg(void *buf, int size, const char *ifname, int cmd, int arg);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
