#include "inputs/ap_mac.h"

#include "tools/descriptor.h"

#include <cstdio>
#include <fcntl.h>

namespace {

constexpr const char *ap_mac_file = "/proc/tk_sys/sys_mac";
constexpr std::size_t ap_mac_size = 20;

} // namespace

void sta_get_ap_mac(char *destination) {
    if (!destination) return;
    const descriptor file{open(ap_mac_file, O_RDONLY | O_CLOEXEC)};
    if (file.get() < 0) {
        std::perror(ap_mac_file);
        return;
    }
    (void)!read(file.get(), destination, ap_mac_size);
}
