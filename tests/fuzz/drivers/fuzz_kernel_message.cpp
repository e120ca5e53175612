// A message of the kernel's wireless configuration: any attributes, also nested, cut and repeated.
#include "../require.h"
#include "nl80211/capabilities.h"
#include "nl80211/figures.h"
#include "nl80211/frame.h"
#include "nl80211/kernel_message.h"

#include <cstddef>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    kernel_message message;
    if (!kernel_message_decode({data, size}, message)) return 0;
    require(std::memchr(message.ifname, 0, sizeof(message.ifname)) != nullptr,
            "an interface's name has an end");
    require(message.ssid_size <= sizeof(message.ssid), "a network's name fits");
    management_frame frame{};
    mac_address to{};
    if (management_frame_decode(message.frame, frame))
        (void)capabilities_decode(frame.elements, message.frequency);
    (void)key_message_number(message.frame, to);
    station about{};
    const network_facts where{};
    (void)make_event(true, about, message.figures, where, 0, {1, 1}, 1);
    (void)make_basic(about, message.figures, where, 1);
    return 0;
}
