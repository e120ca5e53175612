#include "wlan/driver_call.h"

#include "tools/health.h"
#include "was/was.h"

int sta_driver_call(void *message, int size, const char *ifname, int command) noexcept {
    const sta_stopwatch watch{sta_health.driver_slowest};
    ++sta_health.driver_requests;
    const int result = was_ext_ioctl_msg(message, size, ifname, command, 0);
    if (result != 0) ++sta_health.driver_failures;
    return result;
}
