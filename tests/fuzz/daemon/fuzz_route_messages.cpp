// The input is what arrives on the socket for neighbours, one datagram a piece, at a daemon that knows stations. With a tag
// above 0 a station leaves after it.
#include "life.h"

#include "life/neighbours.h"
#include "model/identity.h"
#include "model/members.h"
#include "model/table.h"
#include "pieces.h"
#include "tools/health.h"

#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    life here;
    pieces datagrams(data, size);
    for (piece one; datagrams.next(one);) {
        const std::vector<std::uint8_t> exact(one.bytes.begin(), one.bytes.end());
        sta_neighbours_handle(exact);
        if (sta_info_t *sta = one.tag > 0 ? sta_sta_peek(life::added) : nullptr) {
            sta_members_unlink(sta);
            sta_sta_free(sta);
        }
    }
    std::uint32_t kept = 0;
    for (const sta_info_t *sta : stations()) {
        EXPECT_LE(sta_identity_addresses(sta).size(), station_addresses_max);
        for (const station_address &one : sta_identity_addresses(sta)) EXPECT_TRUE(sta_address_is_host(one));
        kept += static_cast<std::uint32_t>(sta_identity_addresses(sta).size());
    }
    EXPECT_EQ(sta_health.addresses_kept, kept);
    return 0;
}
