// The input is the DHCP server's lease file: stations online take names and addresses from it, and a new one goes online.
#include "life.h"

#include "life/address.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    life here;
    write_file("/tmp/dhcp.leases", as_text(data, size));
    sta_sta_update_name_by_dhcp();
    here.run_timers();
    sta_sta_update_name_by_dhcp();
    return 0;
}
