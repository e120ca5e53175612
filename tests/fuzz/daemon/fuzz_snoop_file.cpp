// The input is the snooping table: it is walked, and stations take addresses from it.
#include "life.h"

#include "inputs/leases.h"
#include "life/address.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const life here;
    write_file("/tmp/snoop_ip_bak", as_text(data, size));
    sta_snoop_foreach_lan([](const char *mac, const char *ip) {
        EXPECT_GT(std::strlen(mac), 0U);
        EXPECT_GT(std::strlen(ip), 0U);
    });
    sta_sta_update_online_status_ip();
    return 0;
}
