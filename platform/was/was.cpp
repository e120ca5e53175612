#include "was/was.h"
#include "protocol/was_wire.h"
#include "was/was_request.h"

int was_ext_ioctl_msg(void *buf, int size, const char *ifname, int cmd, int arg) {
    return was_request(was_socket_path, buf, size, ifname, cmd, arg);
}
