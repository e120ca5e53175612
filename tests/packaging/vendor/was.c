// A maker's own access to the driver. There is no driver: it writes one line for every request.
#include <stdio.h>

int was_ext_ioctl_msg(void *buf, int size, const char *ifname, int cmd, int arg) {
    FILE *file = fopen("/tmp/vendor-requests.log", "a");
    (void)buf;
    if (!file) return -1;
    fprintf(file, "%s cmd=%d size=%d arg=%d\n", ifname, cmd, size, arg);
    return fclose(file) == 0 ? 7 : -1;
}
