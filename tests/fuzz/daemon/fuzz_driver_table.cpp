// The input is the driver's answers, one a piece, to whatever the daemon asks; the driver refuses when the tag is 15, and
// when there is none left. Every walk that asks the driver is taken.
#include "life.h"

#include "bus/station_list.h"
#include "pieces.h"
#include "support/members.h"

namespace {

// A count of four digits makes tables that are large enough, and leaves memory to the fuzzer.
constexpr std::size_t count_digits = 4;
constexpr int count_request = 5;

void encode(const char *mac, const char *wlan) {
    blob_buf buf{};
    blob_buf_init(&buf, 0);
    sta_encode_json_sta_array_info(&buf, "online", mac, wlan);
    if (buf.head) members_of(buf.head);
    blob_buf_free(&buf);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    life here;
    pieces answers(data, size);
    set_driver([&](const driver_request &request, std::span<std::uint8_t> answer) {
        piece one;
        if (!answers.next(one) || one.tag == 15) return -1;
        const std::size_t most = request.cmd == count_request ? count_digits : answer.size();
        std::copy_n(one.bytes.begin(), std::min(one.bytes.size(), most), answer.begin());
        return 0;
    });
    encode(nullptr, "stainfo");
    encode(life::online, nullptr);
    here.run_timers();
    encode(nullptr, nullptr);
    return 0;
}
