// The input is the capability file: afterwards there is a limit, and a path of the wireless configuration to look into.
#include "life.h"

#include "core/capability.h"
#include "inputs/network.h"
#include "model/table.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    const life here;
    write_file("/tmp/tk_device/tk_device.json", as_text(data, size));
    sta_max_num = 0;
    EXPECT_EQ(dev_cap_table_init(), 0);
    EXPECT_GE(sta_max_num, 0);
    EXPECT_LT(strnlen(g_path, sizeof(g_path)), sizeof(g_path));
    sta_sta_get_vlanid(sta_sta_peek(life::online));
    return 0;
}
