// The input is what arrives on the driver's socket, one message a piece, at a daemon that knows stations. The tag says
// which timer fires after it; in the end all of them do.
#include "life.h"

#include "life/driver_events.h"
#include "life/pass.h"
#include "pieces.h"
#include "wlan/channel.h"

#include <array>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    life here;
    sta_nl.family = 0x1c;
    pieces messages(data, size);
    for (piece one; messages.next(one);) {
        std::array<std::uint8_t, sta_nl_message_max> buffer{};
        const std::size_t received = std::min(one.bytes.size(), buffer.size());
        std::copy_n(one.bytes.begin(), received, buffer.begin());
        sta_nl_handle(buffer, static_cast<long>(received));
        if (one.tag == 1) sta_sta_flow_count_proc();
        if (one.tag == 2) sta_sta_single_log_up_proc();
        if (one.tag == 3) sta_sta_log_up_proc();
        here.take_reports();
    }
    here.run_timers();
    return 0;
}
