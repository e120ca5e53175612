// A line of hostapd's control socket, and the frame that it may contain.
#include "../require.h"
#include "nl80211/capabilities.h"
#include "nl80211/control_line.h"
#include "nl80211/frame.h"

#include <cstddef>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    std::uint8_t room[control_frame_max];
    const control_line line = control_line_decode({reinterpret_cast<const char *>(data), size}, room);
    require(line.frame.size() <= sizeof(room), "a frame fits");
    require(line.frame.empty() || line.kind == control_line::frame_received, "a frame is of its event");
    management_frame frame{};
    if (!management_frame_decode(line.frame, frame)) return 0;
    for (const unsigned frequency : {2412U, 5180U, 5975U}) {
        const capabilities can = capabilities_decode(frame.elements, frequency);
        require(can.width <= width_320, "a width is one of five");
        for (std::uint8_t width = 0; width < widths; ++width)
            require(capabilities_max_rate(can, width) <= 8 * 28824 / 10, "a rate is one that there is");
    }
    return 0;
}
